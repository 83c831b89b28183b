#include "harness.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <sys/mman.h>
#include <unistd.h>

#include <climits>
#include <cstring>

namespace {

template <class type>
using block_ptr = std::unique_ptr<type, decltype([](type *block) { free(block); })>;

TEST(codecs, give_back_every_length) {
    std::string input;
    for (uint32_t length = 1; length <= 400; ++length) {
        input += static_cast<char>(length * 31 + length / 7);
        const auto place = guarded(input);
        const auto *bytes = reinterpret_cast<const uint8_t *>(place.get());
        char *base64 = nullptr;
        ASSERT_EQ(tesra_base64_encode(bytes, length, &base64), 0);
        const std::string base64_text = block_ptr<char>(base64).get();
        std::string expected(4 * ((length + 2) / 3) + 1, '\0');
        EVP_EncodeBlock(reinterpret_cast<unsigned char *>(expected.data()), bytes,
                        static_cast<int>(length));
        EXPECT_EQ(base64_text + '\0', expected);
        uint32_t hex_length = 0;
        const block_ptr<char> hex(tesra_hex_encode(bytes, length, &hex_length));
        ASSERT_NE(hex, nullptr);
        EXPECT_EQ(hex_length, 2 * length);
        for (const std::string &text : {base64_text, std::string(hex.get())}) {
            const auto decode = text == base64_text ? tesra_base64_decode : tesra_hex_decode;
            uint32_t told = 0;
            const block_ptr<uint8_t> back(
                decode(guarded(text).get(), static_cast<uint32_t>(text.size()), &told));
            ASSERT_NE(back, nullptr);
            EXPECT_EQ(std::string(back.get(), back.get() + told), input);
        }
    }
    reported();
}

TEST(codecs, refuse_lengths_that_their_counts_cannot_hold) {
    const uint8_t byte = 'A';
    char *untouched = nullptr;
    uint32_t told = 4711;
    for (const size_t length : {size_t{INT_MAX} + 1, (size_t{1} << 32) + 5, SIZE_MAX}) {
        reported();
        EXPECT_EQ(tesra_base64_encode(&byte, length, &untouched), -1);
        EXPECT_EQ(reported(), "11 Entry [%s=tesra_base64_encode] | "
                              "2 [%s=tesra_base64_encode]: BIO_write failed!\n");
    }
    EXPECT_EQ(tesra_hex_encode(&byte, UINT32_C(1) << 31, &told), nullptr);
    EXPECT_EQ(reported(), "11 Entry [%s=tesra_hex_encode] | 2 Invalid arguments");
    {
        const failing call("calloc");
        EXPECT_EQ(tesra_hex_encode(&byte, INT32_MAX, &told), nullptr);
        EXPECT_EQ(reported(), "11 Entry [%s=tesra_hex_encode] | 2 Allocation failed");
    }

    // 2^31 characters of text, in the memory of 2^24.
    const size_t part = size_t{1} << 24;
    const size_t whole = size_t{1} << 31;
    const int memory = memfd_create("text", 0);
    ASSERT_EQ(ftruncate(memory, part), 0);
    auto *text = static_cast<char *>(
        mmap(nullptr, whole, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    for (size_t at = 0; at < whole; at += part) {
        mmap(text + at, part, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, memory, 0);
    }
    memset(text, 'A', part);
    EXPECT_EQ(tesra_base64_decode(text, static_cast<uint32_t>(whole), &told), nullptr);
    EXPECT_EQ(reported(), "11 Entry [%s=tesra_base64_decode] | "
                          "11 Decode from base64 string, src_len = %d=-2147483648 | "
                          "2 EVP_DecodeBlock failed, ret = %d=-1");
    EXPECT_EQ(untouched, nullptr);
    EXPECT_EQ(told, 4711U);
    munmap(text, whole);
    close(memory);
}

TEST(hex_decode, takes_the_pairs_that_sscanf_takes) {
    reported();
    for (int pair = 0; pair < 0x10000; ++pair) {
        // Digits around it keep the pair from being trimmed.
        const char text[] = {'0', '0', static_cast<char>(pair >> 8), static_cast<char>(pair),
                             '0', '0'};
        const char alone[] = {text[2], text[3], '\0'};
        unsigned char value = 0;
        const int converted = sscanf(alone, "%2hhx", &value);
        uint32_t told = 0;
        const block_ptr<uint8_t> bytes(tesra_hex_decode(text, sizeof text, &told));
        ASSERT_EQ(bytes != nullptr, converted == 1) << pair;
        if (bytes != nullptr) {
            EXPECT_EQ(bytes.get()[1], value) << pair;
            reported();
            continue;
        }
        EXPECT_EQ(reported(), "11 Entry [%s=tesra_hex_decode] | "
                              "11 Decode from hex string, src_len = %d=6 | "
                              "2 Decode failed at idx = %d=2, ret = %d=" +
                                  std::to_string(converted));
    }
}

TEST(dump, shows_five_digits_from_index_65536_on) {
    reported();
    const std::string bytes(65537, '\xAB');
    tesra_dump(TESRA_DUMP_LOG, "x", reinterpret_cast<const uint8_t *>(bytes.data()), 65537);
    const std::string lines = reported();
    EXPECT_EQ(lines.substr(lines.rfind("4 x FFF0: ")).size(),
              strlen("4 x FFF0: ") + 48 + strlen(" | 4 x 10000: AB "));
    EXPECT_EQ(lines.substr(lines.rfind(" | ")), " | 4 x 10000: AB ");
}

} // namespace
