#include "messages.h"

#include <cstdio>
#include <cwchar>
#include <cwctype>
#include <iostream>

namespace {

// Whether a character cannot be seen, looks like a blank, or reorders the text around it: each can
// make one name look like another. Those that combine with the one in front are seen, except the
// variation selectors and two vowels of Khmer.
bool hides_itself(wchar_t character) {
    const auto code = std::wint_t{static_cast<unsigned>(character)};
    if (wcwidth(character) == 0 && std::iswctype(code, std::wctype("combining")) == 0) {
        return true;
    }
    if (std::iswspace(code) != 0 && character != L' ') {
        return true;
    }
    return (code >= 0x17B4 && code <= 0x17B5) || (code >= 0x180B && code <= 0x180F) ||
           (code >= 0xFE00 && code <= 0xFE0F) || (code >= 0xE0100 && code <= 0xE01EF) ||
           std::wcschr(L"\u00A0\u00AD\u034F\u115F\u2007\u202F\u2800\u3164\uFFA0", character) !=
               nullptr;
}

} // namespace

// The backslash is escaped too, so that no text can pretend to hold an escaped character.
std::string escaped(std::string_view text) {
    std::string shown;
    std::mbstate_t state = {};
    while (!text.empty()) {
        wchar_t character = 0;
        const size_t length = std::mbrtowc(&character, text.data(), text.size(), &state);
        char escape[16];
        if (length > text.size()) {
            snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned char>(text[0]));
            state = {};
        } else if (!std::iswprint(static_cast<std::wint_t>(character)) || hides_itself(character)) {
            snprintf(escape, sizeof escape, "\\u{%X}", static_cast<unsigned>(character));
        } else {
            snprintf(escape, sizeof escape, "%s%.*s", character == L'\\' ? "\\" : "",
                     static_cast<int>(length), text.data());
        }
        shown += escape;
        text.remove_prefix(length > text.size() || length == 0 ? 1 : length);
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
