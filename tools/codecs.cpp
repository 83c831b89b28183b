#include "codecs.h"

#include <tesra_common.h>

#include <iostream>

namespace {

constexpr const char *why = " (--log 2 tells why)";
constexpr const char *blanks = " \t\n\v\f\r";
constexpr const char *line_breaks = "\n\r";
constexpr const char *hex_digits = "0123456789ABCDEFabcdef";
constexpr const char *base64_characters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=";

using decoder = decltype(tesra_hex_decode);

void decode(const input &text, decoder *decode_text, const std::string &form) {
    uint32_t length = 0;
    const heap_ptr<uint8_t> bytes(decode_text(text.bytes.data(), text.length(), &length));
    if (bytes == nullptr) {
        throw refusal(text.name + ": not " + form + why);
    }
    std::cout.write(reinterpret_cast<const char *>(bytes.get()), length);
}

// The text has to be groups of these characters. Blanks around it are passed over, and line breaks
// wherever they are. An empty text stands for no bytes.
void decode_lines(const input &text, decoder *decode_text, const std::string &form,
                  const std::string &characters, size_t group) {
    input line = text;
    line.bytes.erase(text.bytes.find_last_not_of(blanks) + 1);
    const size_t first = std::min(line.bytes.find_first_not_of(blanks), line.bytes.size());
    const size_t bad = line.bytes.find_first_not_of(characters + line_breaks, first);
    if (bad != std::string::npos) {
        throw refusal(text.name + ": not " + form + ": byte " + std::to_string(bad + 1) + " is \"" +
                      escaped(line.bytes.substr(bad, 1)) + '"');
    }
    line.bytes.erase(0, first);
    std::erase_if(line.bytes, [](char byte) { return byte == '\n' || byte == '\r'; });
    if (line.bytes.size() % group != 0) {
        throw refusal(text.name + ": not " + form + ": " + std::to_string(line.bytes.size()) +
                      " characters, no multiple of " + std::to_string(group));
    }
    if (!line.bytes.empty()) {
        decode(line, decode_text, form);
    }
}

} // namespace

void base64_encode(const input &data) {
    if (data.bytes.empty()) {
        return;
    }
    char *text = nullptr;
    if (tesra_base64_encode(bytes_of(data), data.bytes.size(), &text) != 0) {
        throw refusal(data.name + ": cannot be encoded" + why);
    }
    std::cout << heap_ptr<char>(text).get() << '\n';
}

void base64_decode(const input &text) {
    decode_lines(text, tesra_base64_decode, "Base64 text", base64_characters, 4);
}

void hex_encode(const input &data) {
    if (data.bytes.empty()) {
        return;
    }
    uint32_t length = 0;
    const heap_ptr<char> text(tesra_hex_encode(bytes_of(data), data.length(), &length));
    if (text == nullptr) {
        throw refusal(data.name + ": cannot be encoded" + why);
    }
    std::cout << text.get() << '\n';
}

void hex_decode(const input &text, bool lenient) {
    const std::string form = "hexadecimal text";
    if (lenient) {
        decode(text, tesra_hex_decode, form);
    } else {
        decode_lines(text, tesra_hex_decode, form, hex_digits, 2);
    }
}
