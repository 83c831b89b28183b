// What a chain holds: its PEM blocks, as libcrypto and the library read them, and the lines that
// look like part of a block and are not.
#pragma once

#include "input.h"
#include "lines.h"

#include <tesra_common.h>

struct finding {
    size_t begin = 0; // of a block's BEGIN line, in the text
    size_t end = 0;   // after the last line that libcrypto reads of it
    size_t first_line = 1;
    size_t last_line = 1;
    std::string kind = {}; // as the BEGIN line names it; none, of a line that is no block
    line_fault fault = {};
    bool is_read = true;         // the library stops at what it cannot read
    bool is_reached = true;      // it has not stopped before
    bool is_certificate = false; // that the library counts
    enum { nothing, trusted, cms, certificate } holds = nothing; // that the library passes over
    int position = -1;                                           // as a certificate that it reaches
    std::vector<std::string> texts = {}; // of its record, in order; none, if it has none
};

uint32_t count_certificates(std::string_view chain);

// The texts of a certificate's record, in order; none, if it has no record.
std::vector<std::string> texts_of(std::string_view chain, int index);

// One pass over the text with the reader that the library uses. It goes on after a block that
// cannot be read, as the library does not.
std::vector<finding> read_chain(const input &chain);

// How many certificates the bytes are, one after another; 0, if they are anything else, too, but
// for a line break.
size_t count_der(std::string_view bytes);
