#!/usr/bin/env bash
# Runs the commands in cases/*.t and compares their output and exit status with the text:
# cases.sh TRACED TOOL..., the tool with another trace file, and the command that runs the tool.
# The manual's examples, which lie beside TRACED, are run by the command MEMORY_CHECK. With
# CRAM="-i -y" in the environment the files take over whatever has changed.
set -euo pipefail
export PATH
unset PLATFORM_LOG_STDERR OPENSSL_CONF
emulator=("${@:2:$#-2}")
bin=$(mktemp -d)
trap 'rm -r "$bin"' EXIT
PATH=$bin:$PATH

make_command() { # name, words
    local words=("${@:2}")
    printf '#!/bin/bash\nexec %s "$@"\n' "${words[*]@Q}" >"$bin/$1"
    chmod +x "$bin/$1"
}
make_command tesra "${@:2}"
make_command traced "${emulator[@]}" "$1"
for example in "$(dirname "$1")"/example_*; do
    # shellcheck disable=SC2086 # several words
    make_command "${example##*/}" ${MEMORY_CHECK-} "${emulator[@]}" "$example"
done
cd "$(dirname "${BASH_SOURCE[0]}")/cases"
cram3 --indent=4 --shell=/bin/bash ./*.t
