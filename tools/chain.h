// The PEM blocks of a chain, and what the library reads from them.
#pragma once

#include "input.h"

#include <tesra_common.h>

#include <memory>
#include <string>
#include <vector>

struct free_record {
    void operator()(tesra_cert_data *data) const {
        tesra_free_cert_data(data);
    }
};
using record_ptr = std::unique_ptr<tesra_cert_data, free_record>;

struct pem_block {
    enum {
        readable,
        unreadable,
        hidden, // a BEGIN line that nobody sees, since it does not stand at the start of a line
    } state = readable;
    size_t begin = 0;      // of its BEGIN line
    size_t end = 0;        // behind its END line
    size_t first_line = 1; // from 1
    size_t last_line = 1;
    std::string kind;   // as its BEGIN line names it
    std::string fault;  // what is wrong with it, or empty
    std::string remedy; // what to do about that
};

// One pass over the text with the reader that the library uses. It goes on behind a block that
// cannot be read, as the library does not.
std::vector<pem_block> read_blocks(const input &chain);

// Whether the library takes such a block for a certificate; it passes over the others.
bool is_certificate(const pem_block &block);

uint32_t count_certificates(const input &chain);

// What the library hands out for position 0 of the block's text alone, which is the same as for the
// block's position in the chain and spares it all the blocks in front. May be null.
record_ptr read_certificate(const input &chain, const pem_block &block);

// Whether the block's text alone is a chain that the library counts.
bool counts(const input &chain, const pem_block &block);
