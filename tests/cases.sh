#!/usr/bin/env bash
# Runs the commands in cases/*.t and compares their output and exit status with the text:
# cases.sh TRACED TOOL..., the tool with another trace file, and the command that runs the tool.
# With CRAM="-i -y" in the environment the files take over whatever has changed.
set -euo pipefail
traced=$1 words=("${@:2}")
export PATH
unset PLATFORM_LOG_STDERR OPENSSL_CONF
bin=$(mktemp -d)
trap 'rm -r "$bin"' EXIT
PATH=$bin:$PATH

make_command() { # name
    printf '#!/bin/bash\nexec %s "$@"\n' "${words[*]@Q}" >"$bin/$1"
    chmod +x "$bin/$1"
}
make_command tesra
words[-1]=$traced
make_command traced
cd "$(dirname "${BASH_SOURCE[0]}")/cases"
cram3 --indent=4 --shell=/bin/bash ./*.t
