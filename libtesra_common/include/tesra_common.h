/*
 * libtesra_common: diagnostics, X.509 certificate chains, Base64 and hexadecimal.
 *
 * What holds for every function:
 *
 * 1. Inputs are only read, and are not referred to once the call has returned. Those that come with
 *    a length need no terminating NUL.
 * 2. What a function hands back is a new object that the caller owns. A tesra_cert_data is released
 *    with tesra_free_cert_data, everything else with free(3).
 * 3. A call that fails hands back nothing, leaves what its out-parameters point to as it was, and
 *    leaves nothing allocated.
 * 4. Nothing is kept from one call to the next, so there is nothing to initialise or to shut down.
 *    All functions may be called from several threads at once. The library has no lock of its own,
 *    but takes those of the C library and of OpenSSL: after fork(2) in a process of several threads
 *    the child must call nothing of the library before execve(2), or it may wait forever.
 *    Environment and locale must not change while a call runs. The functions are not for signal
 *    handlers. A thread that is cancelled within a call leaks what the call has made.
 * 5. What happens is reported, in each layer that it passes through, innermost first: errors (level
 *    2) to the platform's log and to the trace file; warnings (level 3), results (level 4), entries
 *    into functions other than tesra_trace and tesra_dump, and the lengths that codecs work on
 *    (level 11) to the platform's log alone. Where the lines of a dump go is for the caller to say.
 *    Every failure is an error, except that an empty chain in tesra_get_cert_count and an empty
 *    buffer in tesra_dump are warnings. A report that cannot be delivered is lost.
 * 6. OpenSSL's error queue is neither read nor cleared: entries that a failed call leaves there are
 *    the caller's. tesra_trace leaves errno as it was; any other call may change it.
 */
#ifndef TESRA_COMMON_H
#define TESRA_COMMON_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define TESRA_API __attribute__((__visibility__("default")))
#define TESRA_PRINTF(text, first) __attribute__((__format__(__printf__, text, first)))
#else
#define TESRA_API
#define TESRA_PRINTF(text, first)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/**
 * The trace file: text, one line per report, with an empty line after an error of
 * tesra_base64_encode; appended to and never truncated.
 */
#define TESRA_TRACE_FILE "/var/log/miraxlog"

/**
 * tesra_trace appends one line to the trace file, TESRA_TRACE_FILE.
 *
 * The line is "YYYY-MM-DDThh:mm:ss.uuuuuu L<level> [<process id>] <file>:<line>:" in local time,
 * followed directly by the message. Nothing is added after the message, so end `format` in a line
 * break. A line has at most 511 bytes; a longer one is cut there, even within a UTF-8 character,
 * and loses its line break. The time zone is the one that the process read first, until it calls
 * tzset(3), localtime(3), mktime(3) or the like. If the clock cannot be converted to local time,
 * the line is dated 1900-01-00T00:00:00.
 *
 * Each call opens the file for reading and appending, writes the line and closes the file. So the
 * file has to be readable, too; if there is none, it is created with mode 0666 less the umask. If
 * it cannot be opened or written, the line is lost without notice. Where the process has a file
 * size limit, a write beyond it raises SIGXFSZ, which ends a process that does not ignore it. That
 * holds for every call that reports an error, and for tesra_dump with TESRA_DUMP_TRACE.
 *
 * @param level   importance of the report, 0 to 255: 2 error, 3 warning, 4 information, 11 debug
 * @param file    name of the reporting source file; NUL-terminated, not null
 * @param line    line of the report in that file
 * @param format  the message, as printf(3) takes it; NUL-terminated, not null
 * @param ...     what `format` asks for
 *
 * errno is left as it was.
 *
 * Thread-safety: safe. Each line goes to the end of the file in one write, so lines from several
 * threads and processes do not mix.
 */
TESRA_API void tesra_trace(uint8_t level, const char *file, uint32_t line, const char *format, ...)
    TESRA_PRINTF(4, 5);

/**
 * Flags of tesra_dump: where its lines go. They may be combined.
 */
#define TESRA_DUMP_LOG 0x01   /**< to the platform's log, at level 4 */
#define TESRA_DUMP_TRACE 0x02 /**< to the trace file, at level 4 */

/**
 * tesra_dump shows bytes in hexadecimal, sixteen to a line.
 *
 * Each line is "<label> <index>: ", with the index of its first byte in at least four upper-case
 * hexadecimal digits, and then two digits and a blank for every byte. A line has at most 126 bytes,
 * and what does not fit is shown nowhere. A label of up to 71 bytes leaves room for a whole line
 * while the index has four digits, and of one byte less for each further digit. With both flags,
 * each line goes to the platform's log first.
 *
 * @param flags   TESRA_DUMP_LOG, TESRA_DUMP_TRACE or both; other bits are ignored, and with neither
 *                no line goes anywhere
 * @param label   text at the start of every line, NUL-terminated; null is the empty text
 * @param buffer  the bytes; if null, an error is reported ("Invalid arguments") and nothing is
 *                shown
 * @param length  how many; if 0, a warning is reported ("Buffer length = 0!") and nothing is shown
 *
 * The file and line that the sinks show with each line are those of the library, not of the caller:
 * tell dumps apart by their labels.
 *
 * Thread-safety: safe; lines of other callers may come between those of one dump.
 */
TESRA_API void tesra_dump(uint8_t flags, const char *label, const uint8_t *buffer, uint32_t length);

/*
 * Certificate chains
 *
 * A chain is PEM text that holds one or more X.509 certificates, numbered from 0 in the order of
 * the text. They are read and nothing more: no signature, issuer, date or trust is checked.
 *
 * A certificate is a PEM block of the kind CERTIFICATE or X509 CERTIFICATE. What stands before it
 * is passed over: blank lines, other text, and well-formed PEM blocks of other kinds, TRUSTED
 * CERTIFICATE among them. A block without an END line goes on to the next one: of two certificates
 * that are joined in this way only the first is read, and the other is lost without notice.
 *
 * The chain ends cleanly if nothing follows the END line of its last certificate. The line break of
 * that line may be missing. Anything after the line break, such as a blank line or a NUL, is taken
 * for the start of one more certificate, which cannot be read.
 *
 * A BEGIN or END line starts with its dashes. After its last dashes it may have blanks and control
 * characters: bytes up to 0x20, NUL included, so a chain without a line break at its end may be
 * passed with its terminating NUL. Where char is signed, as on x86-64, bytes from 0x80 on may stand
 * there, too; on AArch64 a line with them is neither a BEGIN nor an END line. A byte order mark may
 * stand before a BEGIN line at the start of the chain and right after another block. libcrypto
 * reads a line of more than 254 bytes in pieces of 254 and takes each for a line of its own: one
 * may be a BEGIN line, and the rest of a longer END line counts as text after it.
 *
 * cert_len counts bytes. More than libcrypto's memory buffers hold, 1.5 GiB, is refused ("Write to
 * BIO failed, ret: -1"); 2^31 and more is refused in the same words, unread.
 *
 * Cost: every call reads the chain from its start, so to get all n certificates of a chain by
 * position is to decode about n*n/2 of them. The time that a call takes may grow with the square of
 * cert_len, and with the square of the length of a serial number: limit cert_len where chains come
 * from strangers. To get all certificates of a long chain, pass the text of each by itself, with
 * position 0. The records are the same. PEM_read_bio(3) on a BIO_new_mem_buf(3) of the chain reads
 * block by block, and BIO_pending(3) says after each how much is left.
 *
 * Pass phrases: a certificate's PEM block with an encryption header makes OpenSSL ask for a pass
 * phrase, on the process's terminal or, without one, on its standard input. To have such a block
 * refused instead, make a method by UI_create_method(3) whose opener, set by
 * UI_method_set_opener(3), returns 0, and pass it to UI_set_default_method(3) when the program
 * starts.
 */

/**
 * tesra_get_cert_count counts the certificates of a chain.
 *
 * @param cert_chain  the chain
 * @param cert_len    its length in bytes
 * @return the number of certificates, at least 1; or 0 if `cert_chain` is null, `cert_len` is 0 or
 *         more than libcrypto takes, the chain holds no certificate, one of its certificates cannot
 *         be read, a PEM block of another kind is damaged, the chain does not end cleanly, or
 *         memory is exhausted
 *
 * Thread-safety: safe.
 */
TESRA_API uint32_t tesra_get_cert_count(const char *cert_chain, uint32_t cert_len);

/**
 * The particulars of one certificate, as NUL-terminated texts.
 *
 * In a record from tesra_get_cert_data every field is set. A name attribute that the certificate
 * lacks is an empty text; of an attribute that occurs several times, the first value is taken. A
 * value with an embedded NUL reads as a text that ends there. Times are such as "Jun 15 12:30:45
 * 2050 GMT": two blanks stand before a day of one digit, and a fraction may follow the seconds, as
 * in "10:10:10.25".
 *
 * Name texts are UTF-8, of any length, and are whatever the certificate's maker chose, control
 * characters included. Escape them before they are shown. The library itself reports them as they
 * are to the platform's log.
 */
typedef struct tesra_cert_data {
    char *serial_number;       /**< decimal, with "-" if negative */
    char *not_before;          /**< start of validity */
    char *not_after;           /**< end of validity */
    char *issuer_country;      /**< issuer C */
    char *issuer_state;        /**< issuer ST */
    char *issuer_locality;     /**< issuer L */
    char *issuer_org;          /**< issuer O */
    char *issuer_org_unit;     /**< issuer OU */
    char *issuer_common_name;  /**< issuer CN */
    char *subject_country;     /**< subject C */
    char *subject_state;       /**< subject ST */
    char *subject_locality;    /**< subject L */
    char *subject_org;         /**< subject O */
    char *subject_org_unit;    /**< subject OU */
    char *subject_common_name; /**< subject CN */
} tesra_cert_data;

/**
 * tesra_get_cert_data hands out the particulars of one certificate of a chain.
 *
 * The text after the wanted certificate is not read, unless `index` is -1.
 *
 * @param cert_chain  the chain
 * @param cert_len    its length in bytes
 * @param index       position of the certificate, from 0; -1 is the last one of a chain that ends
 *                    cleanly
 * @return a new record, released with tesra_free_cert_data; or null if `cert_chain` is null,
 *         `cert_len` is 0 or more than libcrypto takes, the chain has no certificate at `index`,
 *         the certificate or one before it cannot be read, a PEM block of another kind before it is
 *         damaged, one of the twelve name attributes is present but empty or cannot be converted to
 *         UTF-8, a time or the serial number cannot be converted, or memory is exhausted
 *
 * Each name attribute that the certificate lacks is reported at level 2, though it is no failure.
 *
 * Thread-safety: safe.
 */
TESRA_API tesra_cert_data *tesra_get_cert_data(const char *cert_chain, uint32_t cert_len,
                                               int index);

/**
 * tesra_free_cert_data releases a record from tesra_get_cert_data, with all its texts.
 *
 * @param data  the record, which must not be used again, nor any of its texts; null is reported as
 *              an error and otherwise ignored
 *
 * Fields may be null, and are passed over. A caller that replaces a field allocates the new text
 * with malloc(3), or with OPENSSL_malloc for `serial_number`, the one field that OpenSSL's
 * allocator owns.
 *
 * Thread-safety: safe, for different records.
 */
TESRA_API void tesra_free_cert_data(tesra_cert_data *data);

/*
 * Base64 and hexadecimal
 *
 * Encoded texts end in a NUL that their lengths do not count. Texts to decode may have whitespace
 * before and after them (what isspace(3) says in the locale of the calling thread), which is passed
 * over and reported as a warning; a text of whitespace alone is refused.
 *
 * Lengths are reported as signed numbers, so 2^31 and more look negative. tesra_base64_encode
 * reports none.
 */

/**
 * tesra_base64_encode turns bytes into Base64 text: the standard alphabet, padded with "=", on one
 * line without a line break.
 *
 * @param buffer      the bytes; not null
 * @param buffer_len  how many, from 1 to 2^31 - 1; libcrypto's memory buffers end sooner, at a text
 *                    of between 1.5 and 2 GiB
 * @param out         where the new text goes: 4 * ((buffer_len + 2) / 3) characters and a NUL,
 *                    released with free(3); not null
 * @return 0; or -1 if `buffer` or `out` is null, `buffer_len` is out of range, or memory is
 *         exhausted
 *
 * Thread-safety: safe.
 */
TESRA_API int tesra_base64_encode(const uint8_t *buffer, size_t buffer_len, char **out);

/**
 * tesra_base64_decode turns Base64 text into bytes.
 *
 * The text between the whitespace must be one unbroken run of the standard alphabet and "=", of a
 * multiple of 4 characters and less than 2^31. Every "=" at its end is taken for padding, however
 * many there are, so "====" and "A===" give no bytes at all; elsewhere "=" stands for six zero
 * bits. Bits of the last character that make no whole byte are ignored. Check the text first if
 * that is too lenient.
 *
 * @param src      the text
 * @param src_len  its length in bytes, whitespace included
 * @param dst_len  where the number of decoded bytes goes, 0 or more
 * @return a new block with the decoded bytes, released with free(3) even if they are none; or null
 *         if an argument is null, `src_len` is 0, the text is not as above, or memory is exhausted
 *
 * The block has 3 bytes for every 4 characters: where the text is padded, it is longer than
 * `*dst_len` says. It has no terminating NUL.
 *
 * Thread-safety: safe.
 */
TESRA_API uint8_t *tesra_base64_decode(const char *src, uint32_t src_len, uint32_t *dst_len);

/**
 * tesra_hex_encode turns bytes into hexadecimal text: two upper-case digits for each byte and
 * nothing between them.
 *
 * @param src      the bytes
 * @param src_len  how many, from 1 to 2^31 - 1
 * @param dst_len  where the length of the text, 2 * src_len, goes
 * @return the new text, released with free(3); or null if an argument is null, `src_len` is out of
 *         range, or memory is exhausted
 *
 * Thread-safety: safe.
 */
TESRA_API char *tesra_hex_encode(const uint8_t *src, uint32_t src_len, uint32_t *dst_len);

/**
 * tesra_hex_decode turns hexadecimal text into bytes.
 *
 * The text between the whitespace is taken in pairs of characters, each converted by sscanf(3) with
 * "%2hhx". Digits may be upper or lower case, and one digit is enough for a pair: whitespace or a
 * sign may stand before it ("-1" is FF), or anything after it ("1G" is 01). Check the text
 * first if that is too lenient.
 *
 * @param src      the text
 * @param src_len  its length in bytes, whitespace included
 * @param dst_len  where the number of decoded bytes goes
 * @return a new block with the decoded bytes and a zero byte after them that `*dst_len` does not
 *         count, released with free(3); or null if an argument is null, `src_len` is 0, the text
 *         has an odd length, a pair cannot be converted, or memory is exhausted
 *
 * Thread-safety: safe.
 */
TESRA_API uint8_t *tesra_hex_decode(const char *src, uint32_t src_len, uint32_t *dst_len);

#ifdef __cplusplus
}
#endif

#endif
