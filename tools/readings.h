// Text as the Base64 that it may hold, however it was wrapped, escaped or annotated on its way.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

// Where what was made of a text stands in it: exactly where a long run starts, and otherwise less
// than 64 bytes too early.
struct place_map {
    struct entry {
        size_t at;
        size_t source;
    };
    std::vector<entry> entries;

    void note(size_t at, size_t source, bool is_long);
    size_t source_of(size_t at) const;
};

// A part of a text without its escapes, from one row of dashes to the next. Nothing is joined
// across these: what follows a marker line is not the rest of what stands before it.
struct text_part {
    std::string text;
    place_map places;
    size_t begin = 0;            // in the source, with the BEGIN line before it
    bool has_begin = false;      // there is such a line
    bool is_certificate = false; // says that line
    bool has_end = false;        // an END line follows
    bool is_empty = false;       // holds no more than a word of Base64
};

void for_each_part(std::string_view text, const std::function<void(const text_part &)> &use);

// Six bits each.
struct base64_digits {
    std::string values;
    place_map places;
};

// The different ways to read a part that could hold a certificate: every digit, or only the runs
// that stand like its first line.
std::vector<base64_digits> read_digits(const text_part &part);

// The bytes of the digits from `first` on.
std::string decode(const base64_digits &digits, size_t first);
