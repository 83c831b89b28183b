#include "input.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <iostream>
#include <limits>

namespace {

using file_ptr = std::unique_ptr<FILE, decltype([](FILE *file) { fclose(file); })>;

// Characters that reorder the text around them can make one name look like another.
bool reorders_text(wchar_t character) {
    return character == 0x061C || character == 0x200E || character == 0x200F ||
           (character >= 0x202A && character <= 0x202E) ||
           (character >= 0x2066 && character <= 0x2069);
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
        } else if (!std::iswprint(static_cast<std::wint_t>(character)) ||
                   reorders_text(character)) {
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

// The library takes no chain of 2^31 bytes or more, so no more than that is read.
input read_input(const std::string &path) {
    constexpr size_t most = std::numeric_limits<int32_t>::max();
    const bool from_stdin = path == "-";
    input whole = {from_stdin ? "standard input" : escaped(path), ""};
    const file_ptr opened(from_stdin ? nullptr : fopen(path.c_str(), "rb"));
    FILE *const file = from_stdin ? stdin : opened.get();
    char chunk[65536];
    size_t got = 1;
    while (file != nullptr && got > 0 && whole.bytes.size() <= most) {
        got = fread(chunk, 1, sizeof chunk, file);
        whole.bytes.append(chunk, got);
    }
    if (file == nullptr || ferror(file) != 0) {
        throw refusal(whole.name + ": " + strerror(errno));
    }
    if (whole.bytes.size() > most) {
        throw refusal(whole.name + ": 2 GiB or larger");
    }
    return whole;
}

const uint8_t *bytes_of(const input &data) {
    return reinterpret_cast<const uint8_t *>(data.bytes.data());
}

int for_each_file(const std::vector<std::string> &paths,
                  const std::function<bool(const input &)> &handle) {
    int status = 0;
    for (const std::string &path : paths.empty() ? std::vector<std::string>{"-"} : paths) {
        try {
            status = handle(read_input(path)) ? status : 1;
        } catch (const refusal &reason) {
            complain(reason.what());
            status = 1;
        }
    }
    return status;
}

void complain(const std::string &text) {
    std::cerr << "tesra: " << text << '\n';
}
