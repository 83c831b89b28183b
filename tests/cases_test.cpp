// Runs the rows of the tables in cases/: what each call hands back and reports.

#include "certificates.h"
#include "harness.h"
#include "table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <numeric>
#include <sstream>

namespace {

failing fault_of(const std::string &column) {
    columns parts = split(column + ":1:-1", ':');
    return failing(parts[0], std::stoi(parts[1]), std::stoi(parts[2]));
}

TEST(certificates, hand_back_and_report_what_the_table_says) {
    recipe full = {.subject = full_name("s"), .issuer = full_name("i"), .serial = "4711"};
    recipe noname = full, bare = full, emptyou = full, badtime = full;
    noname.subject = bare.issuer = {};
    emptyou.issuer[1].value = "";
    badtime.not_after = "later";
    const std::string pem = make_certificate(full);
    const std::map<std::string, std::string> chains = {
        {"full", pem},
        {"full+full", pem + pem},
        {"full+other", pem + "-----BEGIN OTHER-----\nQUJD\n-----END OTHER-----\n"},
        {"noname", make_certificate(noname)},
        {"bare", make_certificate(bare)},
        {"emptyou", make_certificate(emptyou)},
        {"badtime", make_certificate(badtime)},
        {"empty", ""},
    };
    run_table("certificates.txt", 6, [&](const columns &row) {
        reported();
        const auto chain = chains.find(row[1]);
        const bool known = chain != chains.end();
        const auto text = guarded(known ? chain->second : "");
        const char *start = row[1] == "null" ? nullptr : text.get();
        const size_t length = known              ? chain->second.size()
                              : row[1] == "null" ? 1
                                                 : std::stoul(row[1]);
        const failing call = fault_of(row[3]);
        std::string result;
        if (row[0] == "count") {
            result = std::to_string(tesra_get_cert_count(start, static_cast<uint32_t>(length)));
        } else if (row[0] == "free") {
            tesra_free_cert_data(nullptr);
        } else {
            watch_releases = row[0] == "watch";
            tesra_cert_data *data =
                tesra_get_cert_data(start, static_cast<uint32_t>(length), std::stoi(row[2]));
            result = data == nullptr ? "null" : "record";
            if (data != nullptr) {
                EXPECT_EQ(last_pointer, data);
                tesra_free_cert_data(data);
                EXPECT_EQ(last_pointer, data);
            }
            watch_releases = false;
        }
        EXPECT_EQ(result, row[4]);
        EXPECT_EQ(reported(), row[5]);
    });
}

std::string hex_of(const uint8_t *bytes, uint32_t length) {
    std::ostringstream out;
    for (uint32_t at = 0; at < length; ++at) {
        out << std::hex << std::uppercase << bytes[at] / 16 << bytes[at] % 16;
    }
    return out.str();
}

TEST(codecs, hand_back_and_report_what_the_table_says) {
    run_table("codecs.txt", 5, [](const columns &row) {
        reported();
        const bool is_null = row[1] == "noin";
        const std::string input = row[1] == "noout" ? "x" : unescaped(row[1]);
        const auto text = guarded(input);
        const char *start = is_null ? nullptr : text.get();
        const auto *bytes = reinterpret_cast<const uint8_t *>(start);
        const auto length = static_cast<uint32_t>(input.size());
        uint32_t told = 4711;
        uint32_t *dst_len = row[1] == "noout" ? nullptr : &told;
        char untouched = 0;
        char *encoded = &untouched;
        uint8_t *decoded = nullptr;
        std::string result;
        {
            const failing call = fault_of(row[2]);
            watch_releases = !row[2].empty();
            if (row[0] == "b64e") {
                char **out = dst_len == nullptr ? nullptr : &encoded;
                const int status = tesra_base64_encode(bytes, length, out);
                result = status == 0 ? encoded : std::to_string(status);
                EXPECT_EQ(encoded == &untouched, status != 0);
            } else if (row[0] == "hexe") {
                encoded = tesra_hex_encode(bytes, length, dst_len);
                result = encoded == nullptr ? "null" : encoded;
                EXPECT_EQ(told, encoded == nullptr ? 4711 : result.size());
            } else {
                decoded = (row[0] == "b64d" ? tesra_base64_decode : tesra_hex_decode)(start, length,
                                                                                      dst_len);
                result = decoded == nullptr ? "null" : hex_of(decoded, told);
                EXPECT_EQ(told == 4711, decoded == nullptr);
                EXPECT_TRUE(decoded == nullptr || row[0] != "hexd" || decoded[told] == 0);
            }
            watch_releases = false;
        }
        EXPECT_EQ(result, row[3]);
        EXPECT_EQ(reported(), unescaped(row[4]));
        free(encoded == &untouched ? nullptr : encoded);
        free(decoded);
    });
}

TEST(dumps, show_what_the_table_says) {
    run_table("dumps.txt", 4, [](const columns &row) {
        reported();
        std::string bytes(row[2] == "no" ? 0 : std::stoul(row[2]), '\0');
        std::iota(bytes.begin(), bytes.end(), '\0');
        const auto text = guarded(bytes);
        tesra_dump(static_cast<uint8_t>(std::stoi(row[0])),
                   row[1] == "null" ? nullptr : row[1].c_str(),
                   row[2] == "no" ? nullptr : reinterpret_cast<uint8_t *>(text.get()),
                   static_cast<uint32_t>(bytes.size()));
        std::string expected = row[3];
        std::replace(expected.begin(), expected.end(), '~', ' ');
        EXPECT_EQ(reported(), expected);
    });
}

} // namespace
