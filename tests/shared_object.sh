#!/usr/bin/env bash
# Facts about a built shared library, read off the file: shared_object.sh NAMES NEEDED LIBRARY OBJECT...
# NAMES are the names that it exports, NEEDED a pattern for the libraries that it may need. If NAMES
# is "executable", the file is one, and only its hardening is looked at.
set -euo pipefail
names=$1 needed=$2 file=$3
shift 3
objects=("$@")
status=0

expect() { # what, expected, found
    [ "$2" = "$3" ] && return
    printf '%s: expected "%s", found "%s"\n' "$1" "$2" "$3"
    status=1
}

check_library() {
    expect "exported names" "$(tr ' ' '\n' <<<"$names" | sort)" \
        "$(nm -D --defined-only "$file" | cut -d ' ' -f 3- | sort)"
    expect "libraries beyond $needed" "" \
        "$(readelf -d "$file" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | grep -vE "^($needed)$" || true)"
    expect "soname" "$(basename "$file" | sed 's/\(\.so\.[0-9]*\)\..*/\1/')" \
        "$(readelf -d "$file" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')"
    expect "calls that keep state between calls or touch the error queue" "" \
        "$(nm -D --undefined-only "$file" | grep -oE ' (localtime|gmtime|strtok|ERR_[a-z_]*)@' || true)"
    # In the objects, before the start files add theirs: no variables and no tables, only the
    # literals in mergeable sections, and nothing to run at load.
    expect "sections of static data or start-up code" "" "$(
        readelf -SW "${objects[@]}" | sed -n 's/^ *\[ *[0-9]*\] //p' |
            awk '$1 ~ /^\.(t?data|t?bss|rodata|init_array|ctors|preinit_array)/ && $5 !~ /^0+$/ &&
                 $1 !~ /^\.rodata\.(str|cst)/ { print $1 }'
    )"
}

check_hardening() {
    local calls
    calls=$(nm -D "$file" | sed -n 's/.* U \(__.*_\(chk\|fail\)\)@.*/\1/p')
    expect "stack protector" __stack_chk_fail "$(grep -x __stack_chk_fail <<<"$calls")"
    expect "fortified calls" __snprintf_chk \
        "$(grep -xE '__v?snprintf_chk' <<<"$calls" | sed s/__v/__/ | sort -u)"
    expect "position-independent" DYN "$(readelf -hW "$file" | awk '$1 == "Type:" { print $2 }')"
    expect "immediate binding" BIND_NOW "$(readelf -dW "$file" | awk '$2 == "(FLAGS)" { print $3 }')"
    expect "read-only relocations" R "$(readelf -lW "$file" | awk '$1 == "GNU_RELRO" { print $7 }')"
    expect "rights on the stack" RW "$(readelf -lW "$file" | awk '$1 == "GNU_STACK" { print $7 }')"
    # The linked file has the mark of control-flow protection only if the C library's start files
    # have it too, and Debian's do not.
    local mark
    case $(readelf -hW "$file") in
    *X86-64*) mark='x86 feature: IBT, SHSTK' ;;
    *AArch64*) mark='AArch64 feature: BTI, PAC' ;;
    *) return ;;
    esac
    local object
    for object in "${objects[@]}"; do
        expect "control-flow protection of $(basename "$object")" "$mark" \
            "$(readelf -nW "$object" | sed -n 's/.*Properties: //p')"
    done
}

[ "$names" = executable ] || check_library
check_hardening
exit $status
