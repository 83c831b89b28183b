// The PEM blocks of a text, as libcrypto and the library read them, with what is wrong with them.
#pragma once

#include "lines.h"

#include <tesra_common.h>
#include <tesra_owned.h>
#include <vector>

using record_ptr = tesra_owned<tesra_cert_data, tesra_free_cert_data>;

struct block {
    size_t begin = 0; // of its BEGIN line
    size_t end = 0;   // after the last line that libcrypto read of it
    size_t first_line = 0;
    size_t last_line = 0;
    std::string kind = {};
    std::string content = {};    // empty, if libcrypto cannot read it
    body lines = {};             // between its first and its last
    bool is_certificate = false; // that the library counts
    bool is_read = false;        // the library stops at what it cannot read
    bool is_reached = false;     // it has not stopped before
    int position = -1;           // of a certificate that it reaches
    record_ptr record = {};      // if the library makes one
    fault problem = {};
};

struct block_list {
    std::vector<block> blocks;
    std::vector<fault> strays; // lines that look like part of a block, and belong to none
};

// One pass with the reader that the library uses. It goes on after a block that cannot be read, as
// the library does not.
block_list read_blocks(std::string_view text);

uint32_t count_certificates(std::string_view chain);

// How long DER says that it is, which may be more than there is. Indefinite lengths say nothing;
// then it is all.
size_t der_size(std::string_view bytes);
