#!/usr/bin/env bash
# Uses an installed library as others do: from C through pkg-config, from C++ through CMake, and on
# the command line: use.sh [CMAKE_OPTION...]. Where it lies, and what compiles, is told in the ways
# that these have: PATH, PKG_CONFIG_LIBDIR, CMAKE_PREFIX_PATH, CC. EMULATOR runs what comes out.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# xargs reads the flags as a shell does, so folders may have blanks in their names.
pkg-config --cflags --libs tesra_common | xargs "${CC:-cc}" -std=c99 -o "$work/c" \
    "$here/../../libtesra_common/examples/hex.c" ${RPATH:+"-Wl,-rpath,$RPATH"}
${EMULATOR:-} "$work/c" | diff - <(echo "00FF7F: 3 bytes")

cmake -S "$here" -B "$work/build" "$@" >"$work/log"
cmake --build "$work/build" >>"$work/log"
${EMULATOR:-} "$work/build/consumer" | diff - <(echo "00FF7F: 3 bytes")

tesra=$(command -v tesra)
${EMULATOR:-} "$tesra" count "$here/../../samples/chain.pem" | diff - <(echo 3)
version=$(pkg-config --modversion tesra_common)
${EMULATOR:-} "$tesra" -V | diff - <(echo "$version")
manual=${tesra%/bin/tesra}/share/man
zcat -f "$manual"/man1/tesra.1* | grep -q "libtesra_common $version"
zcat -f "$manual"/man3/tesra_hex_encode.3* | grep -qF 'bytes\en"' # man(1) prints \e as a backslash
