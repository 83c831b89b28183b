// The library's sinks, taken over by a fuzz target: every report is formatted, and what reaches the
// trace file is kept.
#pragma once

#include <string>

// Ends the program, for libFuzzer to keep the input, unless `holds`.
void check(bool holds, const char *what);

// The lines of the trace file since the last call.
std::string traced();
