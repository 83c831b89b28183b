#include "readings.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <utility>

namespace {

// Fewer digits hold no certificate.
constexpr size_t min_digits = 100;

// How long an escape is, and what it stands for; NUL is nothing.
struct escape {
    size_t length = 0;
    char meaning = 0;
};

// Of C and JSON, RTF, PowerShell, less(1) and HTML. ^M alone could be followed by the rest of MII.
constexpr struct {
    std::string_view text;
    char meaning;
} fixed_escapes[] = {
    {"\\n", '\n'},       {"\\r", '\n'},   {"\\t", ' '},    {"\\e", '\x1B'}, {"\\par", '\n'},
    {"\\line", '\n'},    {"`n", '\n'},    {"`r", '\n'},    {"^J", '\n'},    {"^M\n", '\n'},
    {"^M^J", '\n'},      {"^M$", '\n'},   {"^[", '\x1B'},  {"&lt;", '<'},   {"&gt;", '>'},
    {"&amp;", '&'},      {"&quot;", '"'}, {"&plus;", '+'}, {"&sol;", '/'},  {"&equals;", '='},
    {"&NewLine;", '\n'},
};

// Of C and JSON, URLs, mail, HTML and syslog. Those of HTML have up to so many digits.
constexpr struct {
    std::string_view prefix;
    int base;
    size_t digits;
} numeric_escapes[] = {
    {"\\u", 16, 4}, {"\\x", 16, 2}, {"\\", 8, 3},  {"%u", 16, 4}, {"%", 16, 2},
    {"=", 16, 2},   {"&#x", 16, 6}, {"&#", 10, 6}, {"#", 8, 3},
};

escape numeric_escape(std::string_view text) {
    for (const auto &[prefix, base, digits] : numeric_escapes) {
        if (!text.starts_with(prefix)) {
            continue;
        }
        const std::string_view number = text.substr(prefix.size(), digits);
        const char *const start = number.data();
        unsigned code = 0;
        const auto [end, error] = std::from_chars(start, start + number.size(), code, base);
        const auto length = static_cast<size_t>(end - start);
        const bool is_whole = length == digits || (prefix[0] == '&' && length > 0);
        if (is_whole && code < 0x80) {
            const bool has_end = prefix[0] == '&' && number.substr(length, 1) == ";";
            return {prefix.size() + length + has_end, static_cast<char>(code)};
        }
    }
    return {};
}

// A tag of HTML; a colour of a terminal or a link, up to a bell.
escape long_escape(std::string_view text) {
    size_t end = text.npos;
    const auto next = static_cast<unsigned char>(text.substr(0, 2).back());
    if (text[0] == '<' && (std::isalpha(next) != 0 || next == '/')) {
        end = text.substr(0, 256).find_first_of("<>", 1);
    } else if (text.starts_with("\x1B[")) {
        end = text.find_first_not_of("0123456789;?", 2);
    } else if (text.starts_with("\x1B]")) {
        end = text.substr(0, 256).find_first_of("\x07\x1B", 1);
    }
    if (end < text.size() && std::string_view(">mK\x07\x1B").find(text[end]) != text.npos) {
        return {end + (text[end] == '\x1B' ? 2 : 1), text[0] == '<' ? '\n' : '\0'};
    }
    return {};
}

escape read_escape(std::string_view text) {
    for (const auto &known : fixed_escapes) {
        if (text.starts_with(known.text)) {
            return {known.text.size(), known.meaning};
        }
    }
    const escape number = numeric_escape(text);
    const escape found = number.length > 0 ? number : long_escape(text);
    if (found.length > 0) {
        return found;
    }
    return {1, text[0] == '\\' || text[0] == '\x1B' ? '\0' : text[0]};
}

std::string unescape(std::string_view line) {
    std::string text;
    while (!line.empty()) {
        const size_t plain = std::min(line.find_first_of("\\`^#%=&<\x1B"), line.size());
        text += line.substr(0, plain);
        line.remove_prefix(plain);
        if (!line.empty()) {
            const escape found = read_escape(line);
            text.append(found.meaning != '\0', found.meaning);
            line.remove_prefix(std::min(found.length, line.size()));
        }
    }
    return text;
}

bool is_digit(char byte) {
    return std::isalnum(static_cast<unsigned char>(byte)) != 0 ||
           std::string_view("+/-_").find(byte) != std::string_view::npos;
}

// The next digits that stand together, of the URL-safe alphabet, too; an empty run at the end.
std::string_view next_run(std::string_view text, size_t at) {
    const auto begin = std::find_if(text.begin() + static_cast<long>(at), text.end(), is_digit);
    return {begin, std::find_if_not(begin, text.end(), is_digit)};
}

derived_text all_runs(std::string_view text) {
    derived_text digits;
    for (std::string_view run = next_run(text, 0); !run.empty();
         run = next_run(text, static_cast<size_t>(run.end() - text.begin()))) {
        digits.append(run, static_cast<size_t>(run.begin() - text.begin()));
    }
    return digits;
}

// A certificate whose lines stand like its first one.
struct layout {
    size_t prefix = 0;  // what is stuck to the last line found: a diff's sign or a line number
    size_t suffix = 0;  // and to its end
    size_t width = 0;   // without these
    size_t column = 0;  // of the last line found
    size_t tail = 0;    // what follows that in its line
    size_t missing = 0; // digits
    std::vector<std::string_view> lines;
};

// The number of a line may have a digit more than that of the line above it.
bool is_near(size_t prefix, size_t before) {
    return prefix + 1 >= before && prefix <= before + 1;
}

// The DER of a certificate starts with its length. So does that of a key within it, but there is no
// long sequence at the start of a key.
void read_start(std::string_view run, layout &cert) {
    const size_t prefix = run.substr(0, 32).find("MII");
    if (prefix > 16 || run.size() < prefix + 16) {
        return;
    }
    const std::string bytes = decode({std::string(run.substr(prefix, 8)), {}}, 0);
    const auto byte = [&](size_t at) { return static_cast<unsigned char>(bytes[at]); };
    if (cert.missing == 0 || (is_near(prefix, cert.prefix) && byte(4) == 0x30 && byte(5) >= 0x80)) {
        const size_t width = run.size() - prefix;
        const size_t suffix = width % 4 == 1 ? 1 : 0; // no line of Base64 ends like this
        const size_t size = byte(2) * 256U + byte(3) + 4U;
        cert = {prefix, suffix, width - suffix, 0, 0, (size * 4 + 2) / 3, {}};
    }
}

// Whether a run of digits is the next line. `column` is where it starts, `tail` what follows it.
bool is_next(const layout &cert, std::string_view run, size_t column, size_t tail) {
    const size_t wanted = std::min(cert.width, cert.missing);
    if (wanted == 0 || run.size() < wanted) {
        return false;
    }
    const size_t stuck = run.size() - wanted;
    const bool is_last = wanted < cert.width;
    if (is_last && column != cert.column && (tail != cert.tail || stuck != cert.prefix)) {
        return false;
    }
    return cert.prefix > 0 ? is_near(stuck, cert.prefix) : stuck <= cert.suffix;
}

derived_text even_lines(std::string_view text) {
    derived_text digits;
    layout cert;
    size_t line = 0; // where it starts
    for (size_t at = 0; at < text.size();) {
        const std::string_view run = next_run(text, at);
        const auto begin = static_cast<size_t>(run.begin() - text.begin());
        const size_t line_break = text.substr(at, begin - at).rfind('\n');
        line = line_break == text.npos ? line : at + line_break + 1;
        at = std::min(text.find_first_not_of('=', begin + run.size()), text.size());
        const size_t tail = text.substr(at, 64).find('\n');
        read_start(run, cert);
        if (is_next(cert, run, begin - line, tail)) {
            const size_t wanted = std::min(cert.width, cert.missing);
            cert.prefix = cert.prefix > 0 ? run.size() - wanted : 0;
            cert.lines.push_back(run.substr(cert.prefix, wanted));
            cert.missing -= wanted;
            cert.column = begin - line;
            cert.tail = tail;
        } else if (run.size() >= cert.width) {
            cert = {}; // its next line is part of this one
        }
        if (cert.missing == 0) {
            for (const std::string_view &each : std::exchange(cert.lines, {})) {
                digits.append(each, static_cast<size_t>(each.begin() - text.begin()));
            }
        }
    }
    return digits;
}

} // namespace

void derived_text::append(std::string_view piece, size_t source) {
    if (source_of(text.size()) != source) {
        moves.push_back({static_cast<uint32_t>(text.size()), static_cast<uint32_t>(source)});
    }
    text += piece;
}

size_t derived_text::source_of(size_t at) const {
    const auto next =
        std::upper_bound(moves.begin(), moves.end(), at,
                         [](size_t place, const move &each) { return place < each.at; });
    return next == moves.begin() ? at : std::prev(next)->source + at - std::prev(next)->at;
}

derived_text without_escapes(std::string_view text) {
    derived_text plain;
    for (size_t at = 0, end = 0; at < text.size(); at = end) {
        end = std::min(text.find_first_of("\r\n", at), text.size() - 1) + 1;
        std::string line(text.substr(at, end - at));
        std::erase(line, '\0'); // as in UTF-16
        for (size_t pass = 0, before = line.size() + 1; pass < 4 && line.size() < before; ++pass) {
            before = line.size();
            line = unescape(line);
        }
        plain.append(line, at);
    }
    return plain;
}

std::vector<derived_text> read_digits(std::string_view text) {
    std::vector<derived_text> readings = {even_lines(text), all_runs(text)};
    if (readings[0].text == readings[1].text) {
        readings.pop_back();
    }
    std::erase_if(readings, [](const auto &each) { return each.text.size() < min_digits; });
    return readings;
}

std::string decode(const derived_text &digits, size_t first) {
    std::string text = digits.text.substr(first) + "AAA";
    std::replace(text.begin(), text.end(), '-', '+');
    std::replace(text.begin(), text.end(), '_', '/');
    std::string bytes(text.size() / 4 * 3, '\0');
    EVP_DecodeBlock(reinterpret_cast<unsigned char *>(bytes.data()),
                    reinterpret_cast<const unsigned char *>(text.data()),
                    static_cast<int>(text.size() / 4 * 4));
    bytes.resize((text.size() - 3) * 3 / 4);
    return bytes;
}
