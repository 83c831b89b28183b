// Makes the calls of the tables in cases/: as they stand there, and with every allocation failing.

#include "certificates.h"
#include "harness.h"
#include "table.h"

#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <openssl/err.h>

#include <climits>

namespace {

struct test_case {
    std::string function;
    std::string input; // each character a byte; "null" is a null pointer, "null0" one of length 0
    std::string argument; // index; flags and label; length, if not the input's; "null", if the
                          // out-parameter is
    std::string fault;    // function that fails:nth call:its result
    std::string result;
    std::string reports;
};

void run_cases(const std::function<void(const test_case &)> &run) {
    recipe full = {.subject = full_name("s"), .issuer = full_name("i"), .serial = "4711"};
    recipe noname = full, bare = full, emptyou = full, badtime = full;
    noname.subject = bare.issuer = {};
    emptyou.issuer[1].value = "";
    badtime.not_after = "later";
    const std::map<std::string, std::string> names = {
        {"$full", make_certificate(full)},
        {"$noname", make_certificate(noname)},
        {"$bare", make_certificate(bare)},
        {"$emptyou", make_certificate(emptyou)},
        {"$badtime", make_certificate(badtime)},
        // As bytes, as Base64 and as hexadecimal text.
        {"$3000", std::string(3000, 0)},
        {"$base64_3000", std::string(4000, 'A')},
        {"$hex_3000", std::string(6000, '0')},
    };
    for (const char *file : {"certificates.json", "codecs.json", "diagnostics.json"}) {
        run_table(file, names, [&](const columns &row) {
            ASSERT_EQ(row.size(), 6U);
            run({row[0], row[1], row[2], row[3], row[4], row[5]});
        });
    }
}

std::string get(const char *chain, uint32_t length, int index) {
    tesra_cert_data *data = counted([&] { return tesra_get_cert_data(chain, length, index); });
    if (data == nullptr) {
        return "null";
    }
    EXPECT_EQ(last_pointer, reinterpret_cast<uintptr_t>(data));
    counted([&] { tesra_free_cert_data(data); });
    EXPECT_EQ(last_pointer, reinterpret_cast<uintptr_t>(data));
    return "record";
}

void dump(const std::string &argument, const uint8_t *bytes, uint32_t length) {
    size_t digits = 0;
    const int flags = std::stoi(argument, &digits);
    const std::string label = argument.substr(digits + 1);
    const long reached = allocations.reached;
    counted([&] {
        tesra_dump(static_cast<uint8_t>(flags), label == "null" ? nullptr : label.c_str(), bytes,
                   length);
    });
    if (flags == TESRA_DUMP_LOG && bytes != nullptr) {
        EXPECT_EQ(allocations.reached, reached) << "reports to the platform log allocate nothing";
    }
}

// tesra_base64_encode in the shape of the other codecs.
char *encode_base64(const uint8_t *bytes, size_t length, uint32_t *text_length) {
    char untouched = 0;
    char *text = &untouched;
    const int status = tesra_base64_encode(bytes, length, text_length == nullptr ? nullptr : &text);
    EXPECT_EQ(status, text == &untouched ? -1 : 0);
    if (status != 0) {
        return nullptr;
    }
    *text_length = static_cast<uint32_t>(strlen(text));
    return text;
}

template <class coder, class input, class size>
std::string convert(coder code, const input *in, size length, bool has_out, bool terminated) {
    uint32_t told = 4711;
    auto *out = counted([&] { return code(in, length, has_out ? &told : nullptr); });
    EXPECT_EQ(told == 4711, out == nullptr);
    if (out == nullptr) {
        return "null";
    }
    EXPECT_TRUE(!terminated || out[told] == 0);
    const std::string result(out, out + told);
    counted([&] { free(out); });
    return result;
}

// Makes the call and returns what it hands back.
std::string handed_back(const test_case &row) {
    const auto &[function, input, argument, fault, result, reports] = row;
    const std::string content = bytes_of(input);
    const auto place = guarded(content);
    const char *text = input.starts_with("null") ? nullptr : place.get();
    const auto *bytes = reinterpret_cast<const uint8_t *>(text);
    const auto size = static_cast<uint32_t>(input == "null0" ? 0 : content.size());
    if (function == "get") {
        return get(text, size, std::stoi(argument));
    }
    if (function == "free") {
        counted([] { tesra_free_cert_data(nullptr); });
        return "";
    }
    if (function == "dump") {
        dump(argument, bytes, size);
        return "";
    }
    if (function == "trace") {
        counted([&] { tesra_trace(2, "probe", 1, "%s", content.c_str()); });
        return "";
    }
    const bool has_out = argument != "null";
    const size_t length = argument.empty() || !has_out ? size : std::stoull(argument);
    const auto length32 = static_cast<uint32_t>(length);
    if (function == "count") {
        return std::to_string(counted([&] { return tesra_get_cert_count(text, length32); }));
    }
    if (function == "b64e") {
        return convert(encode_base64, bytes, length, has_out, true);
    }
    if (function == "hexe") {
        return convert(tesra_hex_encode, bytes, length32, has_out, true);
    }
    return function == "b64d" ? convert(tesra_base64_decode, text, length32, has_out, false)
                              : convert(tesra_hex_decode, text, length32, has_out, true);
}

struct outcome {
    std::string result;
    std::string reports;
    long points;      // allocations asked for
    long left_behind; // blocks
};

outcome attempt(const test_case &row, long first_failing, long last_failing) {
    // The thread's error queue is the caller's: it is there before the call, and goes after it.
    OPENSSL_thread_stop();
    allocations = {};
    counted([] { ERR_clear_error(); });
    const long live = allocations.live;
    allocations = {false, first_failing, last_failing, 0, live};
    outcome seen = {handed_back(row), "", allocations.reached, 0};
    allocations.last_failing = 0;
    counted([] { OPENSSL_thread_stop(); });
    seen.left_behind = allocations.live;
    seen.reports = reported();
    allocations = {};
    return seen;
}

TEST(cases, hand_back_and_report_what_the_tables_say) {
    reported();
    run_cases([](const test_case &row) {
        char function[32] = "";
        int nth = 1;
        int result = -1;
        sscanf(row.fault.c_str(), "%31[^:]:%d:%d", function, &nth, &result);
        // Twice, since libcrypto keeps some of what it allocates the first time.
        for (const bool again : {false, true}) {
            const failing call(function, nth, result);
            const outcome seen = attempt(row, 0, 0);
            EXPECT_EQ(seen.result, bytes_of(row.result));
            EXPECT_EQ(seen.reports, row.reports);
            EXPECT_TRUE(!again || seen.left_behind == 0) << seen.left_behind;
        }
    });
}

// Fails each allocation in turn, alone or with all later ones; returns how many blocks that left
// behind.
long sweep(const test_case &row, const outcome &undisturbed, bool and_later) {
    long left_behind = 0;
    for (long point = 1; point <= undisturbed.points && !testing::Test::HasFailure(); ++point) {
        SCOPED_TRACE(testing::Message() << "allocation " << point << (and_later ? " on" : ""));
        const outcome seen = attempt(row, point, and_later ? LONG_MAX : point);
        left_behind += seen.left_behind;
        if (seen.result == undisturbed.result && seen.reports == undisturbed.reports) {
            continue;
        }
        EXPECT_TRUE(seen.result == "null" || seen.result == "0");
        const size_t error = seen.reports.rfind("| 2 ");
        EXPECT_NE(error, std::string::npos) << seen.reports;
        for (const char *other : {"| 3 ", "| 4 ", "| 11 "}) {
            EXPECT_EQ(seen.reports.find(other, error), std::string::npos) << seen.reports;
        }
    }
    return left_behind;
}

// Either the call fails as it does for other reasons, or nothing shows of the failure.
TEST(allocations, fail_cleanly_one_by_one) {
    std::map<std::string, long> tried;
    run_cases([&](const test_case &row) {
        if (!row.fault.empty() || testing::Test::HasFailure()) {
            return;
        }
        attempt(row, LONG_MAX, LONG_MAX);
        const outcome undisturbed = attempt(row, LONG_MAX, LONG_MAX);
        for (const bool and_later : {false, true}) {
            // On its way around a failure libcrypto may fill a cache that it does not fill
            // otherwise. That happens once, while a leak happens every time.
            if (sweep(row, undisturbed, and_later) != 0) {
                EXPECT_EQ(sweep(row, undisturbed, and_later), 0);
            }
            tried[row.function] += undisturbed.points;
        }
    });
    for (const auto &[function, points] : tried) {
        printf("%-5s %6ld allocation points tried\n", function.c_str(), points);
    }
}

} // namespace
