    $ cp "$TESTDIR/../../samples/chain.pem" S; openssl genpkey -algorithm ed25519 -out key
    $ openssl x509 -in S -trustout -addtrust serverAuth -out trusted; yes ' -----BEGIN A-----' | head -n 99999 >many
    $ verdict() { tesra check "$@" | sed -n '$s/^[^:]*: //p'; }

# The verdict says where and why the library stops, and what recover finds in spite of it.

    $ tesra check S
    S:1-13: CERTIFICATE, position 0: probe.example, until Nov 21 21:35:45 2028 GMT
    S:14-29: CERTIFICATE, position 1: Example Issuing 7, until Nov 19 21:35:45 2036 GMT
    S:30-44: CERTIFICATE, position 2: Example Root 1, until Nov 17 21:35:45 2046 GMT
    S: 3 certificates, ends cleanly
    $ for change in '20s/.*//' '20s/.$/=/' 20s/./!/ 20d 20p '15s/^M/A/' '44s/^/>/' '2i Proc-Type: 4,ENCRYPTED\nDEK-Info: AES-128-CBC,00112233445566778899AABBCCDDEEFF\n' 30d 13s/ATE/AT/; do sed "$change" S | verdict; done
    refused: line 20: blank line within the block; tesra recover finds 2 certificates, at lines 1, 30
    refused: line 20: padding before the end of the Base64; tesra recover finds 2 certificates, at lines 1, 30
    refused: line 20: "!" is not a Base64 character; tesra recover finds 2 certificates, at lines 1, 30
    refused: line 14: damaged: 596 bytes long, but says 644; tesra recover finds 2 certificates, at lines 1, 29
    refused: line 14: damaged: 692 bytes long, but says 644; tesra recover finds 2 certificates, at lines 1, 31
    refused: line 14: unreadable: libcrypto: wrong tag; tesra recover finds 2 certificates, at lines 1, 30
    refused: line 44: malformed END line: ">-----END CERTIFICATE-----"; tesra recover finds 3 certificates, at lines 1, 14, 30
    refused: line 1: encrypted; tesra recover finds 3 certificates, at lines 1, 17, 33
    refused: line 43: END line without its BEGIN line: "-----END CERTIFICATE-----"; tesra recover finds 3 certificates, at lines 1, 14, 30
    refused: line 13: END line without its BEGIN line: "-----END CERTIFICAT-----"; tesra recover finds 3 certificates, at lines 1, 14, 30
    $ head -c 1500 S | verdict; head -c 860 S | verdict; cat S key | verdict; sed '$s/$/\n/' S | verdict; cat key | verdict; cat trusted | verdict; verdict </dev/null; echo '<html>' | verdict
    refused: line 25: truncated: no END line; tesra recover finds 1 certificate, at line 1
    refused: line 15: truncated: no END line; tesra recover finds 1 certificate, at line 1
    refused: line 45: PRIVATE KEY after the last certificate; the library expects another one there; tesra recover finds 3 certificates, at lines 1, 14, 30
    refused: line 45: 1 byte ("\u{A}") after the last certificate; the library expects another one there; tesra recover finds 3 certificates, at lines 1, 14, 30
    refused: line 1: contains no certificate, only PRIVATE KEY
    refused: line 1: skipped, with the certificates in it; tesra recover finds 1 certificate, at line 1
    refused: empty; a chain has at least one certificate
    refused: contains no PEM block
    $ sed 29d S | verdict; sed '14s/^/\x00/' S | verdict; cat S <(sed '1,15d; 29,$d' S) | verdict; cat many S | verdict
    2 certificates, ends cleanly; tesra recover finds 1 more certificate, at line 29
    2 certificates, ends cleanly; tesra recover finds 1 more certificate, at line 14
    refused: line 45: 809 bytes ("DAYDVQQIDAVUaXJvbDESMBAGA1UEBwwJSW5uc2JydWNrMRYwFAYDVQQKDA1FeGFt... and 745 bytes") after the last certificate; the library expects another one there; tesra recover finds 3 certificates, at lines 1, 14, 30
    3 certificates, ends cleanly
    $ sed 's/^-----BEGIN /&PGP /' S | verdict; verdict "$TESTDIR/../records/bad-times.pem"
    refused: line 1: PGP, not PEM; tesra recover finds 3 certificates, at lines 1, 14, 30
    2 certificates, ends cleanly

# Every marker line that is not part of a block is named with its text.

    $ sed '1s/-$//; 14s/ CERT/\xC2\xA0CERT/; 30s/BEGIN/begin/' S | tesra check
    standard input:1: malformed BEGIN line: "-----BEGIN CERTIFICATE----"
    standard input:13: END line without its BEGIN line: "-----END CERTIFICATE-----"
    standard input:14: malformed BEGIN line: "-----BEGIN\u{A0}CERTIFICATE-----"
    standard input:29: END line without its BEGIN line: "-----END CERTIFICATE-----"
    standard input:30: malformed BEGIN line: "-----begin CERTIFICATE-----"
    standard input:44: END line without its BEGIN line: "-----END CERTIFICATE-----"
    standard input: refused: line 1: malformed BEGIN line: "-----BEGIN CERTIFICATE----"; tesra recover finds 3 certificates, at lines 1, 14, 31
    [1]
    $ sed '14s/CERT/\xFF/; 29s/CERT/\xFF/; 40s/$/!/' S | tesra check
    standard input:1-13: CERTIFICATE, position 0: probe.example, until Nov 21 21:35:45 2028 GMT
    standard input:14-29: \xFFIFICATE: line 14: skipped, with the certificates in it
    standard input:30-44: CERTIFICATE: line 40: "!" is not a Base64 character
    standard input: refused: line 40: "!" is not a Base64 character; tesra recover finds 3 certificates, at lines 1, 14, 30
    [1]

# AArch64 refuses what other machines skip at the end of a line; both name the line.

    $ sed '29s/$/\xC2\xA0/' S | tesra check | grep -o 'line 29' | uniq
    line 29

# count says what check does, of every chain.

    $ for file in "$TESTDIR"/../chains/*.pem "$TESTDIR"/../records/*.pem; do says=$(tesra check "$file" | tail -n 1); counts=$(tesra count "$file" 2>&1); [ "tesra: $says" = "$counts" ] || [[ $says = *": $counts certificate"*", ends cleanly"* ]] || echo "$says / $counts"; done

# show prints every certificate that has a record, by the names of its fields.

    $ tesra show --index -1 S | tail -n 2
      subject_org_unit    Roots
      subject_common_name Example Root 1
    $ tesra show --index 1 S | sed -n '1p; 3p'; tesra show --index 3 S; cp "$TESTDIR/../records/bad-times.pem" .; tesra show bad-times.pem S | grep -c -e serial -e S:; sed 44d S | tesra show | wc -l
    Certificate 1
      not_before          Nov 22 21:35:45 2026 GMT
    tesra: S: the last certificate is at position 2
    tesra: bad-times.pem:1-10: CERTIFICATE, position 0: line 1: the library makes no record of it: Failed to convert ASN.1 time to string, Failed to convert not_before time
    tesra: bad-times.pem:11-20: CERTIFICATE, position 1: line 11: the library makes no record of it: Failed to convert ASN.1 time to string, Failed to convert not_after time
    4
    tesra: standard input: refused: line 43: truncated: no END line; tesra recover finds 3 certificates, at lines 1, 14, 30
    0
    $ openssl req -x509 -set_serial 7 -key key -out evil -utf8 -subj $'/CN=a\x1B[31m\\\\\n\xC2\x9B\xE2\x81\xA6\xE1\xA0\x8B\xC3\xBCz' && tesra show evil | tail -n 1; openssl req -x509 -key key -subj / | tesra check | head -n 1 | cut -d, -f 2
      subject_common_name a\\u{1B}[31m\\\\\\u{A}\\u{9B}\\u{2066}\\u{180B}\xc3\xbcz (esc)
     position 0: no name

# JSON has the same for programs, in ASCII.

    $ sed 20d S | tesra check --json - nope | sed 's/Nov.*GMT/DATE/' | tr -d ' \n'
    tesra: nope: No such file or directory
    [{"file":"-","count":0,"verdict":"refused:line14:damaged:596byteslong,butsays644;tesrarecoverfinds2certificates,atlines1,29","recovered":2,"fault":{"code":"wrong-length","line":14,"text":"damaged:596byteslong,butsays644"},"blocks":[{"first_line":1,"last_line":13,"kind":"CERTIFICATE","reached":true,"position":0,"subject":"probe.example","not_after":"DATE"},{"first_line":14,"last_line":28,"kind":"CERTIFICATE","reached":true,"fault":{"code":"wrong-length","line":14,"text":"damaged:596byteslong,butsays644"}},{"first_line":29,"last_line":43,"kind":"CERTIFICATE","reached":false,"subject":"ExampleRoot1","not_after":"DATE"}],"stray_lines":[]},{"file":"nope","error":"nope:Nosuchfileordirectory"}] (no-eol)
    $ tesra show --json evil S bad-times.pem 2>/dev/null | grep -e serial -e z -e error
            "serial_number": "7",
            "issuer_common_name": "a\u001b[31m\\\n\u009b\u2066\u180b\u00fcz",
            "subject_common_name": "a\u001b[31m\\\n\u009b\u2066\u180b\u00fcz"
            "serial_number": "65235216693534277805033851989",
            "serial_number": "2254732815126900529",
            "serial_number": "1",
        "error": "bad-times.pem:11-20: CERTIFICATE, position 1: line 11: the library makes no record of it: Failed to convert ASN.1 time to string, Failed to convert not_after time"
