#include "messages.h"

#include <cstdio>
#include <cwchar>
#include <cwctype>
#include <iostream>

namespace {

// Whether a character cannot be seen, looks like a blank, or reorders the text around it: each can
// make one name look like another. Those that combine with the one in front are seen. The C library
// takes the last ones for visible.
bool hides_itself(wchar_t character) {
    const auto code = std::wint_t{static_cast<unsigned>(character)};
    const bool is_mark = std::iswctype(code, std::wctype("combining")) != 0;
    if (std::iswgraph(code) == 0 || (wcwidth(character) == 0 && !is_mark)) {
        return character != L' ';
    }
    const bool is_selector =
        (code >= 0xFE00 && code <= 0xFE0F) || (code >= 0xE0100 && code <= 0xE01EF);
    return is_selector || std::wcschr(L"\u00A0\u00AD\u034F\u115F\u17B4\u17B5\u180B\u180C\u180D"
                                      L"\u180F\u2007\u202F\u2800\u3164\uFFA0",
                                      character) != nullptr;
}

} // namespace

// The backslash is escaped too, so that no text can pretend to hold an escaped character.
std::string escaped(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        wchar_t character = 0;
        std::mbstate_t state = {};
        const size_t length = std::mbrtowc(&character, text.data(), text.size(), &state);
        const bool is_utf8 = length <= text.size();
        const std::string_view bytes = text.substr(0, is_utf8 && length > 0 ? length : 1);
        text.remove_prefix(bytes.size());
        char escape[16] = "";
        if (!is_utf8) {
            snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned char>(bytes[0]));
        } else if (hides_itself(character)) {
            snprintf(escape, sizeof escape, "\\u{%X}", static_cast<unsigned>(character));
        } else {
            shown += character == L'\\' ? "\\\\" : bytes;
        }
        shown += escape;
    }
    return shown;
}

std::string excerpt(std::string_view text) {
    return escaped(text.substr(0, 64)) +
           (text.size() > 64 ? "... and " + counted(text.size() - 64, "byte") : "");
}

std::string in_quotes(std::string_view text) {
    return '"' + excerpt(text) + '"';
}

std::string counted(size_t number, const std::string &noun) {
    return std::to_string(number) + ' ' + noun + (number == 1 ? "" : "s");
}

void complain(const std::string &text) {
    std::cerr << "tesra: " << text << '\n';
}
