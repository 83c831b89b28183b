// Text as the Base64 that it may hold, however it was wrapped, escaped or annotated on its way.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// A text made of pieces of another one, its source.
struct derived_text {
    struct move {
        uint32_t at;
        uint32_t source;
    };
    std::string text;
    std::vector<move> moves; // where pieces start that do not follow each other in the source

    void append(std::string_view piece, size_t source);
    size_t source_of(size_t at) const;
};

// Escapes may stand in escapes, as those of JSON in a URL. The place of a line in the source is
// exact, that of a character within it is not.
derived_text without_escapes(std::string_view text);

// The digits of Base64 in a text, in the ways to read them that could show a certificate: only the
// lines as wide as its first, as many as its length says; and all there are.
std::vector<derived_text> read_digits(std::string_view text);

// The bytes of the digits from `first` on.
std::string decode(const derived_text &digits, size_t first);
