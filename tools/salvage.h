// Every certificate that a text holds, whether the library reads it or only a search finds it.
#pragma once

#include "blocks.h"

struct salvaged {
    size_t line;
    bool is_reached; // by the library
    std::string der;
};

struct salvage {
    std::string_view text;
    size_t at = 0; // what stands before it has been searched
    size_t line = 1;
    std::vector<salvaged> certificates = {}; // in the order of the text
    std::vector<fault> losses = {};          // what starts like a certificate and cannot be read
};

salvage salvage_certificates(std::string_view text, const std::vector<block> &blocks);
