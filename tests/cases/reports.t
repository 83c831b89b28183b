# --log shows the library's reports up to a level, but not those on the tool's own probes.

    $ tesra count --log=2 "$TESTDIR/../chains/bad-2-no-der.pem" 2>&1 | sed -n 's/error: \(.*\):[0-9]*:/\1:N:/p'
    tesra: tesra_cert.cpp:N:Failed to get cert at index 2
    tesra: tesra_cert.cpp:N:Failed to get cert count
    tesra: tesra_cert.cpp:N:Failed to get cert at index 2
    tesra: tesra_cert.cpp:N:Failed to get cert count
    $ tesra count --log warning "$TESTDIR/../../samples/chain.pem"
    3
    $ PLATFORM_LOG_STDERR=3 tesra base64 decode --lenient <<<'QUI=' 2>&1 | sed s/:[0-9]*:/:N:/
    tesra: warning: tesra_enc_dec.cpp:N:Removed 1 trailing whitespaces
    AB (no-eol)

# A dump has whole lines. The trace file gets what is meant for it, and nothing else.

    $ tesra dump --label $(printf %068d 0)
    tesra: --label: at most 67 bytes, or lines are cut
    [2]
    $ tesra dump </dev/null
    tesra: standard input: nothing to show
    [1]
    $ export TRACE_FILE=trace
    $ printf A | traced count 2>/dev/null; printf A | traced dump --trace --label l; traced trace hello; traced trace $(printf %0400d 0)
    $ sed -E 's/^[^]]*\] [^:]*:[0-9]+://; s/0{400}/(400 digits)/' trace
    l 0000: 41\x20 (esc)
    hello
    (400 digits)
    $ seq 90 >input; TRACE_FILE=/dev/full traced trace hello; (trap '' XFSZ; ulimit -f 1; TRACE_FILE=part traced dump --trace input)
    tesra: /var/log/miraxlog: a line could not be written
    tesra: /var/log/miraxlog: a line could not be written
    [1]
    $ for text in $'two\nlines' $(printf %0401d 0); do traced trace "$text"; done
    tesra: trace: takes one MESSAGE, a line of at most 400 bytes
    tesra: trace: takes one MESSAGE, a line of at most 400 bytes
    [2]
