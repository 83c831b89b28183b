// Whether the library takes a text for a chain and, if not, why.
#pragma once

#include "salvage.h"

struct verdict {
    block_list list;
    uint32_t count = 0; // of the certificates that the library counts
    fault cause = {};   // why it counts none
    salvage recoverable;
    std::string text = {}; // in one line, without the file's name
};

verdict judge_chain(std::string_view chain);
