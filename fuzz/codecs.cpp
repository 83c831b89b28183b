// Base64 and hexadecimal: decoding anything, and encoding and decoding back.

#include "sinks.h"

#include <tesra_common.h>

#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

template <class type>
using block_ptr = std::unique_ptr<type, decltype([](type *block) { free(block); })>;

constexpr uint32_t untouched = 0xFFFFFFFF;

using decoder = decltype(tesra_hex_decode);

// Whether the text decodes, to `expected` unless that is null.
bool decodes(decoder decode, const char *text, uint32_t length, const uint8_t *expected,
             uint32_t expected_length) {
    uint32_t told = untouched;
    const block_ptr<uint8_t> block(decode(text, length, &told));
    if (block == nullptr) {
        check(told == untouched, "a failure leaves the length as it was");
        return false;
    }
    check(told <= length, "no text stands for more bytes than it has");
    const std::string all(block.get(), block.get() + told); // reads every byte that is told
    return expected == nullptr ||
           (told == expected_length && memcmp(all.data(), expected, told) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const auto *text = reinterpret_cast<const char *>(data);
    const auto length = static_cast<uint32_t>(size);
    decodes(tesra_base64_decode, text, length, nullptr, 0);
    decodes(tesra_hex_decode, text, length, nullptr, 0);

    char *encoded = nullptr;
    const int status = tesra_base64_encode(data, size, &encoded);
    check((status == 0) == (size > 0), "whatever is not empty can be encoded");
    const block_ptr<char> base64(encoded);
    uint32_t digits = untouched;
    const block_ptr<char> hex(tesra_hex_encode(data, length, &digits));
    check((hex != nullptr) == (size > 0), "whatever is not empty can be encoded");
    if (size > 0) {
        check(digits == strlen(hex.get()), "the length told is the text's");
        check(decodes(tesra_base64_decode, base64.get(),
                      static_cast<uint32_t>(strlen(base64.get())), data, length),
              "Base64 gives the input back");
        check(decodes(tesra_hex_decode, hex.get(), digits, data, length),
              "hexadecimal gives the input back");
    }
    traced();
    return 0;
}
