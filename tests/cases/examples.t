# The manual's examples print what they say, and have no fault with memory.

    $ example_base64 && example_hex && example_certificates "$TESTDIR/../records/odd-texts.pem"
    AP9/gA==: 4 bytes
    00FF7F: 3 bytes
    cut: Jun 15 12:30:45 2050 GMT
