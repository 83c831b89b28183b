    $ for words in bogus base64 'count --json' 'hex encode --lenient' 'show --index 1x' 'show --index -2' '--log 5 count' trace; do tesra $words; done
    tesra: bogus: no such command; "tesra help" lists them
    tesra: base64: encode or decode?
    tesra: count: does not take --json
    tesra: hex encode: does not take --lenient
    tesra: --index: must be a position from 0, or -1 for the last one
    tesra: --index: must be a position from 0, or -1 for the last one
    tesra: --log: must be 2 (error), 3 (warning), 4 (info) or 11 (debug)
    tesra: trace: takes one MESSAGE, a line of at most 400 bytes
    [2]
    $ diff <(tesra help) <(POSIXLY_CORRECT=1 tesra count --log 2 --help) && tesra -V
    \d+\.\d+\.\d+ (re)

# Completion in bash, which takes "=" for a word of its own.

    $ complete() { :; }; compopt() { printf "$* "; }; . "$TESTDIR/../../tools/tesra.bash-completion"
    $ after() { COMP_WORDS=(tesra "$@") COMP_CWORD=$#; _tesra; echo "${COMPREPLY[*]}"; }
    $ after --log debug sh; after --log =; after --log = w; after --log = debug sh
    +o default show
    +o default error warning info debug
    +o default warning
    +o default show
