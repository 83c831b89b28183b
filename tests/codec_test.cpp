#include "harness.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <sys/mman.h>

namespace {

template <class type>
using block_ptr = std::unique_ptr<type, decltype([](type *block) { free(block); })>;

std::string decoded(decltype(tesra_hex_decode) decode, const std::string &text) {
    uint32_t told = 0;
    const auto length = static_cast<uint32_t>(text.size());
    const block_ptr<uint8_t> bytes(decode(guarded(text).get(), length, &told));
    return bytes == nullptr ? "" : std::string(bytes.get(), bytes.get() + told);
}

TEST(codecs, give_back_every_length) {
    std::string input;
    for (uint32_t length = 1; length <= 400; ++length) {
        input += static_cast<char>(length * 31 + length / 7);
        const auto place = guarded(input);
        const auto *bytes = reinterpret_cast<const uint8_t *>(place.get());
        char *base64 = nullptr;
        ASSERT_EQ(tesra_base64_encode(bytes, length, &base64), 0);
        const block_ptr<char> base64_text(base64);
        unsigned char expected[600];
        EVP_EncodeBlock(expected, bytes, static_cast<int>(length));
        EXPECT_STREQ(base64, reinterpret_cast<char *>(expected));
        EXPECT_EQ(decoded(tesra_base64_decode, base64), input);
        uint32_t told = 0;
        const block_ptr<char> hex_text(tesra_hex_encode(bytes, length, &told));
        ASSERT_EQ(told, 2 * length);
        EXPECT_EQ(decoded(tesra_hex_decode, hex_text.get()), input);
    }
    reported();
}

TEST(base64_decode, refuses_a_length_that_no_int_holds) {
    const size_t length = size_t{1} << 31;
    void *text =
        mmap(nullptr, length, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(text, MAP_FAILED);
    uint32_t told = 4711;
    reported();
    EXPECT_EQ(tesra_base64_decode(static_cast<char *>(text), uint32_t{length}, &told), nullptr);
    EXPECT_EQ(told, 4711U);
    EXPECT_EQ(reported(), "11 %s Entry [tesra_base64_decode] | "
                          "11 %d Decode from base64 string, src_len = -2147483648 | "
                          "2 %d EVP_DecodeBlock failed, ret = -1");
    munmap(text, length);
}

TEST(hex_decode, takes_the_pairs_that_sscanf_takes) {
    for (int pair = 0; pair < 0x10000; ++pair) {
        const char text[] = {static_cast<char>(pair >> 8), static_cast<char>(pair), '\0'};
        unsigned char value = 0;
        const int converted = sscanf(text, "%2hhx", &value);
        // Digits around it keep the pair from being trimmed.
        const std::string digits = "00" + std::string(text, 2) + "00";
        const std::string expected = {'\0', static_cast<char>(value), '\0'};
        ASSERT_EQ(decoded(tesra_hex_decode, digits), converted == 1 ? expected : "") << pair;
        const std::string reports = reported();
        const std::string failure = "2 %d%d Decode failed at idx = 2, ret = ";
        ASSERT_TRUE(converted == 1 || reports.ends_with(failure + std::to_string(converted)))
            << reports;
    }
}

} // namespace
