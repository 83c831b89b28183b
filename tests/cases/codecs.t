# Encoders and decoders undo each other, whatever the line breaks, for input longer than one read.

    $ seq -20000 0 | base64 -w 9 | sed 's/$/\r/' | tesra base64 decode | tesra base64 encode | tesra base64 decode | cmp - <(seq -20000 0)
    $ seq 20000 | tesra hex encode | fold -w 8 | sed 1~2y/A/a/ | tesra hex decode | cmp - <(seq 20000)
    $ for form in hex base64; do tesra $form encode </dev/null; printf A | tesra $form encode; done
    41
    QQ==

# The decoders are strict and name the first wrong character. --lenient leaves it to the library.

    $ for text in QQ==QQ== =QQQ QU=D ==== QUI; do tesra base64 decode <<<$text; done
    tesra: standard input: line 1, character 3: unexpected "="
    tesra: standard input: line 1, character 1: unexpected "="
    tesra: standard input: line 1, character 3: unexpected "="
    tesra: standard input: line 1, character 1: unexpected "="
    tesra: standard input: 3 characters, not a multiple of 4
    [1]
    $ for text in 0x68 "$(printf "41 4a\n4g")"; do tesra hex decode <<<$text; done
    tesra: standard input: line 1, character 2: unexpected "x"
    tesra: standard input: line 2, character 2: unexpected "g"
    [1]
    $ tesra hex decode --lenient <<<1G | tesra dump --label l
    l 0000: 01\x20 (esc)
