// What is wrong with a chain, in words that name the remedy.
#pragma once

#include "chain.h"

#include <string>
#include <vector>

struct block_finding {
    pem_block block;
    int position = -1;               // as a certificate; -1 is none
    bool is_reached = true;          // the library stops at what it cannot read
    std::string subject_common_name; // of a certificate that the library shows
    std::string not_after;
};

struct finding {
    uint32_t certificates; // what the library counts
    std::vector<block_finding> blocks;
    std::string verdict; // with the chain's name in front
};

// `certificates` is what the library counts: it has the last word, and the blocks explain it.
finding examine(const input &chain, uint32_t certificates);

// Prints what is found in each file. Returns the exit status.
int check(const std::vector<std::string> &files, bool as_json);
