// What each PEM block of a chain is, and why the library refuses the chain. Prints nothing.
//
// Where a block begins and ends is libcrypto's affair, and whether the chain counts is the
// library's. What is said here explains what these two do.
#pragma once

#include "chain.h"

struct diagnosis {
    std::vector<finding> findings;
    std::string verdict; // with the chain's name in front
    std::string remedy;  // in words, or a command that makes a good chain, CHAIN; or empty
    std::string others;  // the faults that the verdict is not about

    std::string in_one_line() const;
};

// `certificates` is what the library counts.
diagnosis diagnose(const input &chain, uint32_t certificates);
