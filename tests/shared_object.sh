#!/usr/bin/env bash
# Checks what can be seen in a shared library and in the objects that it is made of:
# shared_object.sh NEEDED LIBRARY OBJECT...; NEEDED is a pattern of the libraries that it may need.
set -euo pipefail
export LC_ALL=C
needed=$1 library=$2
shift 2

expect_none() { # of what, found
    [ -z "$2" ] || { echo "$1: $2" && exit 1; }
}

expect_none "needs" "$(readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' |
    grep -vE "^($needed|libc\.so\.6|ld-linux.*)$" || true)"
expect_none "calls that keep state or read the error queue" "$(nm -D --undefined-only "$library" |
    grep -oE ' (localtime|gmtime|strtok|ERR_[a-z_]*)@' || true)"
# In the objects, before the start files add theirs: literals in mergeable sections only.
expect_none "static data or code that runs at load" "$(readelf -SW "$@" |
    sed -n 's/^ *\[ *[0-9]*\] //p' |
    awk '$1 ~ /^\.(t?data|t?bss|rodata|init_array|ctors|preinit_array)/ && $5 !~ /^0+$/ &&
         $1 !~ /^\.rodata\.(str|cst)/ { print $1 }')"
expect_none "the path of the sources" "$(grep -acF "$(realpath "$(dirname "$0")/..")/" "$library" |
    grep -vx 0 || true)"
# The linked file has the mark only where the C library's start files have it, too.
for object; do
    expect_none "no control-flow protection" "$(readelf -nW "$object" |
        grep -qE 'x86 feature: IBT, SHSTK|AArch64 feature: BTI, PAC' || basename "$object")"
done
# Newer releases look for the marks on AArch64, too.
mapfile -t unasked < <(hardening-check --help | grep -oE -- '--no(cf|branch)protection')
hardening-check --quiet "${unasked[@]}" "$library"
