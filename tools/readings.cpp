#include "readings.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>

namespace {

// Fewer digits hold no certificate.
constexpr size_t min_digits = 100;

// The value of each digit, of the URL-safe alphabet, too; -1 of any other byte.
constexpr auto values = [] {
    std::array<signed char, 256> table = {};
    table.fill(-1);
    constexpr std::string_view digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (size_t value = 0; value < digits.size(); ++value) {
        table[static_cast<unsigned char>(digits[value])] = static_cast<signed char>(value);
    }
    table['-'] = table['+'];
    table['_'] = table['/'];
    return table;
}();

bool is_digit(char byte) {
    return values[static_cast<unsigned char>(byte)] >= 0;
}

bool is_letter(char byte) {
    return (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z');
}

// How long an escape is, and what it stands for, if anything.
struct escape {
    size_t length = 0; // 0, if there is none
    char meaning = 0;
};

// Of C and JSON, RTF, PowerShell, less(1) and HTML.
constexpr struct {
    std::string_view text;
    char meaning;
} fixed_escapes[] = {
    {"\\n", '\n'},       {"\\r", '\n'},   {"\\t", ' '},    {"\\e", '\x1B'}, {"\\par", '\n'},
    {"\\line", '\n'},    {"`n", '\n'},    {"`r", '\n'},    {"^J", '\n'},    {"^M", '\n'},
    {"^[", '\x1B'},      {"<br", '\n'},   {"<BR", '\n'},   {"&lt;", '<'},   {"&gt;", '>'},
    {"&amp;", '&'},      {"&quot;", '"'}, {"&plus;", '+'}, {"&sol;", '/'},  {"&equals;", '='},
    {"&NewLine;", '\n'},
};

// Of C and JSON, URLs, mail, HTML and syslog.
constexpr struct {
    std::string_view prefix;
    int base;
    size_t digits;
} numeric_escapes[] = {
    {"\\u", 16, 4}, {"\\x", 16, 2}, {"\\", 8, 3},  {"%u", 16, 4}, {"%", 16, 2},
    {"=", 16, 2},   {"&#x", 16, 6}, {"&#", 10, 6}, {"#", 8, 3},
};

escape read_number(std::string_view text, std::string_view prefix, int base, size_t digits) {
    const std::string number(text.substr(prefix.size(), digits));
    size_t length = 0;
    unsigned long code = 0;
    if (!number.empty() && (is_letter(number[0]) || (number[0] >= '0' && number[0] <= '9'))) {
        char *end = nullptr;
        code = std::strtoul(number.c_str(), &end, base);
        length = static_cast<size_t>(end - number.c_str());
    }
    const bool is_entity = prefix[0] == '&' && length > 0;
    if ((length != digits && !is_entity) || code >= 0x80) {
        return {};
    }
    length += prefix.size();
    return {is_entity && text.substr(length, 1) == ";" ? length + 1 : length,
            static_cast<char>(code)};
}

// What a terminal acts on: such as a colour, up to a letter, or a link, up to a bell.
escape read_control(std::string_view text) {
    size_t end = 0;
    if (text.substr(1, 1) == "]") {
        const size_t bell = text.substr(0, 256).find_first_of("\x07\x1B", 1);
        end = bell == text.npos ? 0 : bell;
    } else if (text.substr(1, 1) == "[") {
        end = text.find_first_not_of("[0123456789;?", 1);
    }
    return {std::min(end, text.size() - 1) + 1, 0};
}

escape read_escape(std::string_view text) {
    for (const auto &known : fixed_escapes) {
        if (text.starts_with(known.text)) {
            return {known.text.size(), known.meaning};
        }
    }
    for (const auto &known : numeric_escapes) {
        const bool is_known = text.starts_with(known.prefix);
        const escape found =
            is_known ? read_number(text, known.prefix, known.base, known.digits) : escape();
        if (found.length > 0) {
            return found;
        }
    }
    const size_t tag = text.substr(0, 256).find_first_of("<>", 1);
    if (text[0] == '<' && tag != text.npos && text[tag] == '>' &&
        (is_letter(text[1]) || text[1] == '/')) {
        return {tag + 1, ' '};
    }
    if (text[0] == '\x1B') {
        return read_control(text);
    }
    return {text[0] == '\\' ? size_t{1} : size_t{0}, 0};
}

std::string unescape(std::string_view line) {
    std::string text;
    while (!line.empty()) {
        const size_t plain = std::min(line.find_first_of("\\`^#%=&<\x1B"), line.size());
        text += line.substr(0, plain);
        line.remove_prefix(plain);
        if (line.empty()) {
            break;
        }
        const escape found = read_escape(line);
        if (found.meaning != 0 || found.length == 0) {
            text += found.length == 0 ? line[0] : found.meaning;
        }
        line.remove_prefix(std::max<size_t>(found.length, 1));
    }
    return text;
}

// Text may be escaped more than once, as JSON in a URL is. In UTF-16, one of two bytes is NUL.
std::string without_escapes(std::string_view line) {
    std::string text(line);
    std::erase(text, '\0');
    for (size_t pass = 0, before = SIZE_MAX; pass < 4 && text.size() < before; ++pass) {
        before = text.size();
        text = unescape(text);
    }
    return text;
}

// A run of digits, with its padding.
struct run {
    size_t begin = 0;
    size_t end = 0;
    size_t width() const {
        return end - begin;
    }
};

run next_run(std::string_view text, size_t at) {
    while (at < text.size() && !is_digit(text[at])) {
        ++at;
    }
    size_t end = at;
    while (end < text.size() && is_digit(text[end])) {
        ++end;
    }
    return {at, std::min(text.find_first_not_of('=', end), text.size())};
}

void append(base64_digits &digits, const text_part &part, const run &from) {
    const bool is_first = digits.values.empty() && part.has_begin;
    digits.places.note(digits.values.size(),
                       is_first ? part.begin : part.places.source_of(from.begin),
                       from.width() >= 16);
    for (size_t at = from.begin; at < from.end && part.text[at] != '='; ++at) {
        digits.values += static_cast<char>(values[static_cast<unsigned char>(part.text[at])]);
    }
}

base64_digits all_runs(const text_part &part) {
    base64_digits digits;
    for (run found = next_run(part.text, 0); found.width() > 0;
         found = next_run(part.text, found.end)) {
        append(digits, part, found);
    }
    return digits;
}

// The DER of a certificate starts with these.
constexpr const char *first_digits = "MII";

// How the first line of a certificate stands among other things; the lines after it stand alike.
struct layout {
    size_t column = 0; // where its run starts in its line
    size_t tail = 0;   // what follows the run in its line
    size_t prefix = 0; // what is stuck to its front, such as a diff's sign or a line number
    size_t width = 0;  // of its Base64; 0, if there is no such line
};

// How far the line break is; a long line is not read to its end.
size_t tail_of(std::string_view text, size_t at) {
    return text.substr(at, 64).find('\n');
}

layout find_layout(std::string_view text) {
    for (run found = next_run(text, 0); found.width() > 0; found = next_run(text, found.end)) {
        const size_t prefix = text.substr(found.begin, found.width()).find(first_digits);
        if (prefix <= 16 && found.width() - prefix >= 16) {
            const size_t start = text.substr(0, found.begin).rfind('\n') + 1;
            return {found.begin - start, tail_of(text, found.end), prefix,
                    (found.width() - prefix) & ~size_t{3}};
        }
    }
    return {};
}

// Only runs as wide as the first, and one that is shorter at the end: no page numbers, no comments.
// What is stuck to a shorter run is as wide as what was stuck to the one above it.
base64_digits even_runs(const text_part &part, const layout &first) {
    base64_digits digits;
    run last;
    bool is_aligned = false;
    size_t stuck = 0;
    size_t start = 0; // of the line
    size_t next = part.text.find('\n');
    for (run found = next_run(part.text, 0); found.width() > 0;
         found = next_run(part.text, found.end)) {
        for (; next < found.begin; next = part.text.find('\n', start)) {
            start = next + 1;
        }
        const size_t more = found.width() - std::min(found.width(), first.width);
        if (found.width() >= first.width && more <= 16) {
            stuck = first.prefix > 0 ? more : 0;
            const run line = {found.begin + stuck, found.begin + stuck + first.width};
            if (!part.has_begin && part.text.compare(line.begin, 3, first_digits) == 0) {
                append(digits, part, last); // of the certificate before it
            }
            append(digits, part, line);
            last = {};
            is_aligned = false;
            continue;
        }
        const bool is_next =
            found.begin - start == first.column || tail_of(part.text, found.end) == first.tail;
        const run line = {found.begin + std::min(stuck, found.width()), found.end};
        if (line.width() >= 4 && line.width() < first.width && line.width() % 4 == 0 &&
            (last.width() == 0 || (is_next && !is_aligned))) {
            last = line;
            is_aligned = is_next;
        }
    }
    append(digits, part, last);
    return digits;
}

} // namespace

void place_map::note(size_t at, size_t source, bool is_long) {
    const size_t expected = entries.empty() ? 0 : entries.back().source + at - entries.back().at;
    if (entries.empty() || (source != expected && (is_long || source >= expected + 64))) {
        entries.push_back({at, source});
    }
}

size_t place_map::source_of(size_t at) const {
    const auto next =
        std::upper_bound(entries.begin(), entries.end(), at,
                         [](size_t place, const entry &each) { return place < each.at; });
    return next == entries.begin() ? at : std::prev(next)->source + at - std::prev(next)->at;
}

void for_each_part(std::string_view text, const std::function<void(const text_part &)> &use) {
    text_part part;
    const auto finish = [&](size_t next, bool has_end) {
        const bool is_label = part.text.starts_with("BEGIN") && part.text.size() < min_digits;
        part.has_end = has_end;
        part.is_empty =
            std::search_n(part.text.begin(), part.text.end(), 16, true,
                          [](char byte, bool) { return is_digit(byte); }) == part.text.end();
        if (part.text.size() >= min_digits || part.is_certificate) {
            use(part);
        }
        const bool is_certificate = is_label && part.text.find("CERT") != part.text.npos &&
                                    part.text.find("REQ") == part.text.npos;
        part = {"", {}, is_label ? part.begin : next, is_label, is_certificate, false, false};
    };
    for (size_t at = 0, end = 0; at < text.size(); at = end) {
        end = std::min(text.find_first_of("\r\n", at), text.size() - 1) + 1;
        const std::string line = without_escapes(text.substr(at, end - at));
        for (size_t from = 0, to = 0; from < line.size(); from = to) {
            to = std::min(line.find("----", from), line.size());
            part.places.note(part.text.size(), at + from, true);
            part.text.append(line, from, to - from);
            if (to < line.size()) {
                const size_t dashes = at + to;
                to = std::min(line.find_first_not_of('-', to), line.size());
                finish(dashes, line.compare(to, 3, "END") == 0);
            }
        }
    }
    finish(text.size(), false);
}

std::vector<base64_digits> read_digits(const text_part &part) {
    std::vector<base64_digits> readings = {all_runs(part)};
    const layout first = find_layout(part.text);
    if (first.width > 0) {
        readings.push_back(even_runs(part, first));
    }
    if (readings.back().values == readings[0].values) {
        readings.resize(1);
    }
    std::erase_if(readings, [](const auto &each) { return each.values.size() < min_digits; });
    return readings;
}

std::string decode(const base64_digits &digits, size_t first) {
    std::string bytes;
    bytes.reserve(digits.values.size() * 3 / 4);
    unsigned bits = 0;
    unsigned width = 0;
    for (size_t at = first; at < digits.values.size(); ++at) {
        bits = bits << 6 | static_cast<unsigned char>(digits.values[at]);
        width += 6;
        if (width >= 8) {
            width -= 8;
            bytes += static_cast<char>(bits >> width);
        }
    }
    return bytes;
}
