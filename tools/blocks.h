// The PEM blocks of a text, as libcrypto and the library read them, with what is wrong with them.
#pragma once

#include "lines.h"
#include "owned.h"

#include <tesra_common.h>

using record_ptr = tesra_owned<tesra_cert_data, tesra_free_cert_data>;

struct block {
    size_t start = 0; // where libcrypto started to read
    size_t begin = 0; // of its BEGIN line
    size_t end = 0;   // after the last line that libcrypto read of it
    size_t first_line = 0;
    size_t last_line = 0;
    std::string kind = {};
    std::string content = {};    // if libcrypto can read it
    bool is_pem = false;         // it can
    bool is_certificate = false; // that the library counts
    bool is_read = true;         // the library stops at what it cannot read
    bool is_reached = true;      // it has not stopped before
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
record_ptr record_of(std::string_view chain, int index);

// How long the DER is that the bytes start with, which may be more than there are.
size_t der_size(std::string_view bytes);
