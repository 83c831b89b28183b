// Which lines are to blame: the marker lines that no block uses, and the first wrong line of a
// block that cannot be read.
#pragma once

#include <string>
#include <vector>

struct line_fault {
    size_t line = 0;  // from 1
    std::string text; // empty, if there is none
    std::string remedy;
};

// A line that looks like the BEGIN or the END line of a PEM block, in any case, with any number of
// dashes, with anything in front or after.
struct marker_line {
    size_t begin;
    size_t end; // after its line break
    bool is_begin;
    bool is_base64;   // no such line, but the start of a certificate without a BEGIN line before it
    bool is_good;     // just as it should be
    std::string kind; // that it names
    line_fault fault; // why no block uses it
};

// All such lines, if there are any, but those that a comment quotes: with other words around them,
// and no Base64 next to them.
std::vector<marker_line> find_marker_lines(std::string_view text);

// Why a block, whose first line has that number, cannot be read, up to a line in it that looks like
// a marker; or, if it can be read here, why other machines refuse it.
line_fault first_wrong_line(std::string_view block, size_t number, bool is_readable);

// Whether the text has a run of Base64 that is longer than any word.
bool holds_base64(std::string_view text);
