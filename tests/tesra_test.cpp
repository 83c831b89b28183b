// The exported functions, by one table of calls: what each hands back and what it reports. Every
// row is also tried from several threads at once, and with every allocation refused in turn.

#include "sinks.h"
#include "tesra_common.h"

#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <openssl/err.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <numeric>
#include <regex>
#include <sstream>
#include <thread>
#include <vector>

namespace {

template <class callable>
auto watched(callable call) {
    const watching memory(true);
    return call();
}

// Bytes in a block of just their size; null, which counts as one byte; or a length that is a lie.
struct input {
    input(const std::string &content, size_t told)
        : original(content), block(new char[content.size()]), length(told), text(block.get()) {
        content.copy(block.get(), content.size());
    }
    input(const std::string &content) : input(content, content.size()) {}
    input(const char *content) : input(std::string(content)) {}
    input(std::nullptr_t, size_t told = 1) : length(told) {}
    ~input() {
        EXPECT_TRUE(std::equal(original.begin(), original.end(), text)) << "input is only read";
    }

    std::string original;
    std::unique_ptr<char[]> block;
    size_t length;
    const char *text = nullptr;
    const uint8_t *bytes = reinterpret_cast<const uint8_t *>(text);
};

const int zone = setenv("TZ", "XXX-5:30", 1);

enum out_parameter { NO_OUT, OUT };

std::string file(const std::string &name) {
    std::ifstream in(TESRA_TESTS "/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The calls: they take and return texts, and hold what they do to the rules.

std::string get_cert_count(const input &chain) {
    const auto length = static_cast<uint32_t>(chain.length);
    return std::to_string(watched([&] { return tesra_get_cert_count(chain.text, length); }));
}

// The fifteen texts of the record, a "|" behind each.
std::string get_cert_data(const input &chain, int index) {
    const auto length = static_cast<uint32_t>(chain.length);
    tesra_cert_data *data = watched([&] { return tesra_get_cert_data(chain.text, length, index); });
    if (data == nullptr) {
        return "null";
    }
    EXPECT_EQ(taken.pointer, reinterpret_cast<uintptr_t>(data));
    std::string texts;
    for (const char *text : reinterpret_cast<char *const(&)[15]>(*data)) {
        texts += std::string(text) + '|';
    }
    watched([&] { tesra_free_cert_data(data); });
    EXPECT_EQ(taken.pointer, reinterpret_cast<uintptr_t>(data));
    return texts;
}

std::string free_cert_data() {
    watched([] { tesra_free_cert_data(nullptr); });
    return "";
}

template <class coder, class type>
std::string coded(coder code, const type *in, size_t length, out_parameter out, bool terminated) {
    uint32_t told = 4711;
    const auto length32 = static_cast<uint32_t>(length);
    auto *block = watched([&] { return code(in, length32, out == OUT ? &told : nullptr); });
    EXPECT_EQ(told == 4711, block == nullptr);
    if (block == nullptr) {
        return "null";
    }
    EXPECT_TRUE(!terminated || block[told] == 0);
    const std::string result(block, block + told);
    watched([&] { free(block); });
    return result;
}

std::string base64_encode(const input &in, out_parameter out = OUT) {
    char untouched[] = "null";
    char *text = untouched;
    const int status = watched(
        [&] { return tesra_base64_encode(in.bytes, in.length, out == OUT ? &text : nullptr); });
    EXPECT_EQ(status, text == untouched ? -1 : 0);
    const std::string result = text;
    watched([&] { free(text == untouched ? nullptr : text); });
    return result;
}

std::string base64_decode(const input &in, out_parameter out = OUT) {
    return coded(tesra_base64_decode, in.text, in.length, out, false);
}

std::string hex_encode(const input &in, out_parameter out = OUT) {
    return coded(tesra_hex_encode, in.bytes, in.length, out, true);
}

std::string hex_decode(const input &in, out_parameter out = OUT) {
    return coded(tesra_hex_decode, in.text, in.length, out, true);
}

std::string dump(int flags, const char *label, const input &in) {
    const auto length = static_cast<uint32_t>(in.length);
    watched([&] { tesra_dump(static_cast<uint8_t>(flags), label, in.bytes, length); });
    return "";
}

// The whole line of the trace file, but for the process.
std::string trace(timeval now, int level, const std::string &file, uint32_t line,
                  const char *format, const std::string &argument = "") {
    taken.now = now;
    taken.line.clear();
    errno = EPERM;
    watched([&] {
        // Called like this, the compiler does not ask for a literal format.
        void (*const call)(uint8_t, const char *, uint32_t, const char *, ...) = tesra_trace;
        call(static_cast<uint8_t>(level), file.c_str(), line, format, argument.c_str());
    });
    EXPECT_EQ(errno, EPERM);
    taken.now = {};
    reported();
    const std::string process = "[" + std::to_string(getpid()) + "]";
    const size_t at = taken.line.find(process);
    return at == std::string::npos ? taken.line : taken.line.replace(at, process.size(), "[PID]");
}

// What is reported of a record on its way out, and of its release.
std::string parsed(const std::string &index, const std::string &texts) {
    std::istringstream titles("Serial number|Valid from|Valid to|Issuer country|Issuer state|"
                              "Issuer locality|Issuer org|Issuer org unit|Issuer common name|"
                              "Subject country|Subject state|Subject locality|Subject org|"
                              "Subject org unit|Subject common name");
    std::istringstream values(texts);
    std::string reports = "4 Parsed certificate at index " + index + ", ret addr [PTR]|";
    for (std::string title, value; getline(titles, title, '|') && getline(values, value, '|');) {
        reports += "4 Cert[" + index + "]: " + title + " [" + value + "]|";
    }
    return reports + "11 Entry [tesra_free_cert_data]|4 Free cert data [PTR]";
}

struct row {
    std::string call;
    std::function<std::string()> run;
    std::string result;
    std::string reports; // behind the entry report
};

// A call as it is printed, and as it is made.
#define CALL(...) #__VA_ARGS__, [=] { return __VA_ARGS__; }

std::vector<row> rows() {
    const std::string walk = "11 Entry [tesra_get_cert_from_chain]|";
    const std::string one = file("chains/good-1-one.pem");
    const std::string odd = file("records/odd-texts.pem"); // each type of string, any length
    const std::string odd_texts = std::string(150, '9') +
                                  "|Jan  1 00:00:00 2024 GMT|Jun 15 12:30:45 2050 GMT|" +
                                  "A|B|C|first|E|F|DE|Bü|Lü|" + std::string(3000, 'x') + "|😀|cut|";
    const std::string no_names = file("records/no-names.pem");
    const std::string no_texts =
        "-129|Dec 31 23:59:59 1999 GMT|Oct 10 10:10:10.25 2050 GMT|||||||||||||";
    const std::string no_name = "2 Entry not found for NID:14|2 Entry not found for NID:16|"
                                "2 Entry not found for NID:15|2 Entry not found for NID:17|"
                                "2 Entry not found for NID:18|2 Entry not found for NID:13|";
    const std::string bad_time =
        "2 Failed to convert ASN.1 time to string|2 Failed to convert not_";
    const std::string no_range = " time|2 Failed to get validity range|"
                                 "11 Entry [tesra_free_cert_data]|4 Free cert data [PTR]|";
    const std::string unusable = file("records/unusable-fields.pem");
    const std::string x80(80, 'x'), x600(600, 'x'), blanks(300, ' ');
    const size_t most = 511 + strlen("PID") - std::to_string(getpid()).size(); // in a trace line
    std::string bytes(20, '\0');
    std::iota(bytes.begin(), bytes.end(), '\0'); // their indexes
    const std::string sixteen = "00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F ";
    std::string x600_in_hex;
    while (x600_in_hex.size() < 1200) {
        x600_in_hex += "78";
    }
    const std::string from64 = "11 Decode from base64 string, src_len = ";
    const std::string from_hex = "11 Decode from hex string, src_len = ";
    const std::string decoded = "|11 Decoded to binary data, dst_len = ";
    const std::string leading2 = "|3 Removed 2 leading whitespaces";

    return {
        {CALL(trace({1772699829, 4512}, 2, "probe", 120, "Timeout after %s ms\n", "500")),
         "2026-03-05T14:07:09.004512 L2 [PID] probe:120:Timeout after 500 ms\n", ""},
        {CALL(trace({1767205799, 999999}, 255, "probe", UINT32_MAX, "no line break, 100%%")),
         "2025-12-31T23:59:59.999999 L255 [PID] probe:4294967295:no line break, 100%", ""},
        // A year beyond every calendar. The message asks for the errno that the caller left.
        {CALL(trace({INT64_MAX, 7}, 11, "probe", 0, "%m\n")),
         "1900-01-00T00:00:00.000007 L11 [PID] probe:0:Operation not permitted\n", ""},
        {CALL(trace({0, 0}, 2, "f", 1, "%s", x600)),
         ("1970-01-01T05:30:00.000000 L2 [PID] f:1:" + x600).substr(0, most), ""},
        {CALL(trace({0, 0}, 2, x600, 1, "%s", x600)),
         ("1970-01-01T05:30:00.000000 L2 [PID] " + x600).substr(0, most), ""},

        {CALL(dump(253, "a", bytes.substr(0, 1))), "", "4 a 0000: 00 "},
        {CALL(dump(2, nullptr, bytes.substr(0, 17))), "",
         "trace 4  0000: " + sixteen + "|trace 4  0010: 10 "},
        {CALL(dump(3, "%d", bytes.substr(0, 16))), "",
         "4 %d 0000: " + sixteen + "|trace 4 %d 0000: " + sixteen},
        {CALL(dump(252, "a", bytes.substr(0, 17))), "", ""},
        {CALL(dump(0, "a", "")), "", "3 Buffer length = 0!"},
        {CALL(dump(0, "a", {nullptr, 0})), "", "2 Invalid arguments"},
        {CALL(dump(1, x80.c_str(), bytes)), "",
         "4 " + (x80 + " 0000: " + sixteen).substr(0, 126) + "|4 " + x80 + " 0010: 10 11 12 13 "},
        {CALL(dump(1, x600.c_str(), "AB")), "", "4 " + x600.substr(0, 126)},

        {CALL(get_cert_count({nullptr, 0})), "0", "2 Invalid arguments"},
        {CALL(get_cert_count("")), "0", "3 Cert length is 0!"},
        {CALL(get_cert_count({one, 2147483648})), "0",
         walk + "2 Write to BIO failed, ret: -1|2 Failed to get cert count"},
        {CALL(get_cert_count(one)), "1", walk + "4 Cert chain contain 1 certs"},
        {CALL(get_cert_count(one + "\n")), "0",
         walk + "2 Failed to get cert at index 1|2 Failed to get cert count"},
        {CALL(get_cert_data(nullptr, 0)), "null", "2 Invalid arguments"},
        {CALL(get_cert_data("", 0)), "null", "2 Invalid arguments"},
        {CALL(get_cert_data(one, 1)), "null", walk + "2 Invalid cert at index 1"},
        {CALL(get_cert_data(one, -2)), "null", walk + "2 Invalid cert at index -2"},
        {CALL(get_cert_data(odd, -1)), odd_texts, walk + parsed("-1", odd_texts)},
        {CALL(get_cert_data(no_names, 0)), no_texts,
         walk + no_name + no_name + parsed("0", no_texts)},
        {CALL(get_cert_data(unusable, 0)), "null",
         walk + bad_time + "before" + no_range + "2 Failed to parse cert at index 0"},
        {CALL(get_cert_data(unusable, 1)), "null",
         walk + bad_time + "after" + no_range + "2 Failed to parse cert at index 1"},
        {CALL(free_cert_data()), "", "2 Invalid arguments"},

        {CALL(base64_encode(nullptr)), "null", "2 [tesra_base64_encode]: buffer is NULL!\n"},
        {CALL(base64_encode("A", NO_OUT)), "null", "2 Invalid arguments"},
        {CALL(base64_encode("")), "null", "2 [tesra_base64_encode]: BIO_write failed!\n"},
        {CALL(base64_encode({"A", 4294967297})), "null",
         "2 [tesra_base64_encode]: BIO_write failed!\n"},
        {CALL(base64_encode("\xFB\xEF\xBF\xFF")), "+++//w==", ""},
        {CALL(base64_encode(std::string(600, '\0'))), std::string(800, 'A'), ""},

        {CALL(base64_decode(nullptr)), "null", "2 Invalid arguments"},
        {CALL(base64_decode("QUJD", NO_OUT)), "null", "2 Invalid arguments"},
        {CALL(base64_decode("")), "null", "2 Invalid arguments"},
        {CALL(base64_decode("\v\f")), "null", from64 + "2" + leading2 + "|2 Invalid base64 string"},
        {CALL(base64_decode("  QUI=\v\r\n")), "AB",
         from64 + "9" + leading2 + "|3 Removed 3 trailing whitespaces" + decoded + "2"},
        {CALL(base64_decode("++++Q===")), "\xFB\xEF\xBE", from64 + "8" + decoded + "3"},
        {CALL(base64_decode("====")), "", from64 + "4" + decoded + "0"},
        {CALL(base64_decode(blanks + std::string(800, 'A') + blanks)), std::string(600, '\0'),
         from64 + "1400|3 Removed 300 leading whitespaces|3 Removed 300 trailing whitespaces" +
             decoded + "600"},
        {CALL(base64_decode("QUJ")), "null", from64 + "3|2 EVP_DecodeBlock failed, ret = -1"},
        {CALL(base64_decode("QU\nD")), "null", from64 + "4|2 EVP_DecodeBlock failed, ret = -1"},
        {CALL(base64_decode("QUJD----")), "null", from64 + "8|2 EVP_DecodeBlock failed, ret = 3"},

        {CALL(hex_encode(nullptr)), "null", "2 Invalid arguments"},
        {CALL(hex_encode("A", NO_OUT)), "null", "2 Invalid arguments"},
        {CALL(hex_encode("")), "null", "2 Invalid arguments"},
        {CALL(hex_encode({"A", 2147483648})), "null", "2 Invalid arguments"},
        {CALL(hex_encode("\n\x7F\xAB\xFF")), "0A7FABFF", "11 Encoded to hex string, dst_len = 8"},
        {CALL(hex_encode(x600)), x600_in_hex, "11 Encoded to hex string, dst_len = 1200"},

        {CALL(hex_decode(nullptr)), "null", "2 Invalid arguments"},
        {CALL(hex_decode("41", NO_OUT)), "null", "2 Invalid arguments"},
        {CALL(hex_decode("")), "null", "2 Invalid arguments"},
        {CALL(hex_decode("\v\f")), "null",
         from_hex + "2" + leading2 + "|2 Invalid hex string size (0)!"},
        {CALL(hex_decode(x600_in_hex)), x600, from_hex + "1200" + decoded + "600"},
        {CALL(hex_decode("  aB1G-1\n")), "\xAB\1\xFF",
         from_hex + "9" + leading2 + "|3 Removed 1 trailing whitespaces" + decoded + "3"},
        {CALL(hex_decode("ABC")), "null", from_hex + "3|2 Invalid hex string size (3)!"},
        {CALL(hex_decode("G0")), "null", from_hex + "2|2 Decode failed at idx = 0, ret = 0"},
        {CALL(hex_decode("0A  1B")), "null", from_hex + "6|2 Decode failed at idx = 2, ret = -1"},
    };
}

// Every function but the two that write lines tells of its entry, whatever it is given.
std::string with_entry(const row &row) {
    if (row.call.starts_with("trace") || row.call.starts_with("dump")) {
        return row.reports;
    }
    const std::string name = row.call.substr(0, row.call.find('('));
    return "11 Entry [tesra_" + name + ']' + (row.reports.empty() ? "" : "|") + row.reports;
}

struct outcome {
    std::string result;
    std::string reports;
    long asked; // allocations
    bool clean; // nothing is left behind
};

// Makes a row's call, with the allocations from the first to the last given refused.
outcome attempt(const row &row, long first, long last) {
    // The error queue is the caller's: it is there before the call, with an entry of its own.
    OPENSSL_thread_stop();
    heap = {};
    watched([] { ERR_raise(ERR_LIB_USER, 1); });
    EXPECT_TRUE(heap.asked == 0 || heap.libcrypto_blocks > 0) << "libcrypto is not counted apart";
    heap = {first, last, 0, heap.c_blocks, heap.libcrypto_blocks};
    outcome seen = {row.run(), reported(), heap.asked, false};
    heap.last_refused = 0;
    EXPECT_TRUE(first != 0 || ERR_GET_LIB(ERR_peek_error()) == ERR_LIB_USER) << "error queue";
    watched([] { OPENSSL_thread_stop(); });
    seen.clean = heap.c_blocks == 0 && heap.libcrypto_blocks == 0;
    return seen;
}

void expect_all_rows() {
    reported();
    for (const row &row : rows()) {
        SCOPED_TRACE(row.call);
        attempt(row, 0, 0); // libcrypto keeps some of what it allocates the first time
        const outcome seen = attempt(row, 0, 0);
        EXPECT_EQ(seen.result, row.result);
        EXPECT_EQ(seen.reports, with_entry(row));
        EXPECT_TRUE(seen.clean) << "leaves memory behind";
        EXPECT_TRUE(!row.call.starts_with("dump") || seen.asked == 0) << "a report allocates";
    }
}

TEST(calls, hand_back_and_report_what_the_table_says) {
    expect_all_rows();
}

TEST(calls, do_so_in_threads_at_once) {
    std::vector<std::jthread> threads;
    for (int each = 0; each < 4; ++each) {
        threads.emplace_back(expect_all_rows);
    }
}

#ifdef TESRA_TAKE_MEMORY
// Refused memory, a call does what it does otherwise or fails. The last word is then its own.
TEST(calls, fail_cleanly_wherever_memory_runs_out) {
    const std::regex last_report(
        "\\|(2 [^|]*\\|2 Failed to get cert (count|for index)|2 Failed to parse cert at index|"
        "2 Allocation failed|2 \\[tesra_base64_encode\\])[^|]*$");
    long refused = 0;
    for (const row &row : rows()) {
        const long asked = attempt(row, LONG_MAX, LONG_MAX).asked;
        for (long first = 1; first <= asked && !HasFailure(); ++first) {
            for (const long last : {first, LONG_MAX}) {
                SCOPED_TRACE(row.call + ", allocation " + std::to_string(first));
                const outcome seen = attempt(row, first, last);
                ++refused;
                // libcrypto may fill a cache on its way around, once. A leak happens each time.
                EXPECT_TRUE(seen.clean || attempt(row, first, last).clean) << "a leak";
                if (seen.result != row.result || seen.reports != with_entry(row)) {
                    EXPECT_TRUE(seen.result == "null" || seen.result == "0") << seen.result;
                    EXPECT_TRUE(std::regex_search(seen.reports, last_report)) << seen.reports;
                    EXPECT_EQ(seen.reports.find("(platform log only)"), std::string::npos);
                }
            }
        }
    }
    EXPECT_GT(refused, 1000) << "the allocators are not taken over";
}
#endif

// The file good-3-... holds three certificates and ends cleanly; bad-2-... fails behind the second.
// The subject's common name of each is its position.
TEST(chains, are_what_their_names_say) {
    for (const auto &entry : std::filesystem::directory_iterator(TESRA_TESTS "/chains")) {
        const std::string name = entry.path().filename();
        SCOPED_TRACE(name);
        const std::string chain = file("chains/" + name);
        const bool good = name.starts_with("good-");
        const int readable = std::stoi(name.substr(name.find('-') + 1));
        EXPECT_EQ(get_cert_count(chain), std::to_string(good ? readable : 0));
        for (const int index : {0, readable / 2, readable - 1, -1, readable}) {
            const int found = index != -1 ? index : good ? readable - 1 : readable;
            reported();
            const std::string texts = get_cert_data(chain, index);
            EXPECT_EQ(texts.substr(texts.rfind('|', texts.size() - 2) + 1),
                      found < readable ? std::to_string(found) + '|' : "null");
        }
        const std::string at = " index " + std::to_string(readable);
        const std::string bad = "2 Failed to get cert at" + at + "|2 Failed to get cert for" + at;
        EXPECT_EQ(reported(),
                  "11 Entry [tesra_get_cert_data]|11 Entry [tesra_get_cert_from_chain]|" +
                      (good ? "2 Invalid cert at" + at : bad));
    }
}

// The first certificate of the file has a bad start, the second a bad end, and each of the others
// one attribute that is there but empty.
TEST(records, are_not_made_of_an_empty_attribute) {
    const std::string chain = file("records/unusable-fields.pem");
    const char *const names[] = {"country", "state", "locality", "org", "org unit", "common"};
    const int nids[] = {14, 16, 15, 17, 18, 13};
    for (size_t at = 0; at < 12; ++at) {
        const std::string of = at < 6 ? "issuer" : "subject", index = std::to_string(2 + at);
        EXPECT_EQ(get_cert_data(chain, 2 + static_cast<int>(at)), "null");
        EXPECT_EQ(reported(), "11 Entry [tesra_get_cert_data]|11 Entry [tesra_get_cert_from_chain]|"
                              "2 Invalid entry length(0) for NID:" +
                                  std::to_string(nids[at % 6]) + "|2 Failed to get " + of + ' ' +
                                  names[at % 6] + " name|2 Failed to get " + of +
                                  " details|11 Entry [tesra_free_cert_data]|4 Free cert data [PTR]|"
                                  "2 Failed to parse cert at index " +
                                  index);
    }
}

TEST(dump, shows_five_digits_from_index_65536_on) {
    std::string bytes(65537, '\xFE');
    dump(TESRA_DUMP_LOG, "x", bytes);
    EXPECT_TRUE(reported().ends_with(" FE FE |4 x 10000: FE "));
}

TEST(trace, line_is_lost_without_notice_where_the_file_cannot_be_opened) {
    taken.unwritable = true;
    EXPECT_EQ(get_cert_count(nullptr), "0");
    EXPECT_EQ(reported(), "11 Entry [tesra_get_cert_count]|2 Invalid arguments(platform log only)");
    taken.unwritable = false;
}

} // namespace
