#!/usr/bin/env bash
# Installs the project in an empty folder, moves it, and uses it from outside the build tree: a C
# program through pkg-config, a C++ program through find_package, the tool, and the manual pages.
# consumer.sh BUILD SOURCES FUNCTIONS C_COMPILER EMULATOR CMAKE_OPTION...; EMULATOR may be "env".
set -euo pipefail
build=$1 sources=$2 functions=$3 cc=$4 emulator=$5
shift 5

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
prefix=$folder/moved
cmake --install "$build" --prefix "$folder/installed" >"$folder/log"
mv "$folder/installed" "$prefix"
export PKG_CONFIG_LIBDIR
PKG_CONFIG_LIBDIR=$(dirname "$(find "$prefix" -name tesra_common.pc)")
libdir=$(dirname "$PKG_CONFIG_LIBDIR")

run() {
    LD_LIBRARY_PATH=$libdir $emulator "$@"
}

pkg-config --exact-version 9.9.9 tesra_common
# shellcheck disable=SC2046 # flags, not one word
"$cc" -std=c99 -o "$folder/example" "$sources/libtesra_common/examples/certificates.c" \
    $(pkg-config --cflags --libs tesra_common) -Wl,-rpath,"$libdir"
run "$folder/example" "$sources/samples/chain.pem" | grep -q '^probe.example: '

cmake -S "$sources/tests/consumer" -B "$folder/consumer" -D CMAKE_PREFIX_PATH="$prefix" \
    -D CMAKE_EXE_LINKER_FLAGS="-Wl,-rpath,$libdir" "$@" >"$folder/log"
cmake --build "$folder/consumer" >>"$folder/log"
run "$folder/consumer/consumer"

[ "$(run "$prefix/bin/tesra" count "$sources/samples/chain.pem")" = 3 ]

# Every function has a page. The tool's page tells of the commands and options that its help tells
# of, no less and no more.
for function in $functions; do
    grep -q "^.SH RETURN VALUE" "$prefix/share/man/man3/$function.3"
done
names() {
    grep -oE -- '(^|[ ,"\[])(--[a-z]+)' | grep -oE -- '--[a-z]+' | sort -u
}
page=$(sed 's/\\-/-/g; s/\\f.//g' "$prefix/share/man/man1/tesra.1")
help=$(run "$prefix/bin/tesra" --help)
commands=$(sed -n '/^Subcommands:/,$s/^  \([a-z0-9]*\) .*/\1/p' <<<"$help")
for command in $commands; do
    help+=$'\n'$(run "$prefix/bin/tesra" "$command" --help)
done
expect_same() {
    diff <(echo "$2") <(echo "$3") || { echo "tesra.1 and --help differ in their $1"; exit 1; }
}
expect_same options "$(names <<<"$help")" "$(names <<<"$page")"
expect_same commands "$(sort <<<"$commands")" \
    "$(sed -n '/^.SH COMMANDS/,/^.SH OPTIONS/s/^\.BR "*\([a-z0-9]*\)[" ].*/\1/p' <<<"$page" | sort -u)"
