    $ cp "$TESTDIR/../../samples/chain.pem" .

# A file that cannot be read does not keep the others from being read.

    $ truncate -s 2G huge; tesra count chain.pem nope huge / chain.pem
    chain.pem:3
    tesra: nope: No such file or directory
    tesra: huge: 2 GiB or larger
    tesra: /: Is a directory
    chain.pem:3
    [1]
    $ tesra count chain.pem >/dev/full
    tesra: standard output: cannot be written
    [1]

# A file may have any name. What could deceive the reader is escaped.

    $ for name in '[x]' '[]' ++ -- "'c\\d"; do cp chain.pem "./$name"; done; tesra count '[x]' '[]' ++ "'c\\d" -- --
    [x]:3
    []:3
    ++:3
    'c\\d:3
    --:3
    $ tesra count $'\e[31m\n\xC2\x9B\xE2\x81\xA6\xE2\x80\x8B\xEF\xBB\xBF\xF3\xA0\x81\x81\xF3\xA0\x84\x80\xC3\xBC\xC3'
    tesra: \u{1B}[31m\u{A}\u{9B}\u{2066}\u{200B}\u{FEFF}\u{E0041}\u{E0100}ü\xC3: No such file or directory
    [1]
