#!/usr/bin/env bash
# Builds the library once more, from a copy of its sources in another folder, and compares it byte
# for byte, debug information included: reproducible.sh LIBRARY SOURCES CMAKE_OPTION...
set -euo pipefail
library=$1 sources=$2
shift 2

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
mkdir "$folder/copy"
cp -R "$sources"/{CMakeLists.txt,cmake,libtesra_common,packaging,platform_log,tools} "$folder/copy"
cmake -S "$folder/copy" -B "$folder/elsewhere" -D BUILD_TESTING=OFF "$@" >"$folder/log"
cmake --build "$folder/elsewhere" --target tesra_common >>"$folder/log"
cmp "$library" "$folder/elsewhere/libtesra_common/$(basename "$library")"
