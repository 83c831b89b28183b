#include "certificates.h"
#include "harness.h"

#include <gtest/gtest.h>

namespace {

using record_ptr =
    std::unique_ptr<tesra_cert_data,
                    decltype([](tesra_cert_data *data) { tesra_free_cert_data(data); })>;

record_ptr get_data(const std::string &chain, int index) {
    const auto length = static_cast<uint32_t>(chain.size());
    return record_ptr(tesra_get_cert_data(guarded(chain).get(), length, index));
}

TEST(chain, is_walked_to_its_end_or_to_the_position) {
    const std::string names[] = {"one", "two", "three"};
    std::string pem[3];
    for (size_t at = 0; at < 3; ++at) {
        pem[at] = make_certificate({.subject = {{NID_commonName, names[at]}}});
    }
    const std::string two = pem[0] + pem[1];
    const std::string all = two + pem[2];
    const std::string bare = all.substr(0, all.size() - 1);
    const std::string other = "-----BEGIN OTHER-----\nQUJD\n-----END OTHER-----\n";
    std::string no_base64 = all;
    std::string no_der = all;
    no_base64[two.size() + 60] = '*';
    no_der[all.find('\n', two.size()) + 1] = 'Q';
    const struct {
        std::string text;
        int readable;
        bool clean;
    } cases[] = {
        {all, 3, true},
        {bare, 3, true},
        {bare + "\r\n", 3, true},
        {bare + "  \n", 3, true},
        {"# 1\n\n" + pem[0] + other + "# 2\n" + pem[1] + "\n" + pem[2], 3, true},
        {pem[0], 1, true},
        {all + "\n", 3, false},
        {all + "  \n", 3, false},
        {all + '\0', 3, false},
        {all.substr(0, all.size() - 40), 2, false},
        {no_base64, 2, false},
        {no_der, 2, false},
        {"hello\n", 0, false},
        {other, 0, false},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.text);
        const uint32_t count = row.clean ? static_cast<uint32_t>(row.readable) : 0;
        EXPECT_EQ(
            tesra_get_cert_count(guarded(row.text).get(), static_cast<uint32_t>(row.text.size())),
            count);
        for (const int index : {-2, -1, 0, 1, 2, 3, INT32_MAX, INT32_MIN}) {
            SCOPED_TRACE(index);
            const record_ptr data = get_data(row.text, index);
            const int found = row.clean && index == -1 ? row.readable - 1 : index;
            ASSERT_EQ(data != nullptr, found >= 0 && found < row.readable);
            if (data != nullptr) {
                EXPECT_EQ(data->subject_common_name, names[found]);
            }
        }
    }
}

TEST(fields, are_texts_of_any_kind_and_length) {
    const std::string longest(70000, 'n');
    const std::string huge(150, '9');
    const auto org = [](const std::string &value, int type) {
        return recipe{.subject = {{NID_organizationName, value, type}}};
    };
    const auto subject_org = &tesra_cert_data::subject_org;
    const struct {
        recipe ingredients;
        char *tesra_cert_data::*field;
        std::string expected;
    } cases[] = {
        {org("B\xC3\xBC", V_ASN1_UTF8STRING), subject_org, "B\xC3\xBC"},
        {org("Plain", V_ASN1_PRINTABLESTRING), subject_org, "Plain"},
        {org("B\xFC", V_ASN1_T61STRING), subject_org, "B\xC3\xBC"},
        {org({"\0B\0\xFC", 4}, V_ASN1_BMPSTRING), subject_org, "B\xC3\xBC"},
        {org({"\0\1\xF6\0", 4}, V_ASN1_UNIVERSALSTRING), subject_org, "\xF0\x9F\x98\x80"},
        {org({"cut\0here", 8}, V_ASN1_UTF8STRING), subject_org, "cut"},
        {org(longest, V_ASN1_UTF8STRING), subject_org, longest},
        {{.subject = {{13, "x"}, {17, "first"}, {17, "second"}}}, subject_org, "first"},
        {{.serial = "0"}, &tesra_cert_data::serial_number, "0"},
        {{.serial = "-129"}, &tesra_cert_data::serial_number, "-129"},
        {{.serial = huge}, &tesra_cert_data::serial_number, huge},
        {{.not_before = "991231235959Z"}, &tesra_cert_data::not_before, "Dec 31 23:59:59 1999 GMT"},
        {{.not_after = "20501010101010.25Z"},
         &tesra_cert_data::not_after,
         "Oct 10 10:10:10.25 2050 GMT"},
    };
    for (const auto &row : cases) {
        const record_ptr data = get_data(make_certificate(row.ingredients), 0);
        ASSERT_NE(data, nullptr);
        EXPECT_EQ((*data).*row.field, row.expected);
    }
}

} // namespace
