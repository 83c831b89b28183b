# Encoders and decoders undo each other, whatever the line breaks, for input longer than one read.

    $ seq 20000 | base64 -w 9 | sed 's/$/\r/' | tesra base64 decode | tesra base64 encode | tesra base64 decode | cmp - <(seq 20000)
    $ seq 20000 | tesra hex encode | fold -w 8 | sed 1~2y/A/a/ | tesra hex decode | cmp - <(seq 20000)
    $ for form in hex base64; do tesra $form encode </dev/null; printf A | tesra $form encode; done
    41
    QQ==

# The decoders are strict and name the first wrong character. --lenient leaves it to the library.

    $ for text in QQ==QQ== =QQQ QU=D ==== QUI; do tesra base64 decode <<<$text; done
    tesra: standard input: not Base64 text: character 3 is "="
    tesra: standard input: not Base64 text: character 1 is "="
    tesra: standard input: not Base64 text: character 3 is "="
    tesra: standard input: not Base64 text: character 1 is "="
    tesra: standard input: not Base64 text: 3 characters, not a multiple of 4
    [1]
    $ for text in 0x68 ' 4 1'; do tesra hex decode <<<$text; done
    tesra: standard input: not hexadecimal text: character 2 is "x"
    tesra: standard input: not hexadecimal text: character 3 is " "
    [1]
    $ tesra hex decode --lenient <<<1G | tesra dump --label l
    l 0000: 01\x20 (esc)
