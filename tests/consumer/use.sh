#!/usr/bin/env bash
# Uses an installed library as others do: from C through pkg-config, from C++ through CMake, and on
# the command line: use.sh [CMAKE_OPTION...]. Where it lies, and what compiles, is told in the ways
# that these have: PATH, PKG_CONFIG_LIBDIR, CMAKE_PREFIX_PATH, CC. EMULATOR runs what comes out.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# shellcheck disable=SC2046 # flags, not one word
${CC:-cc} -std=c99 -o "$work/c" "$here/consumer.c" $(pkg-config --cflags --libs tesra_common) \
    ${RPATH:+"-Wl,-rpath,$RPATH"}
${EMULATOR:-} "$work/c"

cmake -S "$here" -B "$work/build" "$@" >"$work/log"
cmake --build "$work/build" >>"$work/log"
${EMULATOR:-} "$work/build/consumer"

count=$(${EMULATOR:-} "$(command -v tesra)" count "$here/../../samples/chain.pem")
[ "$count" = 3 ]
echo "used from C, from C++ and on the command line"
