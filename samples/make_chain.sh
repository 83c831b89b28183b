#!/usr/bin/env bash
# Makes a new chain.pem: leaf, intermediate and root, with keys of three types. The private keys are
# thrown away.
set -euo pipefail
out=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)/chain.pem
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
cd "$work"

openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-384 -out root.key
openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out intermediate.key
openssl genpkey -algorithm ED25519 -out leaf.key

# All six attributes; O and CN alone; no L and no OU, and a name beyond ASCII.
root='/C=AT/ST=Tirol/L=Innsbruck/O=Example Trust/OU=Roots/CN=Example Root 1'
intermediate='/O=Example Trust/CN=Example Issuing 7'
leaf='/C=DE/ST=Bayern/O=Müller & Söhne/CN=probe.example'

openssl req -x509 -new -utf8 -key root.key -subj "$root" -days 7300 -set_serial 1 -out root.pem
openssl req -new -utf8 -key intermediate.key -subj "$intermediate" -out intermediate.csr
openssl x509 -req -in intermediate.csr -CA root.pem -CAkey root.key -days 3650 \
    -set_serial 0x1F4A6B8C9D0E2F31 -out intermediate.pem
openssl req -new -utf8 -key leaf.key -subj "$leaf" -out leaf.csr
openssl x509 -req -in leaf.csr -CA intermediate.pem -CAkey intermediate.key -days 730 \
    -set_serial 0x00D2C94E7715AA03B6E81F0C55 -out leaf.pem
cat leaf.pem intermediate.pem root.pem >"$out"
