#include "commands.h"

#include "messages.h"

#include <tesra_common.h>

#include <algorithm>
#include <iostream>

namespace {

constexpr const char *blanks = " \t\n\v\f\r";

struct encoding {
    std::string name;
    decltype(tesra_hex_decode) *decode;
    const char *characters;
    size_t padding; // "=" at the end, at most
    size_t group;
};

// The text without the blanks around it and the line breaks within.
std::string as_one_line(const input &text, const encoding &form) {
    std::string line = text.bytes.substr(0, text.bytes.find_last_not_of(blanks) + 1);
    line.erase(0, line.find_first_not_of(blanks));
    std::erase_if(line, [](char byte) { return byte == '\n' || byte == '\r'; });
    const size_t end = std::min(line.find_first_not_of(form.characters), line.size());
    const bool is_padded =
        line.size() - end <= form.padding && line.find_first_not_of('=', end) == line.npos;
    if (!is_padded || line.size() % form.group != 0) {
        throw refusal(text.name + ": not " + form.name + ": " +
                      (is_padded ? counted(line.size(), "character") + ", no multiple of " +
                                       std::to_string(form.group)
                                 : "character " + std::to_string(end + 1) + " is \"" +
                                       escaped(line.substr(end, 1)) + '"'));
    }
    return line;
}

int decode(const command_line &given, const encoding &form) {
    return for_each_file(given, [&](const input &text, json &) {
        const std::string line = given.has('e') ? text.bytes : as_one_line(text, form);
        auto length = static_cast<uint32_t>(line.size());
        const heap_ptr<uint8_t> bytes(line.empty() ? nullptr
                                                   : form.decode(line.data(), length, &length));
        if (bytes == nullptr && !line.empty()) {
            throw refusal(text.name + ": not " + form.name + " (--log 2 tells why)");
        }
        std::cout.write(reinterpret_cast<const char *>(bytes.get()), length);
    });
}

int encode(const command_line &given, char *encode_bytes(const input &data)) {
    return for_each_file(given, [&](const input &data, json &) {
        const heap_ptr<char> text(data.bytes.empty() ? nullptr : encode_bytes(data));
        if (text != nullptr) {
            std::cout << text.get() << '\n';
        } else if (!data.bytes.empty()) {
            throw refusal(data.name + ": cannot be encoded (--log 2 tells why)");
        }
    });
}

} // namespace

int base64_encode(const command_line &given) {
    return encode(given, [](const input &data) {
        char *text = nullptr;
        tesra_base64_encode(data.data(), data.bytes.size(), &text);
        return text;
    });
}

int hex_encode(const command_line &given) {
    return encode(given, [](const input &data) {
        uint32_t length = 0;
        return tesra_hex_encode(data.data(), data.length(), &length);
    });
}

int base64_decode(const command_line &given) {
    return decode(given,
                  {"Base64 text", tesra_base64_decode,
                   "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/", 2, 4});
}

int hex_decode(const command_line &given) {
    return decode(given, {"hexadecimal text", tesra_hex_decode, "0123456789ABCDEFabcdef", 0, 2});
}
