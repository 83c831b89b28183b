#include "lines.h"

#include "messages.h"

#include <algorithm>
#include <cctype>

namespace {

constexpr const char *base64_characters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/= \t";

bool looks_like_marker(const std::string &text) {
    for (const char *part : {"-BEGIN ", "-END ", "BEGIN CERTIFICATE", "END CERTIFICATE"}) {
        if (text.find(part) != text.npos) {
            return true;
        }
    }
    return text.find("---") != text.npos && text.find("CERT") != text.npos;
}

} // namespace

std::string_view trimmed(std::string_view line) {
    while (!line.empty() && line.back() <= ' ') {
        line.remove_suffix(1);
    }
    return line;
}

std::optional<marker> read_marker(std::string_view line, size_t number) {
    if (line.find('-') == line.npos && line.find("CERT") == line.npos) {
        return {}; // as most lines
    }
    std::string text(line.substr(0, 500)); // what matters of a long line stands at its start
    std::ranges::transform(text, text.begin(), [](unsigned char byte) { return toupper(byte); });
    if (!looks_like_marker(text)) {
        return {};
    }
    marker found = {.is_begin = text.find("BEGIN") <= text.find("END"), .kind = "", .problem = {}};
    const std::string word = found.is_begin ? "BEGIN" : "END";
    const std::string start = "-----" + word + ' ';
    // libcrypto takes a line of more than 254 bytes for several.
    if (!line.starts_with(start) || !line.ends_with("-----") || line.size() >= 254) {
        found.problem = {faults::malformed_marker, number, word + " line: " + in_quotes(line)};
        return found;
    }
    found.kind = line.substr(start.size(), line.size() - start.size() - 5);
    found.problem = {found.is_begin ? faults::stray_begin : faults::stray_end, number,
                     in_quotes(line)};
    return found;
}

fault read_body_line(std::string_view line, size_t number, body &before) {
    if (before.size == 0 && line.find(':') != line.npos) {
        return {}; // a header
    }
    if (before.size > 0 && line.empty()) {
        return {faults::blank_line, number};
    }
    before.size += std::max<size_t>(line.size(), 1);
    const size_t wrong = line.find_first_not_of(base64_characters);
    if (wrong != line.npos) {
        return {faults::not_base64, number, in_quotes(line.substr(wrong, 1))};
    }
    if (before.padding == 0 && line.find('=') != line.npos) {
        before.padding = number;
        line.remove_prefix(line.find('='));
    }
    if (before.padding > 0 && line.find_first_not_of('=') != line.npos) {
        return {faults::early_padding, before.padding};
    }
    return {};
}
