#!/usr/bin/env bash
# The commands that explain chains, and whether they agree with each other: tool.sh TOOL..., the
# command that runs the tool. If it has two words the first is an emulator: try fewer positions.
set -uo pipefail
export LC_ALL=C
failed=0 limit=$(($# > 1 ? 3 : 50))
tool=("$@")
tests=$(dirname "$(realpath "${BASH_SOURCE[0]}")")
folder=$(mktemp -d)
cd "$folder" || exit
trap 'rm -r "$folder"' EXIT
unset PLATFORM_LOG_STDERR OPENSSL_CONF
cp "$tests/../samples/chain.pem" .
csplit -sz -f cert chain.pem /BEGIN/ '{*}'
for number in 0 1 2; do
    openssl x509 -in cert0$number -outform DER >>chain.der
    openssl x509 -in cert0$number -trustout -addtrust serverAuth >>trusted.pem
done
openssl req -x509 -newkey ed25519 -nodes -keyout key.pem -out evil.pem -utf8 \
    -subj $'/CN=a\x1B[31m\\\\\n\xC2\x9B\xE2\x81\xA6\xE2\x80\x8B\xEF\xBB\xBF\xF3\xA0\x81\x81\xC3\xBCz' 2>log

T() { "${tool[@]}" "$@"; }

row() { # command, exit status, output with standard error
    local found
    found=$(eval "$1" 2>&1 </dev/null)
    [ "$? $found" = "$2 $3" ] && return
    printf '%s\n  expected: %s %s\n  found:    %s\n' "$1" "$2" "$3" "$found"
    failed=1
}

# As many certificates as the library reads by position have a position in check. If they are a
# chain, count says so, and show prints the same of all at once; if not, count says what check does.
agree() { # file
    local by_position='' text at=0 checked
    while [ "$at" -lt "$limit" ] && text=$(T show --index "$at" "$1" 2>&1); do
        by_position+=${by_position:+$'\n\n'}$text at=$((at + 1))
    done
    if checked=$(T check "$1"); then
        row "T show '$1' | awk -v RS= -v ORS='\n\n' 'NR <= $limit'" 0 "$by_position"
        row "T count '$1'" 0 "$(sed -nE '$s/.*: ([0-9]+) cert.*, ends .*/\1/p' <<<"$checked")"
    else
        row "T count '$1'" 1 "tesra: $(tail -n 1 <<<"$checked")"
    fi
    row "grep -m $limit -c ', position ' <<<'${checked//\'/}'; true" 0 "$at"
}

for file in "$tests"/chains/*.pem; do agree "$file"; done
[ ! -e /etc/ssl/certs/ca-certificates.crt ] || agree /etc/ssl/certs/ca-certificates.crt

# Expects how check's last line begins for a command's output.
says() { # command, exit status, start of the line
    eval "$1" >FILE 2>log
    row "T check FILE | tail -n 1 | cut -c 6-$((5 + ${#3})); exit \${PIPESTATUS[0]} # $1" "$2" "$3"
}

# The command that the verdict names makes a chain with that many certificates.
converts() { # command, start of the verdict, number
    local verdict
    rm -f CHAIN
    says "$1" 1 " $2. Convert it: "
    verdict=$(T check FILE | tail -n 1)
    row "{ ${verdict#*. Convert it: }; } >log 2>&1; T count CHAIN" 0 "$3"
}

passed="blocks with certificates that the library passes over"
converts "cat chain.der" "3 certificates in DER, not PEM" 3
converts "cat trusted.pem key.pem" "3 $passed" 3
converts "openssl crl2pkcs7 -nocrl -certfile chain.pem" "1 ${passed/s/}" 3
converts "openssl crl2pkcs7 -nocrl -certfile chain.pem -outform DER" "PKCS#7 in DER" 3
converts "openssl pkcs12 -export -nokeys -in chain.pem -passout pass:" "PKCS#12" 3
converts "iconv -t UTF-16LE chain.pem" "UTF-16LE" 3
converts "iconv -t UTF-16BE chain.pem" "UTF-16BE" 3
converts "base64 -w0 chain.pem" "PEM in Base64" 3
converts "openssl x509 -in chain.pem -outform DER | base64" \
    "Base64 of 1 certificate without BEGIN and END lines" 1
says "grep -v -e ---- chain.pem" 1 " Base64 of 3 certificates without BEGIN and END lines. Put them"
says "cat trusted.pem FILE" 1 " 3 $passed. Convert it"
says "openssl crl2pkcs7 -nocrl -certfile chain.pem | cat trusted.pem -" 1 " 4 $passed. Convert each"
says "sed s/CERTIFICATE/certificate/ chain.pem" 1 " 3 $passed. Write CERTIFICATE in"
says "cat key.pem" 1 " no certificate in it, only PRIVATE KEY. Take the file"
row "cp trusted.pem CHAIN; T check CHAIN | tail -n 1 | grep -o 'certs [^ ]*'" 1 "certs FILE"
says "echo '<html>'" 1 " no PEM block in it. file(1)"
says ":" 1 " empty, where a chain holds one certificate or more"

# Lines that look like part of a block: what is wrong with them, or why no block uses them.
says "sed 29d chain.pem" 0 " 2 certificates, ends cleanly. Line 29: a BEGIN line without an END line"
says "sed 30d chain.pem" 1 "30: Base64 without a BEGIN line before it. Put the BEGIN line there. Line 43: an"
says "sed '14d; 29d' chain.pem" 0 " 2 certificates, ends cleanly. Line 14: Base64 without a BEGIN"
says "sed '14s/^/\x00/' chain.pem" 0 ' 2 certificates, ends cleanly. Line 14: a BEGIN line with "\u{0}" in'
says "sed '1s/^/\xEF\xBB\xBF\xEF\xBB\xBF/; 44s/^/> /' chain.pem" 1 \
    '44: an END line with "> " in front (CERTIFICATE of line 30); the library reads no further.'\
' Remove that. Line 1: a BEGIN line with "\u{FEFF}\u{FEFF}" in front;'
says "sed '30s/-$//' chain.pem" 1 "30: a BEGIN line with 5 and 4 dashes in place of 5 and 5. Correct that. Line 44:"
says "sed '29{N;s/\n//}' chain.pem" 1 '29: an END line with "BEGIN CERTIFICATE-----" after its dashes'
row "sed '43{N;s/\n//}' chain.pem | T check | tail -n 1 | grep -o 'Put a .*'" 1 "Put a line break there."
says "sed '30s/BEGIN/begin/' chain.pem" 1 "30: a BEGIN line in lower case"
says "head -n 43 chain.pem; printf %s '-----END CERT'" 1 "44: an END line cut off at the end of the file"
says "sed '13a # -----BEGIN CERTIFICATE----- is next' chain.pem; echo" 1 '46: 1 byte ("\u{A}") after'
says "for i in {1..99}; do sed 2q chain.pem; done" 1 "3: a BEGIN line without an END line before it"
says "yes ' -----BEGIN A-----' | head -n 999; cat chain.pem" 0 \
    ' 3 certificates, ends cleanly. Line 1: a BEGIN line with " " in front; line 2: a BEGIN line with'\
' " " in front; line 3: a BEGIN line with " " in front; and 996 more faults'

# The first wrong line of a block, in the file's numbers though libcrypto cuts the long line 15.
says "sed -z 's/\n/&!/19; s/\n//15; s/\n//15; s/\n//15; s/\n//15' chain.pem" 1 "16: "
says "printf -- '-----BEGIN A-B-----\n!\n-----END A-B-----\n'; cat chain.pem" 1 "1: unreadable (lib"
says "sed '20s/.*//' chain.pem" 1 "20: a blank line (CERTIFICATE of line 14); the library reads no"
says "sed '20s/.$/=/' chain.pem" 1 "20: padding before the end of the Base64"
says "sed '13s/ATE/AT/' chain.pem" 1 '13: an END line without its BEGIN line: "-----END CERTIFICAT-----"'
says "head -c 1500 chain.pem" 1 "25: cut off, without an END line"
says "sed G chain.pem" 1 "4: a blank line (CERTIFICATE of line 1); the library reads no further. Remove"
says "sed '2i Proc-Type: 4,ENCRYPTED\nDEK-Info: AES-128-CBC,$(printf %032d 0)\n' chain.pem" 1 "1: encrypted"
row "sed '29s/$/\xC2\xA0/' chain.pem | T check | grep -c '29: .*u{A0}\" a'; true" 0 2

# What libcrypto says where no line is wrong, and the library where a certificate has no record.
says "sed 20d chain.pem" 1 "14: unreadable (libcrypto: too long, Type=X509) (CERTIFICATE of line 14); the"
row "tail -n 1 <<<\"\$(sed 20d chain.pem | T check)\" | grep -o 'Copy it again.'" 0 "Copy it again."
says "sed '15s/^M/A/' chain.pem" 1 "14: unreadable (libcrypto: wrong tag, Type=X509)"
says "cat '$tests/records/bad-times.pem'" 0 " 2 certificates, ends cleanly. Line 1: Failed to convert\
 ASN.1 time to string, Failed to convert not_before time; line 11:"
row "cd '$tests/records'; T show --index -1 empty-attributes.pem" 1 "tesra: empty-attributes.pem:109: \
position 11: Invalid entry length(0) for NID:13, Failed to get subject common name"

# What follows the last certificate.
says "cat chain.pem; sed '1,15d; 29,\$d' chain.pem" 1 '45: 809 bytes ("DAYDVQQIDAVUaXJv'
row "cat chain.pem chain.der | T check | tail -n 1 | grep -o 'Put them .*'" 1 \
    "Put them into BEGIN and END lines."
says "cat chain.pem key.pem" 1 "45: PRIVATE KEY after the last certificate, where the library looks"
says "cat chain.pem; printf -- '-----BEGIN PGP A-----\n\nAA=A\n-----END PGP A-----\n'" 1 "45: no PEM, but PGP"

# For programs.
row "head -n 2 chain.pem | T check --json - nope 2>log | tr -d ' \n'" 1 \
    '[{"file":"-","error":null,"count":0,"verdict":"standardinput:2:cutoff,withoutanENDline'\
'(CERTIFICATEofline1);thelibraryreadsnofurther","remedy":"Copyitagain.","findings":[{"first_line":1,'\
'"last_line":2,"kind":"CERTIFICATE","reached":true,"position":null,"subject":null,"not_after":null,'\
'"fault_line":2,"fault":"cutoff,withoutanENDline","remedy":"Copyitagain."}]},{"file":"nope",'\
'"error":"nope:Nosuchfileordirectory"}]'
row "sed '14s/CERT/\xFF/; 29s/CERT/\xFF/; 16s/./!/' chain.pem | T check --json |
    grep -oE '\"(kind|reached|position)\": [^,]*' | cut -d ' ' -f 2 | paste -sd ' '" 1 \
    '"CERTIFICATE" true 0 "\ufffdIFICATE" true null "CERTIFICATE" false null'
row "T show --json chain.pem - <evil.pem | grep -cE 'serial|file'" 0 6

# What show prints, and how it escapes texts.
row "T show --index 0 chain.pem | sed -n 3p" 0 "  not_before          Nov 22 21:35:45 2026 GMT"
row "T show --index 1 evil.pem" 1 "tesra: evil.pem: the last certificate is at position 0"
row "T show evil.pem | tail -n 1" 0 '  subject_common_name a\u{1B}[31m\\\u{A}\u{9B}\u{2066}\u{200B}\u{FEFF}\u{E0041}üz'
row "T check --json evil.pem | grep -o '\"a.*z'" 0 '"a\u001b[31m\\\n\u009b\u2066\u200b\ufeff\udb40\udc41\u00fcz'
row "T show evil.pem --index 0 --log info 2>&1 >log | grep -cF 'name [a\u{1B}[31m\\\\\u{A}\u{9B}'" 0 2
exit "$failed"
