#!/usr/bin/env bash
# Installs the project under a prefix of its own, moves all of it, and uses it from there with no
# more than users are told: an rpath for the C program, nothing else.
# consumer.sh BUILD CMAKE_OPTION...
set -euo pipefail
build=$1
shift
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cmake --install "$build" --prefix "$folder/installed" >"$folder/log"
moved="$folder/with a blank"
mv "$folder/installed" "$moved"

unset LD_LIBRARY_PATH PKG_CONFIG_PATH
export CMAKE_PREFIX_PATH=$moved PATH=$moved/bin:$PATH PKG_CONFIG_LIBDIR RPATH
PKG_CONFIG_LIBDIR=$(dirname "$(find "$moved" -name tesra_common.pc)")
RPATH=$(dirname "$PKG_CONFIG_LIBDIR")
"$(dirname "$0")/consumer/use.sh" "$@"
