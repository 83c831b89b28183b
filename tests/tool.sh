#!/usr/bin/env bash
# What the tool prints, and whether its commands agree with each other: tool.sh TOOL..., the command
# that runs the tool. What stands in front of the tool is an emulator, and slow.
set -uo pipefail
tool=("$@") failed=0 most=$(($# > 1 ? 3 : 150))
tests=$(dirname "$(realpath "${BASH_SOURCE[0]}")")
cd "$(mktemp -d)" || exit
trap 'rm -r "$PWD"' EXIT
unset PLATFORM_LOG_STDERR
cp "$tests/../samples/chain.pem" .
openssl x509 -in chain.pem -outform DER -out chain.der
openssl req -x509 -newkey ed25519 -nodes -keyout key.pem -out evil.pem -utf8 \
    -subj $'/CN=a\x1B[31m\\\\\n\xC2\x9B\xE2\x80\xAE\xC3\xBCz' 2>log

T() { "${tool[@]}" "$@"; }

row() { # command, exit status, output with standard error
    local found
    found=$(eval "$1" 2>&1 </dev/null)
    [ "$? $found" = "$2 $3" ] && return
    printf '%s\n  expected: %s %s\n  found:    %s\n' "$1" "$2" "$3" "$found"
    failed=1
}

# As many certificates as can be read by position have a position in check. If they are a chain,
# count says so, and show prints the same of all at once; if not, count refuses in check's words.
agree() { # file
    local by_position='' text at=0
    while [ "$at" -lt "$most" ] && text=$(T show --index "$at" "$1" 2>&1); do
        by_position+=${by_position:+$'\n\n'}$text at=$((at + 1))
    done
    if T check "$1" >lines; then
        row "T show $1 | awk -v RS= -v ORS='\n\n' 'NR <= $most'" 0 "$by_position"
        row "T count $1" 0 "$(tail -n 1 lines | sed -E 's/.*: ([0-9]+) cert.*, ends .*/\1/')"
    else
        row "T count $1" 1 "tesra: $(tail -n 1 lines)"
    fi
    row "grep -m $most -c ', position ' lines; true" 0 "$at"
}

# What the command prints is refused; a command that the verdict names makes a chain of it.
refused() { # command, start of the verdict
    eval "$1" >FILE 2>log
    agree FILE
    row "T check FILE | tail -n 1 | cut -c 6-$((5 + ${#2}))" 1 "$2"
    [[ $(tail -n 1 lines) != *CHAIN* ]] || row "$(sed 's/.*: //' lines); T count CHAIN >log" 0 ""
}

for file in "$tests"/chains/*.pem /etc/ssl/certs/ca-certificates.crt; do agree "$file"; done
refused "cat chain.pem; echo" "45: 1 byte follows the last certificate's END line (a blank line)"
refused "cat chain.pem key.pem" "45: PRIVATE KEY follows the last certificate"
refused "head -c 1500 chain.pem" "14: CERTIFICATE: cut off"
refused "sed '16s/^./!/' chain.pem" "14: CERTIFICATE: what stands between"
refused "sed '15s/^M/A/' chain.pem" "14: CERTIFICATE: no certificate in its Base64"
refused "sed '29{N;s/\\n//}' chain.pem" "14: CERTIFICATE: no END line of its own"
refused "sed '2i Proc-Type: 4,ENCRYPTED\nDEK-Info: AES-128-CBC,$(printf %032d 0)\n' chain.pem" \
    "1: CERTIFICATE: encrypted"
refused "sed 's/^/ /' chain.pem" "1: a BEGIN line is passed over"
refused "iconv -f UTF-8 -t UTF-16 chain.pem" " UTF-16"
refused "cat chain.der" " DER, not PEM"
refused "openssl crl2pkcs7 -nocrl -certfile chain.pem -outform DER" " PKCS#7 in DER"
refused "cat key.pem" " a key alone"
refused ":" " empty"

row "sed -E 's/[0-9]{4}(.{8}Z)/9999\\1/' chain.der | openssl x509 | T check | grep -o 'line.*'" \
    0 "line 1: the start of its validity is a time that cannot be printed"
row "T count chain.pem 'a\\b' chain.pem" 1 \
    $'chain.pem:3\ntesra: a\\\\b: No such file or directory\nchain.pem:3'
row "T count chain.pem >/dev/full" 1 "tesra: standard output: cannot be written"
row "T show --index 1 evil.pem" 1 "tesra: evil.pem: no certificate at position 1; the last is at 0"
row "T show --json chain.pem - <evil.pem | grep -cE 'serial|file'" 0 6
row "T show evil.pem | tail -n 1" 0 '  Subject common name a\u{1B}[31m\\\u{A}\u{9B}\u{202E}üz'
row "T check evil.pem | grep -o ': a.*z'" 0 ': a\u{1B}[31m\\\u{A}\u{9B}\u{202E}üz'
row "T check --json evil.pem | grep -o '\"a.*z'" 0 '"a\u001b[31m\\\n\u009b\u202e\u00fcz'
row "T show evil.pem --log info 2>&1 >log | grep -cF 'name [a\u{1B}[31m\\\\\u{A}\u{9B}'" 0 2
row "base64 -w 9 chain.der | T base64 decode | T hex encode | T hex decode | cmp chain.der" 0 ""
row "T base64 encode; T hex encode" 0 ""
row "echo QUI | T base64 decode 2>&1 | grep -o ' 3.*'" 1 " 3 characters, no multiple of 4"
row "echo 0x68 | T hex decode" 1 'tesra: standard input: not hexadecimal text: byte 2 is "x"'
row "echo 1G | T hex decode --lenient | T dump --label l" 0 'l 0000: 01 '
row "T bogus" 2 "tesra: bogus: no such command"
row "T --log 5 count" 2 "tesra: --log: must be 2 (error), 3 (warning), 4 (info) or 11 (debug)"
row "T trace \$'two\nlines'" 2 "tesra: MESSAGE: must be one line of at most 400 bytes"
row "diff <(T help hex decode) <(T hex decode --help) && T -V" 0 9.9.9
# The daemon's file has no line of this minute and the tool's process.
# shellcheck disable=SC2016 # expanded when the row runs
row '"${tool[@]}" count key.pem >log 2>&1 & wait $!; now=$(date +%FT%H:%M)
    grep -s "^$now.*\[$!\]" /var/log/miraxlog; true' 0 ""
exit "$failed"
