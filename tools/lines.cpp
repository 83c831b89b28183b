#include "lines.h"

#include "messages.h"

#include <algorithm>
#include <cctype>

namespace {

// libcrypto skips bytes beyond ASCII at the end of a line where char is signed.
constexpr bool skips_beyond_ascii = static_cast<char>(0x80) < 0;

// The line at a position, with its line break.
std::string_view line_at(std::string_view text, size_t at) {
    return text.substr(at, std::min(text.find('\n', at), text.size() - 1) + 1 - at);
}

// Without what libcrypto skips at its end: blanks and control characters.
std::string_view trimmed(std::string_view line) {
    while (!line.empty()) {
        const auto last = static_cast<unsigned char>(line.back());
        if (last > ' ' && (last < 0x80 || !skips_beyond_ascii)) {
            break;
        }
        line.remove_suffix(1);
    }
    return line;
}

// Looks only at the start of a long line: what matters stands there.
std::string upper_case(std::string_view line) {
    std::string text(line.substr(0, 500));
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char byte) { return static_cast<char>(std::toupper(byte)); });
    return text;
}

bool contains(const std::string &text, const char *part) {
    return text.find(part) != text.npos;
}

bool is_base64(char byte) {
    const auto code = static_cast<unsigned char>(byte);
    return code < 0x80 && (std::isalnum(code) != 0 || byte == '+' || byte == '/');
}

bool looks_like_marker(std::string_view line) {
    if (line.find('-') == line.npos && line.find("CERT") == line.npos) {
        return false;
    }
    const std::string text = upper_case(line);
    return contains(text, "-BEGIN ") || contains(text, "-END ") ||
           contains(text, "BEGIN CERTIFICATE") || contains(text, "END CERTIFICATE") ||
           (contains(text, "---") && contains(text, "CERT"));
}

// The kind that a good marker line names.
bool read_kind(std::string_view line, std::string_view start, std::string &kind) {
    constexpr std::string_view dashes = "-----";
    if (!line.starts_with(start) || !line.ends_with(dashes) ||
        line.size() < start.size() + dashes.size()) {
        return false;
    }
    kind = line.substr(start.size(), line.size() - start.size() - dashes.size());
    return kind.find('\r') == kind.npos;
}

marker_line read_marker(std::string_view line) {
    marker_line marker = {};
    marker.problem.detail = in_quotes(line);
    marker.has_bom = line.starts_with("\xEF\xBB\xBF");
    line.remove_prefix(marker.has_bom ? 3 : 0);
    const std::string text = upper_case(line);
    marker.is_begin = text.find("BEGIN") <= text.find("END");
    marker.is_good = read_kind(line, marker.is_begin ? "-----BEGIN " : "-----END ", marker.kind);
    marker.problem.word = marker.is_begin ? "BEGIN" : "END";
    if (!marker.is_good || marker.has_bom) {
        marker.problem.kind = faults::malformed_marker;
    } else {
        marker.problem.kind = marker.is_begin ? faults::stray_begin : faults::stray_end;
    }
    return marker;
}

} // namespace

size_t line_counter::line_of(size_t place) {
    if (place > at) {
        const std::string_view passed = text.substr(at, place - at);
        line += static_cast<size_t>(std::count(passed.begin(), passed.end(), '\n'));
        at = place;
    }
    return line;
}

std::vector<marker_line> find_marker_lines(std::string_view text) {
    std::vector<marker_line> markers;
    size_t number = 1;
    for (size_t at = 0, end = 0; at < text.size(); at = end, ++number) {
        const std::string_view line = line_at(text, at);
        end = at + line.size();
        if (looks_like_marker(line)) {
            marker_line marker = read_marker(trimmed(line));
            marker.begin = at;
            marker.end = end;
            marker.problem.line = number;
            markers.push_back(std::move(marker));
        }
    }
    return markers;
}

fault first_wrong_line(std::string_view block, size_t number) {
    size_t padding = 0; // the line that has it
    bool has_base64 = false;
    for (size_t at = line_at(block, 0).size(); at < block.size(); at += line_at(block, at).size()) {
        const std::string_view line = trimmed(line_at(block, at));
        ++number;
        const bool is_header = !has_base64 && line.find(':') != line.npos;
        if (is_header || line.starts_with("--") || looks_like_marker(line)) {
            return {};
        }
        if (line.empty() && has_base64) {
            return {faults::blank_line, number};
        }
        for (const char &byte : line) {
            if (!is_base64(byte) && byte != '=' && byte != ' ' && byte != '\t') {
                return {faults::not_base64, number, "", in_quotes({&byte, 1})};
            }
            if (padding > 0 && byte != '=') {
                return {faults::early_padding, padding};
            }
            if (byte == '=' && padding == 0) {
                padding = number;
            }
            has_base64 = true;
        }
    }
    return {};
}
