#!/usr/bin/env bash
# What the tool shows of real certificates, one by one and as a chain, is what "openssl x509" prints
# of them: ca_bundle.sh TOOL BUNDLE
set -euo pipefail
tool=$1 bundle=$2
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
awk -v stem="$work/" '/^-----BEGIN/ { ++n } { print >(stem n - 1 ".pem") }' "$bundle"
count=$(grep -c '^-----BEGIN CERTIFICATE' "$bundle")

# The fifteen texts of one certificate, as the tool lays them out. Of repeated attributes the first
# counts; serial numbers are hexadecimal here.
texts() {
    openssl x509 -in "$1" -noout -serial -startdate -enddate -issuer -subject \
        -nameopt sep_multiline,sname,utf8 |
        awk '
            function show(title, text) { printf text == "" ? "  %s\n" : "  %-20s%s\n", title, text }
            function show_name(of, title) {
                show(title " country", value[of, "C"])
                show(title " state", value[of, "ST"])
                show(title " locality", value[of, "L"])
                show(title " org", value[of, "O"])
                show(title " org unit", value[of, "OU"])
                show(title " common name", value[of, "CN"])
            }
            /^[a-zA-Z]+=/ { name = $0; sub(/=.*/, "", name); sub(/^[^=]*=/, ""); value[name] = $0; next }
            { type = $1; sub(/=.*/, "", type); sub(/^[^=]*=/, "") }
            !((name, type) in value) { value[name, type] = $0 }
            END {
                ("echo \"ibase=16; " value["serial"] "\" | BC_LINE_LENGTH=0 bc") | getline serial
                show("Serial number", serial)
                show("Valid from", value["notBefore"])
                show("Valid to", value["notAfter"])
                show_name("issuer", "Issuer")
                show_name("subject", "Subject")
            }'
}

for ((at = 0; at < count; ++at)); do
    texts "$work/$at.pem" >"$work/texts"
    { echo "Certificate 0" && cat "$work/texts"; } | diff - <("$tool" show "$work/$at.pem") >&2
    [ "$at" = 0 ] || echo
    echo "Certificate $at" && cat "$work/texts"
done >"$work/expected"
diff "$work/expected" <("$tool" show "$bundle")
[ "$("$tool" count "$bundle")" = "$count" ]
[ "$count" -gt 100 ]
echo "$count certificates"
