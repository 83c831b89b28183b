// The lines of PEM: those which look like a BEGIN or an END line, and the first wrong line of a
// block that cannot be read.
#pragma once

#include "faults.h"

#include <string_view>
#include <vector>

// Counts lines up to places that are asked for in the order of the text.
struct line_counter {
    std::string_view text;
    size_t at = 0;
    size_t line = 1;

    size_t line_of(size_t place);
};

struct marker_line {
    size_t begin;
    size_t end; // after its line break
    bool is_begin;
    bool is_good; // just as it should be
    bool has_bom; // and a byte order mark before it, which libcrypto skips where it starts to read
    std::string kind; // that it names, if it is good
    fault problem;    // why no block uses it
};

// Those that look like one in any case, with any number of dashes, with anything around them.
std::vector<marker_line> find_marker_lines(std::string_view text);

// Why a block, whose first line has that number, cannot be read, up to a line in it that looks like
// a marker.
fault first_wrong_line(std::string_view block, size_t number);
