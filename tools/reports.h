// What becomes of the library's reports while the tool runs.
//
// The platform's log and the trace file belong to the daemon. The tool defines platform_log_write
// and tesra_trace itself, and the dynamic linker gives them to the library in place of the
// platform's and its own: an inspection by hand leaves no errors that the daemon never met.
#pragma once

#include <string>
#include <vector>

// From now on reports up to this level, given as a number or a name, are shown on standard error.
void show_reports(const std::string &level);

// While it lives, and there is one at a time, reports are shown nowhere, and the errors among them
// are kept: the library is asked about parts of the input.
struct kept_errors {
    kept_errors();
    ~kept_errors();
    std::vector<std::string> texts; // without file, line and line break
};

// From now on the lines of tesra_dump and tesra_trace go to the trace file, and not to standard
// output.
void open_trace_file();

// Throws a refusal if not every line has arrived there, which the library does not tell.
void check_trace_file();
