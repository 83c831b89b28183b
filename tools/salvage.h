// Every certificate that a text holds, whether the library reads it or only a search finds it.
#pragma once

#include "blocks.h"

struct salvaged {
    size_t line;
    bool is_counted; // by the library
    std::string der;
};

struct salvage {
    std::vector<salvaged> certificates; // in the order of the text
    std::vector<fault> losses;          // what starts like a certificate and cannot be read
};

// `is_chain` says that the library counts the text's certificates.
salvage salvage_certificates(std::string_view text, const std::vector<block> &blocks,
                             bool is_chain);
