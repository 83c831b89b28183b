// The exported functions, by one table of calls: what each hands back and what it reports. Quick
// rows are also tried from several threads at once, and with allocations refused in turn.

#include "stand_ins.h"
#include "tesra_common.h"

#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <openssl/err.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>
#include <sstream>
#include <thread>
#include <utility>
#include <vector>

namespace {

template <class callable>
auto watched(callable call) {
    const heap_watch counted(true);
    return call();
}

// Bytes in a block of just their size, or null; their length, or another that the caller claims.
struct input {
    input(const std::string &content, size_t claimed)
        : original(content.begin(), content.end()), block(original), length(claimed),
          text(content.empty() ? "" : block.data()) {}
    input(const std::string &content) : input(content, content.size()) {}
    input(const char *content) : input(std::string(content)) {}
    input(std::nullptr_t, size_t claimed = 1) : length(claimed) {}
    ~input() {
        EXPECT_EQ(block, original) << "input is only read";
    }

    std::vector<char> original, block;
    size_t length;
    uint32_t length32 = static_cast<uint32_t>(length);
    const char *text = nullptr;
    const uint8_t *bytes = reinterpret_cast<const uint8_t *>(text);
};

// Ahead of UTC by hours and minutes, the same all year, and known without a file of time zones.
const int time_zone = (setenv("TZ", "XXX-5:30", 1), tzset(), 0);

enum given { NO_OUT, OUT, NO_FILE, A_FILE, NO_RECORD, CLEARED };
constexpr int OTHER_FLAGS = 0xFF & ~(TESRA_DUMP_LOG | TESRA_DUMP_TRACE);

std::string file(const std::string &name) {
    std::ifstream in(TESRA_TESTS "/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The calls: they take and return texts, and hold what they do to the rules.

std::string get_cert_count(const input &chain, given trace = A_FILE) {
    stand_in.trace_file_unwritable = trace == NO_FILE;
    return std::to_string(
        watched([&] { return tesra_get_cert_count(chain.text, chain.length32); }));
}

// The fifteen texts of the record, a "|" after each.
std::string get_cert_data(const input &chain, int index) {
    tesra_cert_data *data =
        watched([&] { return tesra_get_cert_data(chain.text, chain.length32, index); });
    if (data == nullptr) {
        return "null";
    }
    EXPECT_EQ(stand_in.pointer, reinterpret_cast<uintptr_t>(data));
    std::string texts;
    for (const char *text : reinterpret_cast<char *const(&)[15]>(*data)) {
        texts += std::string(text) + '|';
    }
    watched([&] { tesra_free_cert_data(data); });
    EXPECT_EQ(stand_in.pointer, reinterpret_cast<uintptr_t>(data));
    return texts;
}

std::string free_cert_data(given record) {
    heap.last_refused = 0; // the record is the caller's
    watched([=] {
        void *data = record == CLEARED ? calloc(1, sizeof(tesra_cert_data)) : nullptr;
        tesra_free_cert_data(static_cast<tesra_cert_data *>(data));
    });
    EXPECT_EQ(heap.nulls_released, 0) << "fields that are not set are released";
    return "";
}

template <class codec, class type>
std::string run(codec call, const type *in, uint32_t length, given out, bool terminated) {
    uint32_t out_length = 4711;
    auto *block = watched([&] { return call(in, length, out == OUT ? &out_length : nullptr); });
    EXPECT_EQ(out_length == 4711, block == nullptr);
    if (block == nullptr) {
        return "null";
    }
    EXPECT_TRUE(!terminated || block[out_length] == 0);
    const std::string result(block, block + out_length);
    watched([&] { free(block); });
    return result;
}

std::string base64_encode(const input &in, given out = OUT) {
    char untouched[] = "null";
    char *text = untouched;
    const int status = watched(
        [&] { return tesra_base64_encode(in.bytes, in.length, out == OUT ? &text : nullptr); });
    EXPECT_EQ(status, text == untouched ? -1 : 0);
    const std::string result = text;
    watched([&] { free(text == untouched ? nullptr : text); });
    return result;
}

std::string base64_decode(const input &in, given out = OUT) {
    return run(tesra_base64_decode, in.text, in.length32, out, false);
}

std::string hex_encode(const input &in, given out = OUT) {
    return run(tesra_hex_encode, in.bytes, in.length32, out, true);
}

std::string hex_decode(const input &in, given out = OUT) {
    return run(tesra_hex_decode, in.text, in.length32, out, true);
}

std::string dump(int flags, const char *label, const input &in) {
    watched([&] { tesra_dump(static_cast<uint8_t>(flags), label, in.bytes, in.length32); });
    return "";
}

// The whole line of the trace file.
std::string trace(timeval now, int level, const std::string &file, uint32_t line,
                  const char *format, const std::string &argument = "") {
    stand_in.clock = now;
    errno = EPERM;
    watched([&] {
        // Called like this, the compiler does not ask for a literal format.
        void (*const call)(uint8_t, const char *, uint32_t, const char *, ...) = tesra_trace;
        call(static_cast<uint8_t>(level), file.c_str(), line, format, argument.c_str());
    });
    EXPECT_EQ(errno, EPERM);
    reported();
    return std::exchange(stand_in.trace_line, "");
}

// What is reported of a record on its way out, and of its release.
std::string parsed(const std::string &index, const std::string &texts) {
    std::istringstream titles("Serial number|Valid from|Valid to|Issuer country|Issuer state|"
                              "Issuer locality|Issuer org|Issuer org unit|Issuer common name|"
                              "Subject country|Subject state|Subject locality|Subject org|"
                              "Subject org unit|Subject common name");
    std::istringstream values(texts);
    std::string reports = "4 Parsed certificate at index " + index + ", ret addr [PTR]\n";
    for (std::string title, value; getline(titles, title, '|') && getline(values, value, '|');) {
        reports += "4 Cert[" + index + "]: " + title + " [" + value + "]\n";
    }
    return reports + "11 Entry [tesra_free_cert_data]\n4 Free cert data [PTR]";
}

struct row {
    template <class... texts>
    row(const std::string &name, std::function<std::string()> make, const std::string &entry,
        const std::string &expected, const texts &...list)
        : call(name), result(expected), reports(entry), run(std::move(make)) {
        (..., (reports += std::string(list) + '\n'));
    }
    std::string call, result, reports; // each on a line
    std::function<std::string()> run;
};

// A call as it is printed, as it is made, and its first report. Those that write lines have none.
#define CALL(function, ...) LINES(function, __VA_ARGS__) "11 Entry [tesra_" #function "]\n"
#define LINES(function, ...)                                                                       \
#function "(" #__VA_ARGS__ ")", [=] { return function(__VA_ARGS__); }, ""

const std::string walk = "11 Entry [tesra_get_cert_from_chain]";

std::vector<row> quick_rows() {
    const std::string odd = file("records/odd-texts.pem"); // each type of string, any length
    const std::string odd_texts = std::string(150, '9') +
                                  "|Jan  1 00:00:00 2024 GMT|Jun 15 12:30:45 2050 GMT|" +
                                  "A|B|C|first|E|F|DE|Bü|Lü|" + std::string(3000, 'x') + "|😀|cut|";
    const std::string no_names = file("records/no-names.pem");
    const std::string no_texts =
        "-129|Dec 31 23:59:59 1999 GMT|Oct 10 10:10:10.25 2050 GMT|||||||||||||";
    const std::string no_name = "2 Entry not found for NID:14\n2 Entry not found for NID:16\n"
                                "2 Entry not found for NID:15\n2 Entry not found for NID:17\n"
                                "2 Entry not found for NID:18\n2 Entry not found for NID:13";
    const std::string released = "11 Entry [tesra_free_cert_data]\n4 Free cert data [PTR]";
    const std::string bad_times = file("records/bad-times.pem"); // of the first one, the start
    const std::string x600 = "%d" + std::string(598, 'x');
    const std::string process = "[" + std::to_string(getpid()) + "]";
    const std::string bytes = "\1\xFE@ABCDEFGHIJKLMN";
    const std::string sixteen = "01 FE 40 41 42 43 44 45 46 47 48 49 4A 4B 4C 4D ";

    std::vector<row> rows = {
        {LINES(trace, {1767205799, 999999}, 255, "probe", UINT32_MAX, "no line break, 100%%"),
         "2025-12-31T23:59:59.999999 L255 " + process + " probe:4294967295:no line break, 100%"},
        // A year beyond every calendar. The message asks for the errno that the caller left.
        {LINES(trace, {INT64_MAX, 7}, 11, "probe", 0, "%m\n"),
         "1900-01-00T00:00:00.000007 L11 " + process + " probe:0:Operation not permitted\n"},
        {LINES(trace, {0, 0}, 2, x600, 1, "%s", x600),
         ("1970-01-01T05:30:00.000000 L2 " + process + ' ' + x600).substr(0, 511)},

        {LINES(dump, TESRA_DUMP_TRACE, nullptr, bytes), "", "trace 4  0000: " + sixteen,
         "trace 4  0010: 4E "},
        {LINES(dump, TESRA_DUMP_LOG | TESRA_DUMP_TRACE, x600.c_str(), bytes.substr(0, 16)), "",
         "4 " + x600.substr(0, 126), "trace 4 " + x600.substr(0, 126)},
        {LINES(dump, OTHER_FLAGS, "a", bytes), ""},
        {LINES(dump, 0, "a", ""), "", "3 Buffer length = 0!"},
        {LINES(dump, 0, "a", {nullptr, 0}), "", "2 Invalid arguments"},

        {CALL(get_cert_count, {nullptr, 0}), "0", "2 Invalid arguments"},
        {CALL(get_cert_count, nullptr, NO_FILE), "0", "2 Invalid arguments", "(platform log only)"},
        {CALL(get_cert_count, ""), "0", "3 Cert length is 0!"},
        {CALL(get_cert_count, {odd, 2147483648}), "0", walk, "2 Write to BIO failed, ret: -1",
         "2 Failed to get cert count"},
        {CALL(get_cert_data, nullptr, 0), "null", "2 Invalid arguments"},
        {CALL(get_cert_data, "", 0), "null", "2 Invalid arguments"},
        {CALL(get_cert_data, odd, -2), "null", walk, "2 Invalid cert at index -2"},
        {CALL(get_cert_data, odd, -1), odd_texts, walk, parsed("-1", odd_texts)},
        {CALL(get_cert_data, no_names, 0), no_texts, walk, no_name, no_name, parsed("0", no_texts)},
        {CALL(get_cert_data, bad_times, 1), "null", walk,
         "2 Failed to convert ASN.1 time to string", "2 Failed to convert not_after time",
         "2 Failed to get validity range", released, "2 Failed to parse cert at index 1"},
        {CALL(free_cert_data, NO_RECORD), "", "2 Invalid arguments"},
        {CALL(free_cert_data, CLEARED), "", "4 Free cert data [PTR]"},

        {CALL(base64_encode, nullptr), "null", "2 [tesra_base64_encode]: buffer is NULL!\n"},
        {CALL(base64_encode, "A", NO_OUT), "null", "2 Invalid arguments"},
        {CALL(base64_encode, ""), "null", "2 [tesra_base64_encode]: BIO_write failed!\n"},
        {CALL(base64_encode, {"A", 4294967297}), "null",
         "2 [tesra_base64_encode]: BIO_write failed!\n"},
        {CALL(base64_encode, "\xFB\xEF\xBF\xFF"), "+++//w=="},

        {CALL(base64_decode, nullptr), "null", "2 Invalid arguments"},
        {CALL(base64_decode, "QUJD", NO_OUT), "null", "2 Invalid arguments"},
        {CALL(base64_decode, ""), "null", "2 Invalid arguments"},
        {CALL(base64_decode, "\v\f"), "null", "11 Decode from base64 string, src_len = 2",
         "3 Removed 2 leading whitespaces", "2 Invalid base64 string"},
        {CALL(base64_decode, "  QUI=\v\r\n"), "AB", "11 Decode from base64 string, src_len = 9",
         "3 Removed 2 leading whitespaces", "3 Removed 3 trailing whitespaces",
         "11 Decoded to binary data, dst_len = 2"},
        {CALL(base64_decode, "===="), "", "11 Decode from base64 string, src_len = 4",
         "11 Decoded to binary data, dst_len = 0"},
        {CALL(base64_decode, "QU\nD"), "null", "11 Decode from base64 string, src_len = 4",
         "2 EVP_DecodeBlock failed, ret = -1"},
        {CALL(base64_decode, "QUJD----"), "null", "11 Decode from base64 string, src_len = 8",
         "2 EVP_DecodeBlock failed, ret = 3"},

        {CALL(hex_encode, nullptr), "null", "2 Invalid arguments"},
        {CALL(hex_encode, "A", NO_OUT), "null", "2 Invalid arguments"},
        {CALL(hex_encode, ""), "null", "2 Invalid arguments"},
        {CALL(hex_encode, {"A", 2147483648}), "null", "2 Invalid arguments"},
        {CALL(hex_encode, "\n\x7F\xAB\xFF"), "0A7FABFF", "11 Encoded to hex string, dst_len = 8"},

        {CALL(hex_decode, nullptr), "null", "2 Invalid arguments"},
        {CALL(hex_decode, "41", NO_OUT), "null", "2 Invalid arguments"},
        {CALL(hex_decode, ""), "null", "2 Invalid arguments"},
        {CALL(hex_decode, "\v\f"), "null", "11 Decode from hex string, src_len = 2",
         "3 Removed 2 leading whitespaces", "2 Invalid hex string size (0)!"},
        {CALL(hex_decode, "  aB1G-1\n"), "\xAB\1\xFF", "11 Decode from hex string, src_len = 9",
         "3 Removed 2 leading whitespaces", "3 Removed 1 trailing whitespaces",
         "11 Decoded to binary data, dst_len = 3"},
        {CALL(hex_decode, "ABC"), "null", "11 Decode from hex string, src_len = 3",
         "2 Invalid hex string size (3)!"},
        {CALL(hex_decode, "G0"), "null", "11 Decode from hex string, src_len = 2",
         "2 Decode failed at idx = 0, ret = 0"},
        {CALL(hex_decode, "0A  1B"), "null", "11 Decode from hex string, src_len = 6",
         "2 Decode failed at idx = 2, ret = -1"},
    };

    // Each certificate of the file has one attribute that is empty. That of the first certificate
    // cannot be converted; the others that it lacks would be reported if reading went on.
    std::string empty = file("records/empty-attributes.pem"), length = "-1";
    const std::pair<int, const char *> names[] = {{14, "country"},  {16, "state"},
                                                  {15, "locality"}, {17, "org"},
                                                  {18, "org unit"}, {13, "common"}};
    for (const std::string side : {"issuer", "subject"}) {
        for (const auto &[nid, name] : names) {
            rows.emplace_back(CALL(get_cert_data, empty, 0), "null", walk,
                              "2 Invalid entry length(" + std::exchange(length, "0") +
                                  ") for NID:" + std::to_string(nid),
                              "2 Failed to get " + side + ' ' + name + " name",
                              "2 Failed to get " + side + " details", released,
                              "2 Failed to parse cert at index 0");
            empty.erase(0, empty.find("-----BEGIN", 1));
        }
    }
    return rows;
}

// After 4096 lines, each of 59 characters with its level and its line break.
std::string last_line_dumped(const input &in) {
    return dump(TESRA_DUMP_LOG, "x", in), reported().substr(4096 * 59);
}

// The subject's common name alone, which is the certificate's position; its reports go unseen.
std::string subject(const std::string &chain, int index) {
    const std::string texts = get_cert_data(chain, index);
    reported();
    return texts.substr(texts.rfind('|', texts.size() - 2) + 1);
}

// What takes longer: lengths beyond 16 bits, and the chains, whose names say what they are. The
// file good-3-... holds three certificates and ends cleanly; bad-2-... fails after two.
std::vector<row> slow_rows() {
    const std::string zeros(65538, '\0'), hex(131076, '0'), base64(87384, 'A'), blanks(65537, ' ');
    std::vector<row> rows;
    rows.emplace_back(LINES(last_line_dumped, zeros), "4 x 10000: 00 00 \n");
    rows.emplace_back(CALL(base64_decode, blanks + base64 + blanks), zeros,
                      "11 Decode from base64 string, src_len = 218458",
                      "3 Removed 65537 leading whitespaces", "3 Removed 65537 trailing whitespaces",
                      "11 Decoded to binary data, dst_len = 65538");
    rows.emplace_back(CALL(hex_encode, zeros), hex, "11 Encoded to hex string, dst_len = 131076");
    for (const auto &entry : std::filesystem::directory_iterator(TESRA_TESTS "/chains")) {
        const std::string name = entry.path().filename(), chain = file("chains/" + name);
        const bool good = name.starts_with("good-");
        const int readable = std::stoi(name.substr(name.find('-') + 1));
        const std::string end = std::to_string(readable);
        const std::string bad = "2 Failed to get cert at index " + end + '\n';
        rows.emplace_back(name + ": " CALL(get_cert_count, chain), good ? end : "0", walk,
                          good ? "4 Cert chain contain " + end + " certs"
                               : bad + "2 Failed to get cert count");
        rows.emplace_back(name + ": " CALL(get_cert_data, chain, readable), "null", walk,
                          good ? "2 Invalid cert at index " + end
                               : bad + "2 Failed to get cert for index " + end);
        for (const int index : {0, readable / 2, readable - 1, -1}) {
            const int found = index != -1 ? index : good ? readable - 1 : readable;
            rows.emplace_back(name + ": " LINES(subject, chain, index),
                              found < readable ? std::to_string(found) + '|' : "null");
        }
    }
    return rows;
}

struct outcome {
    std::string result, reports;
    long allocations;
    bool clean; // nothing is left behind
};

// Makes a row's call, with the allocations from the first to the last given refused.
outcome attempt(const row &row, long first_refused = 0, long last_refused = 0) {
    // The error queue is the caller's: it is there before the call, with an entry of its own.
    OPENSSL_thread_stop();
    heap = {};
    watched([] { ERR_raise(ERR_LIB_USER, 1); });
    EXPECT_TRUE(heap.asked == 0 || heap.libcrypto_blocks > 0) << "libcrypto is not counted apart";
    heap = {first_refused, last_refused, 0, heap.c_blocks, heap.libcrypto_blocks, 0, false};
    outcome seen = {row.run(), reported(), heap.asked, false};
    heap.last_refused = 0;
    EXPECT_TRUE(last_refused != 0 || ERR_GET_LIB(ERR_peek_error()) == ERR_LIB_USER) << "queue";
    watched([] { OPENSSL_thread_stop(); });
    seen.clean = heap.asked == 0 || (heap.c_blocks == 0 && heap.libcrypto_blocks == 0);
    return seen;
}

void expect_all(const std::vector<row> &rows) {
    for (const row &row : rows) {
        SCOPED_TRACE(row.call);
        const outcome seen = attempt(row);
        EXPECT_EQ(seen.result, row.result);
        EXPECT_EQ(seen.reports, row.reports);
        // libcrypto keeps some of what it allocates, once. A leak happens each time.
        EXPECT_TRUE(seen.clean || attempt(row).clean) << "leaves memory behind";
        EXPECT_TRUE(!row.call.starts_with("dump") || seen.allocations == 0) << "a report allocates";
    }
}

TEST(calls, hand_back_and_report_what_the_table_and_the_names_of_chains_say) {
    expect_all(quick_rows());
    expect_all(slow_rows());
}

TEST(calls, do_so_in_threads_at_once) {
    std::vector<std::jthread> threads;
    for (int each = 0; each < 4; ++each) {
        threads.emplace_back([] {
            for (int round = 0; round < 20 && !HasFailure(); ++round) {
                expect_all(quick_rows());
            }
        });
    }
}

#ifdef TESRA_HEAP_STAND_IN
// With memory refused a call gives its usual result or fails, and then its own report comes last.
TEST(calls, fail_cleanly_wherever_memory_runs_out) {
    const std::regex last_report(
        "\n(2 [^\n]*\n2 Failed to get cert (count|for index)|2 Failed to parse cert at index|"
        "2 Allocation failed|2 \\[tesra_base64_encode\\])[^\n]*\n+$");
    long asked = 0;
    for (const row &row : quick_rows()) {
        asked = attempt(row).allocations;
        // What comes after the twentieth and before the last of them reads the certificate.
        for (long first = 1; first <= asked && !HasFailure();
             first = first == 20 ? std::max(21L, asked - 180) : first + 1) {
            for (const long last : {first, INT64_MAX}) {
                SCOPED_TRACE(row.call + ", allocation " + std::to_string(first));
                const outcome seen = attempt(row, first, last);
                EXPECT_TRUE(seen.clean || attempt(row, first, last).clean) << "a leak";
                if (seen.result != row.result || seen.reports != row.reports) {
                    EXPECT_TRUE(seen.result == "null" || seen.result == "0") << seen.result;
                    EXPECT_TRUE(std::regex_search(seen.reports, last_report)) << seen.reports;
                    EXPECT_EQ(seen.reports.find("(platform log only)"), std::string::npos);
                }
            }
        }
    }
    EXPECT_GT(asked, 0) << "the allocators are not taken over";
}
#endif

} // namespace
