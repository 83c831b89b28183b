#!/usr/bin/env bash
# Runs the commands that README.md and the tool's page show after "$ ", with the project installed
# and as in its folder, and compares their output: documents.sh BUILD. Such commands stand in
# blocks, indented by four in README.md and between .EX and .EE in the page. README.md's C program
# is program.c to them.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# A shell splits what pkg-config prints at blanks, which TMPDIR may have.
folder=$(TMPDIR=/tmp mktemp -d)
trap 'rm -rf "$folder"' EXIT
unset PLATFORM_LOG_STDERR OPENSSL_CONF
cmake --install "$1" --prefix "$folder/installed" >"$folder/log"
export LD_LIBRARY_PATH PATH=$folder/installed/bin:$PATH PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$folder/installed" -name tesra_common.pc)")
LD_LIBRARY_PATH=$(dirname "$PKG_CONFIG_PATH")

mkdir "$folder/files"
cp -R "$root/bench" "$root/samples" "$root/samples/chain.pem" "$folder/files"
printf '#!/bin/sh\n[ $# -gt 0 ] || set -- show samples/chain.pem\nexec tesra "$@"\n' >"$folder/files/run"
chmod +x "$folder/files/run"
# shellcheck disable=SC2016 # backquotes are text
sed -n '/^```c$/,/^```$/{/^```/!p}' "$root/README.md" >"$folder/files/program.c"

# Blocks that show commands, with what surrounds them. A blank line within output is output.
transcript() {
    echo "    $ cp -R '$folder'/files/* ."
    sed -nE '/^    \$ /,/^[^ ]/p' | sed -Ez 's/\n(\n    [^$])/\n    \1/g'
}
cd "$folder"
transcript <"$root/README.md" >README.md.t
sed -n '/^\.EX/,/^\.EE/{s/\\-/-/g; s/\\e/\\/g; /^\./!s/^/    /; p}' "$root/tools/tesra.1" |
    transcript >tesra.1.t
for file in *.t; do
    [ "$(grep -c '^    \$ ' "$file")" -gt 1 ] || { echo "$file shows no command" && exit 1; }
done
for code in $(tr -d ' \n' <"$root/tools/faults.h" | grep -oP '=\{"\K[a-z0-9-]+'); do
    sed 's/\\//g' "$root/tools/tesra.1" | grep -E "^\.BR? .*\b$code( |$|\")" >/dev/null ||
        { echo "tesra.1 does not explain $code" && exit 1; }
done
cram3 --indent=4 --shell=/bin/bash ./*.t
