#include "commands.h"

#include "messages.h"
#include "owned.h"
#include "reports.h"

#include <tesra_common.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
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

// Names the line too, if there are several.
std::string name_character(std::string_view text, size_t at) {
    const size_t line =
        static_cast<size_t>(std::count(text.begin(), text.begin() + static_cast<long>(at), '\n'));
    const size_t start = line > 0 ? text.rfind('\n', at - 1) + 1 : 0;
    const bool has_lines = text.find('\n') < text.find_last_not_of(blanks);
    return (has_lines ? "line " + std::to_string(line + 1) + ", " : "") + "character " +
           std::to_string(at - start + 1) + " is " + in_quotes(text.substr(at, 1));
}

// The text without the blanks around it and the line breaks within.
std::string as_one_line(const input &text, const encoding &form) {
    const std::string refused = text.name + ": not " + form.name + ": ";
    const std::string &bytes = text.bytes;
    const size_t end = bytes.find_last_not_of(blanks) + 1;
    std::string line;
    size_t padding = 0; // where it starts
    size_t equals = 0;
    for (size_t at = std::min(bytes.find_first_not_of(blanks), end); at < end; ++at) {
        const char byte = bytes[at];
        if (byte == '\n' || byte == '\r') {
            continue;
        }
        if (byte == '=' && equals++ == 0) {
            padding = at;
        }
        line += byte;
        if (equals > form.padding || (equals > 0 && byte != '=')) {
            throw refusal(refused + name_character(bytes, padding));
        }
        if (byte != '=' && (byte == '\0' || std::strchr(form.characters, byte) == nullptr)) {
            throw refusal(refused + name_character(bytes, at));
        }
    }
    if (line.size() % form.group != 0) {
        throw refusal(refused + counted(line.size(), "character") + ", not a multiple of " +
                      std::to_string(form.group));
    }
    return line;
}

int decode(const command_line &given, const encoding &form) {
    return for_each_file(given, [&](const input &text) {
        const std::string line = given.lenient ? text.bytes : as_one_line(text, form);
        if (line.empty()) {
            return true;
        }
        auto length = static_cast<uint32_t>(line.size());
        const heap_ptr<uint8_t> bytes(form.decode(line.data(), length, &length));
        if (bytes == nullptr) {
            throw refusal(text.name + ": not " + form.name + " (--log 2 tells why)");
        }
        std::cout.write(reinterpret_cast<const char *>(bytes.get()), length);
        return true;
    });
}

int encode(const command_line &given, char *encode_bytes(const input &data)) {
    return for_each_file(given, [&](const input &data) {
        if (data.bytes.empty()) {
            return true;
        }
        const heap_ptr<char> text(encode_bytes(data));
        if (text == nullptr) {
            throw refusal(data.name + ": cannot be encoded (--log 2 tells why)");
        }
        std::cout << text.get() << '\n';
        return true;
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

// The library cuts a line of more than 126 bytes. A full one ends in 16 bytes of three characters.
int dump(const command_line &given) {
    return for_each_file(given, [&](const input &data) {
        if (data.bytes.empty()) {
            throw refusal(data.name + ": nothing to show");
        }
        const auto head = static_cast<size_t>(snprintf(nullptr, 0, " %04X: ", data.length() - 1));
        const size_t room = 126 - head - 3 * std::min<size_t>(data.bytes.size(), 16);
        if (given.label.size() > room) {
            throw wrong_usage("--label: at most " + counted(room, "byte") + ", or lines are cut");
        }
        const auto show = [&](uint8_t sink) {
            tesra_dump(sink, given.label.c_str(), data.data(), data.length());
        };
        if (given.to_trace_file) {
            write_trace_file([&] { show(TESRA_DUMP_TRACE); });
        } else {
            print_dumps();
            show(TESRA_DUMP_LOG);
        }
        return true;
    });
}

// A line of the trace file has at most 511 bytes, its header included.
int trace(const command_line &given) {
    if (given.words.empty() || given.words[0].size() > 400 ||
        given.words[0].find('\n') != std::string::npos) {
        throw wrong_usage("MESSAGE: must be one line of at most 400 bytes");
    }
    write_trace_file([&] { tesra_trace(4, "tesra", __LINE__, "%s\n", given.words[0].c_str()); });
    return 0;
}
