#include "commands.h"
#include "messages.h"
#include "reports.h"

#include <tesra_common.h>
#include <tesra_owned.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>

namespace {

// The text without blanks and line breaks: digits, and some or all of the padding at the end.
std::string strictly_read(const std::string &text, const std::string &digits,
                          std::string_view padding, size_t group) {
    const std::string blanks = " \t\n\v\f\r";
    std::string read = text;
    std::erase_if(read, [&](char byte) { return blanks.find(byte) != blanks.npos; });
    const size_t end = std::min(read.find_first_not_of(digits), read.size());
    if (!padding.starts_with(read.substr(end))) {
        const std::string before = text.substr(0, text.find_first_not_of(digits + blanks));
        const auto line = std::count(before.begin(), before.end(), '\n') + 1;
        const size_t column = before.size() - (before.rfind('\n') + 1) + 1;
        throw refusal("line " + std::to_string(line) + ", character " + std::to_string(column) +
                      ": unexpected " + in_quotes(read.substr(end, 1)));
    }
    if (read.size() % group != 0) {
        throw refusal(counted(read.size(), "character") + ", not a multiple of " +
                      std::to_string(group));
    }
    return read;
}

// Returns what the library makes, with its length; or null.
void *converted(const std::string &action, const std::string &from, uint32_t &length) {
    const auto *const bytes = reinterpret_cast<const uint8_t *>(from.data());
    length = static_cast<uint32_t>(from.size());
    if (action == "hex encode") {
        return tesra_hex_encode(bytes, length, &length);
    }
    if (action == "hex decode") {
        return tesra_hex_decode(from.data(), length, &length);
    }
    if (action == "base64 decode") {
        return tesra_base64_decode(from.data(), length, &length);
    }
    char *text = nullptr;
    tesra_base64_encode(bytes, from.size(), &text);
    length = (length + 2) / 3 * 4;
    return text;
}

} // namespace

int convert(const command_line &given) {
    const std::string verb = given.words.empty() ? "" : given.words[0];
    if (verb != "encode" && verb != "decode") {
        throw wrong_usage(given.command + ": encode or decode?");
    }
    const std::string action = given.command + ' ' + verb;
    const bool is_lenient = given.options.contains("lenient");
    if (is_lenient && verb == "encode") {
        throw wrong_usage(action + ": does not take --lenient");
    }
    return for_each_file({given.words.begin() + 1, given.words.end()}, [&](const input &file) {
        std::string from = file.bytes;
        if (action == "hex decode" && !is_lenient) {
            from = strictly_read(from, "0123456789ABCDEFabcdef", "", 2);
        } else if (action == "base64 decode" && !is_lenient) {
            from = strictly_read(
                from, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/", "==", 4);
        }
        if (from.empty()) {
            return true;
        }
        uint32_t length = 0;
        const tesra_owned<void, free> to(converted(action, from, length));
        if (to == nullptr) {
            throw refusal("cannot be converted (--log 2 tells why)");
        }
        std::cout.write(static_cast<const char *>(to.get()), length);
        std::cout << (verb == "encode" ? "\n" : "");
        return true;
    });
}

// The library cuts a line of more than 126 bytes. After the label a line has at most 59: an index
// of eight digits with a colon and two blanks around it, and 16 bytes of three characters.
int dump(const command_line &given) {
    const std::string label = given.options.contains("label") ? given.options.at("label") : "";
    if (label.size() > 67) {
        throw wrong_usage("--label: at most 67 bytes, or lines are cut");
    }
    if (given.options.contains("trace")) {
        open_trace_file();
    }
    return for_each_file(given.words, [&](const input &file) {
        if (file.bytes.empty()) {
            throw refusal("nothing to show");
        }
        tesra_dump(TESRA_DUMP_TRACE, label.c_str(),
                   reinterpret_cast<const uint8_t *>(file.bytes.data()),
                   static_cast<uint32_t>(file.bytes.size()));
        return true;
    });
}

// A line of the trace file has at most 511 bytes, its header included.
int trace(const command_line &given) {
    if (given.words.size() != 1 || given.words[0].size() > 400 ||
        given.words[0].find('\n') != std::string::npos) {
        throw wrong_usage("trace: takes one MESSAGE, a line of at most 400 bytes");
    }
    open_trace_file();
    tesra_trace(4, "tesra", __LINE__, "%s\n", given.words[0].c_str());
    return 0;
}
