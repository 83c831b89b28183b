#include "lines.h"

#include "messages.h"

#include <algorithm>
#include <cctype>
#include <regex>

namespace {

constexpr const char *put_begin = "Put the BEGIN line there.";

// libcrypto passes over bytes beyond ASCII at the end of a line where char is signed.
constexpr bool passes_over = static_cast<char>(0x80) < 0;

bool is_ascii(char byte) {
    return static_cast<unsigned char>(byte) < 0x80;
}

bool is_base64(char byte) {
    return is_ascii(byte) && (std::isalnum(byte) != 0 || byte == '+' || byte == '/' || byte == '=');
}

// The line at a position, with its line break.
std::string_view line_at(std::string_view text, size_t at) {
    return text.substr(at, std::min(text.find('\n', at), text.size() - 1) + 1 - at);
}

// Without blanks and control characters at its end; and, if `to_ascii`, without what is beyond.
std::string_view trimmed(std::string_view line, bool to_ascii) {
    while (!line.empty() && (is_ascii(line.back()) ? line.back() <= ' ' : to_ascii)) {
        line.remove_suffix(1);
    }
    return line;
}

// The parts of a line that looks like a BEGIN or an END line.
using marker = std::match_results<std::string_view::const_iterator>;
enum { FRONT = 1, DASHES_BEFORE, WORD, KIND, DASHES_AFTER, REST };

bool find_marker(std::string_view line, marker &found) {
    static const std::regex pattern("(|[^]*?[^-])(-*)\\b(BEGIN|END) ([^-]*)(-*)([^]*)",
                                    std::regex::icase | std::regex::optimize);
    // A longer line is not read to its end: what matters stands at its start.
    line = trimmed(line, passes_over).substr(0, 500);
    return line.find(' ') != line.npos &&
           std::regex_match(line.begin(), line.end(), found, pattern) &&
           (found.length(DASHES_BEFORE) + found.length(DASHES_AFTER) > 0 ||
            found.str(KIND) == "CERTIFICATE");
}

// What is wrong with the line itself; or, if it is good, why no block uses it.
line_fault explain(const marker &found, std::string_view line, size_t number, bool is_last) {
    const std::string_view rest = line.substr(static_cast<size_t>(found.position(REST)));
    const auto before = found.length(DASHES_BEFORE);
    const auto after = found.length(DASHES_AFTER);
    const bool is_begin = found.length(WORD) == 5;
    const auto mend = [](std::string_view part) {
        const bool is_line =
            std::all_of(part.begin(), part.end(), is_base64) || part.ends_with("-----");
        return is_line ? "Put a line break there." : "Remove that.";
    };
    const struct {
        bool is_so;
        std::string text;
        std::string remedy;
    } causes[] = {
        {found.length(FRONT) > 0, "with " + in_quotes(found.str(FRONT)) + " in front",
         mend(found.str(FRONT))},
        {!rest.empty(), "with " + in_quotes(rest) + " after its dashes", mend(rest)},
        {is_last && after < 5, "cut off at the end of the file", "Copy it again."},
        {before != 5 || after != 5,
         "with " + std::to_string(before) + " and " + std::to_string(after) +
             " dashes in place of 5 and 5",
         "Correct that."},
        {found[WORD] != "BEGIN" && found[WORD] != "END", "in lower case", "Write it in capitals."},
        {is_begin, "without an END line before it", "Put the END line there."},
        {true, "without its BEGIN line: " + in_quotes(line),
         "Put its BEGIN line in front of the Base64, or make the two match."},
    };
    const auto *const cause = std::find_if(std::begin(causes), std::end(causes),
                                           [](const auto &each) { return each.is_so; });
    return {number, (is_begin ? "a BEGIN line " : "an END line ") + cause->text, cause->remedy};
}

// Whether the line, from `at` to `end`, is no more than a quotation in a comment.
bool is_quoted(const marker &found, std::string_view text, size_t at, size_t end) {
    const bool has_words = std::any_of(found[FRONT].first, found[FRONT].second,
                                       [](char byte) { return byte > ' ' && is_ascii(byte); });
    const size_t before = at == 0 ? 0 : text.substr(0, at - 1).rfind('\n') + 1;
    const size_t after = end < text.size() ? end + line_at(text, end).size() : end;
    return (has_words || found.length(DASHES_BEFORE) < 2) &&
           !holds_base64(text.substr(before, after - before)) &&
           !trimmed(text.substr(before, at - before), false).ends_with('='); // a short last line
}

} // namespace

bool holds_base64(std::string_view text) {
    return std::search_n(text.begin(), text.end(), 32, true,
                         [](char byte, bool) { return is_base64(byte); }) != text.end();
}

std::vector<marker_line> find_marker_lines(std::string_view text) {
    std::vector<marker_line> lines;
    bool has_markers = false;
    bool may_start = true; // a certificate's Base64, without a BEGIN line
    for (size_t at = 0, end = 0, number = 1; at < text.size(); at = end, ++number) {
        const std::string_view line = line_at(text, at);
        const std::string_view seen = trimmed(line, passes_over);
        end = at + line.size();
        marker found;
        const bool is_marker = find_marker(line, found) && !is_quoted(found, text, at, end);
        if (is_marker) {
            // libcrypto takes further dashes for a part of the kind.
            const bool is_begin = found.length(WORD) == 5;
            const std::string kind = found.str(KIND) + found.str(DASHES_AFTER).erase(0, 5);
            const std::string good = (is_begin ? "-----BEGIN " : "-----END ") + kind + "-----";
            // libcrypto passes over a byte order mark where it starts to read.
            const bool starts = at == 0 || (!lines.empty() && lines.back().end == at);
            const bool is_good = seen == good || (starts && seen == "\xEF\xBB\xBF" + good);
            lines.push_back({at, end, is_begin, false, is_good, kind,
                             explain(found, seen, number, line.back() != '\n')});
        } else if (may_start && line.find("MI") < 4 && holds_base64(line)) {
            const std::string fault = "Base64 without a BEGIN line before it";
            lines.push_back({at, end, false, true, false, "", {number, fault, put_begin}});
        }
        has_markers = has_markers || is_marker;
        may_start = is_marker ? found.length(WORD) != 5 : !holds_base64(line);
    }
    return has_markers ? lines : std::vector<marker_line>();
}

line_fault first_wrong_line(std::string_view block, size_t number, bool is_readable) {
    marker found;
    bool is_header = false; // until a blank line
    bool has_blank = false;
    bool has_base64 = false;
    size_t padding = 0; // the line that has it
    for (size_t at = 0; at < block.size(); at += line_at(block, at).size(), ++number) {
        const std::string_view line = trimmed(line_at(block, at), passes_over);
        const std::string_view end = trimmed(line_at(block, at), false).substr(line.size());
        if (is_readable && !end.empty()) {
            return {number, in_quotes(end) + " at its end, which AArch64 refuses", "Remove that."};
        }
        if (at > 0 && ((!is_readable && line.starts_with("--")) || find_marker(line, found))) {
            return {};
        }
        if (line.empty() && (has_blank || (has_base64 && !is_header))) {
            return {number, "a blank line", "Remove it."};
        }
        has_blank = has_blank || line.empty();
        is_header = !has_blank && !has_base64 && (is_header || line.find(':') != line.npos);
        for (const char byte : at == 0 || is_header ? "" : line) {
            if (!is_base64(byte) && byte != ' ' && byte != '\t') {
                return {number, in_quotes({&byte, 1}) + " is no Base64", "Copy it again."};
            }
            if (padding > 0 && byte != '=') {
                return {padding, "padding before the end of the Base64", "Copy it again."};
            }
            padding = byte == '=' && padding == 0 ? number : padding;
            has_base64 = true;
        }
    }
    return {};
}
