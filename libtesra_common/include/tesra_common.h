/*
 * libtesra_common: diagnostics, X.509 certificate chains, Base64 and hexadecimal.
 *
 * These rules apply to every function:
 *
 * 1. Inputs are never modified, nor used after the call returns. An input with a length need not be
 *    NUL-terminated.
 * 2. The caller owns every object that a function returns. It releases a tesra_cert_data with
 *    tesra_free_cert_data, and everything else with free(3).
 * 3. A call that fails returns no object, leaves the targets of its out-parameters unchanged and
 *    releases what it allocated.
 * 4. The library keeps no state, so there is nothing to initialise or shut down. libcrypto does:
 *    with the first certificate it allocates about 160 KB for the life of the process and reads
 *    openssl.cnf, which may load a provider's code. A daemon that changes its root directory or
 *    drops privileges should read a certificate first.
 * 5. Every layer reports to the platform's log, and errors also to the trace file. The caller of
 *    tesra_dump chooses where its lines go. A report that cannot be delivered is lost. The levels
 *    are:
 *    - 2, errors: every failure, innermost first, except for the first two warnings; and every name
 *      attribute that a certificate lacks
 *    - 3, warnings: an empty chain in tesra_get_cert_count, an empty buffer in tesra_dump, and
 *      whitespace that a decoder skips
 *    - 4, results: the number of certificates, the texts of a record, and its release
 *    - 11, debugging: entry into a function other than tesra_trace and tesra_dump, outermost first;
 *      and lengths of results and of texts to decode, except in tesra_base64_encode
 * 6. The library neither reads nor clears OpenSSL's error queue. Entries that a failed call leaves
 *    there are the caller's. tesra_trace preserves errno; any other function may change it.
 * 7. In the words of attributes(7), all functions are MT-Safe env locale: several threads may call
 *    them at once, while no thread changes the environment or the locale. They are AS-Unsafe, so a
 *    signal handler must not call them, and AC-Unsafe: a thread that is cancelled within a call
 *    leaks what the call has made. After fork(2) in a multithreaded process the child must not call
 *    the library before execve(2), or it may deadlock.
 * 8. Keep file descriptors 0 to 2 open, or what the process prints may end up in the trace file. A
 *    program that another thread starts during a call may inherit the open trace file.
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
 * The trace file: text, one line per report, appended to and never truncated. An empty line follows
 * each error of tesra_base64_encode, except the one for a null `out`.
 */
#define TESRA_TRACE_FILE "/var/log/miraxlog"

/**
 * tesra_trace appends one line to the trace file, TESRA_TRACE_FILE.
 *
 * The line is "YYYY-MM-DDThh:mm:ss.uuuuuu L<level> [<process id>] <file>:<line>:" in local time,
 * followed directly by the message. Nothing is added to the message, so end `format` in a line
 * break. A line has at most 511 bytes; a longer one is cut there, even within a UTF-8 character,
 * and loses its line break. The message ends early at a "%ls" that cannot be converted, and at a
 * "%c" of 0. The time zone is read once; tzset(3), localtime(3) or mktime(3) reads it again. If the
 * clock cannot be converted to local time, the line is dated 1900-01-00T00:00:00.
 *
 * Each call opens the file for reading and appending, writes the line and closes the file, so the
 * file must also be readable. A missing file is created with mode 0666, minus the umask. If the
 * file cannot be opened or written, the line is lost without notice. A nearly full disk may take
 * only the start of a line, and the next line then starts right after it. If the file is a FIFO
 * whose reader has stopped reading, the call blocks. In a process with a file size limit, a write
 * beyond it raises SIGXFSZ, which ends a process that does not ignore it. All this applies to every
 * call that reports an error, and to tesra_dump with TESRA_DUMP_TRACE.
 *
 * @param level   importance of the report, 0 to 255: 2 error, 3 warning, 4 information, 11 debug
 * @param file    name of the reporting source file; NUL-terminated, not null
 * @param line    line of the report in that file
 * @param format  the message, as printf(3) takes it; NUL-terminated, not null
 * @param ...     the arguments of `format`
 *
 * Thread-safety: MT-Safe env locale. Except on a nearly full disk, each line is appended by one
 * write(2), so lines from several threads and processes do not mix.
 */
TESRA_API void tesra_trace(uint8_t level, const char *file, uint32_t line, const char *format, ...)
    TESRA_PRINTF(4, 5);

/** Flags of tesra_dump: where its lines go. */
#define TESRA_DUMP_LOG 0x01   /**< to the platform's log, at level 4 */
#define TESRA_DUMP_TRACE 0x02 /**< to the trace file, at level 4 */

/**
 * tesra_dump shows bytes in hexadecimal, sixteen to a line.
 *
 * Each line is "<label> <index>: ", with the index of its first byte in at least four upper-case
 * hexadecimal digits, followed by two digits and a blank for each byte. A line has at most 126
 * bytes; the rest of a longer one is dropped. Lines are whole with a label of up to 71 bytes, less
 * one for each digit of the index beyond four. With both flags, each line goes to the platform's
 * log first.
 *
 * @param flags   TESRA_DUMP_LOG, TESRA_DUMP_TRACE or both; other bits are ignored, and with neither
 *                no line goes anywhere
 * @param label   text at the start of every line, NUL-terminated; null is the empty text
 * @param buffer  the bytes; if null, an error is reported ("Invalid arguments") and nothing is
 *                shown
 * @param length  how many; if 0, a warning is reported ("Buffer length = 0!") and nothing is shown
 *
 * The file and line reported with each line are the library's, not the caller's: tell dumps apart
 * by their labels.
 *
 * Thread-safety: MT-Safe env locale. Lines of other callers may come between those of one dump.
 */
TESRA_API void tesra_dump(uint8_t flags, const char *label, const uint8_t *buffer, uint32_t length);

/*
 * Certificate chains
 *
 * A chain is PEM text that holds one or more X.509 certificates, numbered from 0 in the order of
 * the text. The functions verify nothing: no signature, issuer, date or trust.
 *
 * A certificate is a PEM block of the kind CERTIFICATE or X509 CERTIFICATE. Before it, blank lines,
 * other text and PEM blocks of other kinds, TRUSTED CERTIFICATE among them, are skipped; but
 * reading fails at a block that is empty or damaged. A block without an END line runs into the next
 * one: of two certificates joined in this way only the first is read, and the other is lost without
 * notice.
 *
 * The chain ends cleanly if nothing follows the END line of its last certificate, which may lack
 * its line break. Anything after the line break, such as a blank line or a NUL, is taken for the
 * start of another certificate, which cannot be read.
 *
 * A BEGIN or END line starts with its dashes. Blanks and control characters may follow its last
 * dashes: bytes up to 0x20, including NUL, so a chain that does not end in a line break may be
 * passed with its terminating NUL. Where char is signed, as on x86-64, bytes from 0x80 on may
 * follow them, too; on AArch64 a line with such bytes is neither a BEGIN nor an END line. A byte
 * order mark may precede a BEGIN line at the start of the chain and directly after another block.
 * libcrypto reads a line of more than 254 bytes, its line break included, in pieces of 254, each a
 * line of its own: one piece may be a BEGIN line, and the rest of a longer END line counts as text
 * after it.
 *
 * cert_len counts bytes. More than libcrypto's memory BIO holds, 1.5 GiB, is refused ("Write to BIO
 * failed, ret: -1"); 2^31 and more is refused with the same report, without being read.
 *
 * Cost: every call reads the chain from its start, so reading all n certificates by position
 * decodes about n*n/2. A call's time may grow with the square of cert_len, and with the square of
 * the length of a serial number: limit the length of untrusted chains. To read all certificates of
 * a long chain, pass each block separately, with index 0; the records are the same. PEM_read_bio(3)
 * on a BIO_new_mem_buf(3) of the chain reads block by block, and BIO_pending(3) says after each how
 * much is left.
 *
 * Pass phrases: for a certificate's PEM block with an encryption header, OpenSSL asks for a pass
 * phrase, on the process's terminal or, without one, on its standard input. To have such a block
 * refused, make a method by UI_create_method(3) whose opener, set by UI_method_set_opener(3),
 * returns 0, and pass it to UI_set_default_method(3) when the program starts.
 */

/**
 * tesra_get_cert_count counts the certificates of a chain.
 *
 * @param cert_chain  the chain
 * @param cert_len    its length in bytes
 * @return the number of certificates, at least 1; or 0 if `cert_chain` is null, `cert_len` is 0 or
 *         more than libcrypto takes, the chain holds no certificate, one of its certificates cannot
 *         be read, a PEM block of another kind is empty or damaged, the chain does not end cleanly,
 *         or memory is exhausted
 *
 * Thread-safety: MT-Safe env locale.
 */
TESRA_API uint32_t tesra_get_cert_count(const char *cert_chain, uint32_t cert_len);

/**
 * The details of one certificate, as NUL-terminated texts.
 *
 * In a record from tesra_get_cert_data every field is set. A name attribute that the certificate
 * lacks is an empty text; of an attribute that occurs several times, the first value is taken. A
 * value with an embedded NUL reads as a text that ends there. Times look like "Jun 15 12:30:45 2050
 * GMT", with two blanks before a day of one digit; a fraction may follow the seconds, as in
 * "10:10:10.25".
 *
 * Name texts are UTF-8, and are whatever the certificate's maker chose, including control
 * characters: escape them before showing them. The library reports them unescaped to the platform's
 * log. libcrypto reads names of up to 1 MiB in DER; a certificate with a longer one cannot be read.
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
 * tesra_get_cert_data returns the details of one certificate of a chain.
 *
 * All `cert_len` bytes are copied, so they must be readable; but unless `index` is -1, the text
 * after the wanted certificate is not parsed.
 *
 * @param cert_chain  the chain
 * @param cert_len    its length in bytes
 * @param index       position of the certificate, from 0; -1 is the last one of a chain that ends
 *                    cleanly
 * @return a new record, released with tesra_free_cert_data; or null if `cert_chain` is null,
 *         `cert_len` is 0 or more than libcrypto takes, the chain has no certificate at `index`,
 *         the certificate or one before it cannot be read, a PEM block of another kind before it is
 *         empty or damaged, one of the twelve name attributes is present but empty or cannot be
 *         converted to UTF-8, a time or the serial number cannot be converted, or memory is
 *         exhausted
 *
 * A missing name attribute is reported as an error, but the call does not fail.
 *
 * Thread-safety: MT-Safe env locale.
 */
TESRA_API tesra_cert_data *tesra_get_cert_data(const char *cert_chain, uint32_t cert_len,
                                               int index);

/**
 * tesra_free_cert_data releases a record from tesra_get_cert_data, with all its texts.
 *
 * @param data  the record, which must not be used again, nor any of its texts; null is reported as
 *              an error and otherwise ignored
 *
 * Null fields are skipped. A caller that replaces a field allocates the new text with malloc(3), or
 * with OPENSSL_malloc for `serial_number`, the one field that OpenSSL's allocator owns.
 *
 * Thread-safety: MT-Safe race:data env locale.
 */
TESRA_API void tesra_free_cert_data(tesra_cert_data *data);

/*
 * Base64 and hexadecimal
 *
 * Encoded texts end in a NUL that their lengths do not count. Decoders skip whitespace before and
 * after a text, as isspace(3) defines it in the calling thread's locale, and report it as a
 * warning. They refuse a text of whitespace alone.
 *
 * Lengths are reported as signed numbers, so 2^31 and more appear negative.
 */

/**
 * tesra_base64_encode turns bytes into Base64 text: the standard alphabet, padded with "=", on one
 * line without a line break.
 *
 * @param buffer      the bytes; not null
 * @param buffer_len  how many, from 1 to 2^31 - 1; libcrypto's memory BIO fails earlier, at 1.5 to
 *                    2 GiB of text
 * @param out         where the new text goes: 4 * ((buffer_len + 2) / 3) characters and a NUL,
 *                    released with free(3); not null
 * @return 0; or -1 if `buffer` or `out` is null, `buffer_len` is out of range, or memory is
 *         exhausted
 *
 * Thread-safety: MT-Safe env locale.
 */
TESRA_API int tesra_base64_encode(const uint8_t *buffer, size_t buffer_len, char **out);

/**
 * tesra_base64_decode turns Base64 text into bytes.
 *
 * Between the whitespace, the text must be one unbroken run of the standard alphabet and "=", with
 * a length that is a multiple of 4 and less than 2^31. Every "=" at its end is padding, however
 * many there are, so "====" and "A===" give no bytes at all; elsewhere "=" stands for six zero
 * bits. Leftover bits of the last character are ignored. Check the text first if that is too
 * lenient.
 *
 * @param src      the text
 * @param src_len  its length in bytes, whitespace included
 * @param dst_len  where the number of decoded bytes goes, 0 or more
 * @return a new block with the decoded bytes, released with free(3) even if there are none; or null
 *         if an argument is null, `src_len` is 0, the text is not as above, or memory is exhausted
 *
 * The block has 3 bytes for every 4 characters, so it is longer than `*dst_len` if the text is
 * padded. It has no terminating NUL.
 *
 * Thread-safety: MT-Safe env locale.
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
 * Thread-safety: MT-Safe env locale.
 */
TESRA_API char *tesra_hex_encode(const uint8_t *src, uint32_t src_len, uint32_t *dst_len);

/**
 * tesra_hex_decode turns hexadecimal text into bytes.
 *
 * Between the whitespace, the text is read in pairs of characters, each converted by sscanf(3) with
 * "%2hhx". Digits may be upper or lower case, and a pair needs only one: whitespace or a sign may
 * precede it ("-1" is FF), or any character may follow it ("1G" is 01). Only for an "x" after a "0"
 * does that depend on the C library: "0x1F" is 00 1F or is refused. Check the text first if that is
 * too lenient.
 *
 * @param src      the text
 * @param src_len  its length in bytes, whitespace included
 * @param dst_len  where the number of decoded bytes goes
 * @return a new block with the decoded bytes and a zero byte after them that `*dst_len` does not
 *         count, released with free(3); or null if an argument is null, `src_len` is 0, the text
 *         has an odd length, a pair cannot be converted, or memory is exhausted
 *
 * Thread-safety: MT-Safe env locale.
 */
TESRA_API uint8_t *tesra_hex_decode(const char *src, uint32_t src_len, uint32_t *dst_len);

#ifdef __cplusplus
}
#endif

#endif
