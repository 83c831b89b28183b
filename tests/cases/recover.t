    $ cp "$TESTDIR/../../samples/chain.pem" S; openssl genpkey -algorithm ed25519 -out key
    $ csplit -sz S /BEGIN/ '{*}'; for part in xx0?; do openssl x509 -in $part -outform DER -out $part.der; done; cat xx0?.der >der

# recover writes the certificates of anything, in the order of the file, and nothing else.

    $ while read -r form; do eval "$form" <S | tesra recover | cmp - S || echo "$form"; done <<'END'
    > tr '\n' ' '
    > sed -z 's/\n/\\n/g; s/^/{"x": "/'
    > sed -z 's/\n/\\\\n/g; s/\//\\\//g'
    > sed -z 's/+/%252B/g; s/=/%253D/g; s/\n/%250A/g'
    > sed 's/+/\&#43;/g; s/$/<br>/'
    > sed 's/=/=3D/g; s/^/> /'
    > sed $'s/^/\e]8;;x\e\\\\\e[32m/'
    > sed s/^/+/
    > grep -n ''
    > sed 's/^/07:30 app[1]: /; s/$/ (x)/'
    > awk 'NR % 9 == 5 { print "Page 2 of the certificates" } 1'
    > grep -v -e ---- | tr +/ -_
    > grep -v -e ---- | sed s/^/+/
    > iconv -t UTF-16
    > base64 -w 60 | base64
    > fold -w 7
    > openssl crl2pkcs7 -nocrl -certfile S
    > openssl crl2pkcs7 -nocrl -certfile S -outform DER
    > openssl x509 -trustout -addtrust serverAuth -inform DER -in xx00.der | cat - xx01 xx02
    > cat der
    > END
    $ { sed '1s/^-//; 13q' S; printf '\xEF\xBB\xBF'; sed 1,13d S; } | tesra recover | cmp - S
    $ { echo -----BEGIN CERTIFICATE-----; base64 der; echo -----END CERTIFICATE-----; } >block; tesra count block; tesra recover block | cmp - S
    1
    $ cat xx00.der <(echo) S <(base64 S) <(sed /---/d S) | tesra recover | tesra count
    10

# A damaged or encrypted certificate, or PKCS#12, is named. What is cut short is not completed by what follows.

    $ sed '25,28d' S | tesra recover | tesra count
    tesra: standard input:14: damaged: 480 bytes long, but says 644
    2
    $ head -c 520 xx00.der | cat - xx01 | tesra recover | tesra count
    2
    $ openssl pkcs12 -export -nokeys -in S -passout pass:x -out p12; tesra recover p12 key; cat p12 S | tesra recover | tesra count
    tesra: p12:1: PKCS#12; openssl pkcs12 asks for its password
    tesra: key: contains no certificate
    tesra: standard input:1: PKCS#12; openssl pkcs12 asks for its password
    3
    $ openssl pkcs12 -export -nokeys -certpbe NONE -in S -passout pass:x | tesra recover | tesra count
    3

# Certificates within each other's names cost time in proportion to their length.

    $ python3 - <<'END'
    > def head(tag, size):
    >     return bytes([tag, 0x84]) + size.to_bytes(4, "big")
    > end = b"\x30\x05\x06\x03\x2B\x65\x70\x03\x02\x00\x00"
    > begin, size = [], 0
    > for _ in range(60000):
    >     name = head(0x31, size + 17) + head(0x30, size + 11) + b"\x06\x03\x55\x04\x03" + head(0x14, size)
    >     body = b"\xA0\x03\x02\x01\x02\x02\x01\x01" + end[:7] + head(0x30, size + 23) + name
    >     begin.append(head(0x30, size + 61) + head(0x30, size + len(body)) + body)
    >     size += len(begin[-1]) + len(end)
    > open("nested", "wb").write(b"".join(reversed(begin)) + end * 60000)
    > END
    $ timeout 20 tesra recover nested >log 2>&1
    [1]
