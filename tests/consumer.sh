#!/usr/bin/env bash
# Uses the project as a part of another one; then installs it under a prefix of its own, moves all of
# it, and uses it from there with only what the manual tells: an rpath for the C program.
# consumer.sh BUILD CMAKE_OPTION...
set -euo pipefail
build=$1
shift
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# Within another project neither tests nor tool are built, and nothing is installed.
cmake -S "$(dirname "$0")/consumer/parent" -B "$folder/parent" "$@" \
    -D CMAKE_DISABLE_FIND_PACKAGE_GTest=ON -D CMAKE_DISABLE_FIND_PACKAGE_nlohmann_json=ON \
    >"$folder/log"
cmake --build "$folder/parent" >>"$folder/log" || { cat "$folder/log" && exit 1; }
${EMULATOR:-} "$folder/parent/program" | grep -q "^00FF7F: 3 bytes"
cmake --install "$folder/parent" --prefix "$folder/nothing" >"$folder/log"
[ ! -e "$folder/nothing" ] || { cat "$folder/log" && exit 1; }

cmake --install "$build" --prefix "$folder/installed" >"$folder/log"
moved="$folder/with a blank"
mv "$folder/installed" "$moved"

unset LD_LIBRARY_PATH PKG_CONFIG_PATH
export CMAKE_PREFIX_PATH=$moved PATH=$moved/bin:$PATH PKG_CONFIG_LIBDIR RPATH
PKG_CONFIG_LIBDIR=$(dirname "$(find "$moved" -name tesra_common.pc)")
RPATH=$(dirname "$PKG_CONFIG_LIBDIR")
"$(dirname "$0")/consumer/use.sh" "$@"
