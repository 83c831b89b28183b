// Where the library's reports go while the tool runs.
#pragma once

#include "input.h"

#include <string>

// From now on reports up to this level, given as a number or a name, are shown on standard error.
void show_log(const std::string &level);

// While one lives, reports are shown nowhere: the library is asked about parts of the input.
struct muted_reports {
    muted_reports();
    ~muted_reports();
};

void dump(const input &data, const std::string &label, bool to_trace);

// Adds one line to the trace file.
void trace(const std::string &message);
