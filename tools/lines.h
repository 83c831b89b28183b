// The lines of PEM: BEGIN and END lines and their like, and those between.
#pragma once

#include "faults.h"

#include <optional>
#include <string_view>

// Without what libcrypto skips at the end of a line: blanks, control characters and, where the
// machine's char is signed, bytes beyond ASCII.
std::string_view trimmed(std::string_view line);

struct marker {
    bool is_begin;
    std::string kind; // that it names; empty, if the line is not just as it should be
    fault problem;    // why no block uses it
};

// Of a line that looks like one in any case, with any number of dashes, with anything around them.
std::optional<marker> read_marker(std::string_view line, size_t number);

// The lines of a block that have been read, between its BEGIN and its END line.
struct body {
    size_t size = 0;    // without headers and line breaks; a blank line counts as one byte
    size_t padding = 0; // the line where it starts
};

// What is wrong with the next line.
fault read_body_line(std::string_view line, size_t number, body &before);
