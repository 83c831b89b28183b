#include "certificates.h"
#include "harness.h"
#include "table.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

using record_ptr =
    std::unique_ptr<tesra_cert_data,
                    decltype([](tesra_cert_data *data) { tesra_free_cert_data(data); })>;

record_ptr get_data(const std::string &chain, int index) {
    const auto length = static_cast<uint32_t>(chain.size());
    record_ptr data(tesra_get_cert_data(guarded(chain).get(), length, index));
    reported();
    return data;
}

TEST(chain, is_walked_to_its_end_or_to_the_position) {
    std::string pem[3];
    for (int at = 0; at < 3; ++at) {
        pem[at] = make_certificate({.subject = {{NID_commonName, std::to_string(at)}}});
    }
    std::string no_base64 = pem[2];
    std::string no_der = pem[2];
    no_base64[60] = '*';
    no_der[pem[2].find('\n') + 1] = 'Q';
    const std::map<std::string, std::string> names = {
        {"$one", pem[0]},
        {"$two", pem[1]},
        {"$three", pem[2].substr(0, pem[2].size() - 1)},
        {"$cut", pem[2].substr(0, pem[2].size() - 40)},
        {"$no_base64", no_base64},
        {"$no_der", no_der},
    };
    run_table("chains.json", names, [](const columns &row) {
        const std::string &text = row[0];
        const int readable = std::stoi(row[1]);
        const bool clean = row[2] == "clean";
        const auto length = static_cast<uint32_t>(text.size());
        EXPECT_EQ(tesra_get_cert_count(guarded(text).get(), length), clean ? readable : 0);
        for (const int index : {-2, -1, 0, 1, 2, 3, INT32_MAX, INT32_MIN}) {
            const record_ptr data = get_data(text, index);
            const int found = clean && index == -1 ? readable - 1 : index;
            EXPECT_EQ(data == nullptr ? "none" : data->subject_common_name,
                      found >= 0 && found < readable ? std::to_string(found) : "none")
                << index;
        }
    });
}

TEST(fields, are_texts_of_any_kind_and_length) {
    const std::map<std::string, std::string> names = {{"$70000x", std::string(70000, 'x')},
                                                      {"$150_digits", std::string(150, '9')}};
    run_table("fields.json", names, [](const columns &row) {
        const std::string value = bytes_of(row[1]);
        recipe ingredients = {.subject = {}, .serial = row[0] == "serial" ? value : "1"};
        if (row[0] == "time") {
            ingredients.not_before = value;
        } else if (row[0] != "serial") {
            ingredients.subject = {{NID_organizationName, value, std::stoi(row[0])},
                                   {NID_organizationName, "second"}};
        }
        const record_ptr data = get_data(make_certificate(ingredients), 0);
        ASSERT_NE(data, nullptr);
        const char *text = row[0] == "time"     ? data->not_before
                           : row[0] == "serial" ? data->serial_number
                                                : data->subject_org;
        ASSERT_STREQ(text, row[2].c_str());
        EXPECT_EQ(memcmp(text, row[2].data(), row[2].size() + 1), 0) << "behind a NUL";
    });
}

} // namespace
