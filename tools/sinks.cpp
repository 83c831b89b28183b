#include "sinks.h"

#include <dlfcn.h>
#include <platform_log.h>
#include <tesra_common.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iostream>

namespace {

constexpr struct {
    int level;
    const char *number;
    const char *name;
} log_levels[] = {{2, "2", "error"}, {3, "3", "warning"}, {4, "4", "info"}, {11, "11", "debug"}};

// Reports up to this level go to standard error, and further ones nowhere: the platform's log, like
// the trace file, is there for the daemon.
int shown_level = []() noexcept {
    const char *const level = getenv("PLATFORM_LOG_STDERR");
    return level == nullptr ? 0 : atoi(level);
}();

// Whether the lines of tesra_dump go to standard output instead of the platform log.
bool dump_to_stdout = false;

bool trace_file_is_wanted = false;

bool reports_are_muted = false;

void show_report(int level, std::string_view text) {
    while (text.ends_with('\n')) {
        text.remove_suffix(1);
    }
    for (const auto &known : log_levels) {
        if (known.level == level) {
            complain(std::string(known.name) + ": " + escaped(text));
        }
    }
}

// tesra_trace does not tell whether a line arrived, so the tool looks first.
void want_trace_file() {
    trace_file_is_wanted = true;
    FILE *const file = fopen(TESRA_TRACE_FILE, "a+");
    if (file == nullptr) {
        throw refusal(std::string(TESRA_TRACE_FILE ": ") + strerror(errno));
    }
    fclose(file);
}

} // namespace

void show_log(const std::string &level) {
    for (const auto &known : log_levels) {
        if (level == known.number || level == known.name) {
            shown_level = known.level;
            return;
        }
    }
    throw wrong_usage("--log: must be 2 (error), 3 (warning), 4 (info) or 11 (debug)");
}

muted_reports::muted_reports() {
    reports_are_muted = true;
}

muted_reports::~muted_reports() {
    reports_are_muted = false;
}

void dump(const input &data, const std::string &label, bool to_trace) {
    if (data.bytes.empty()) {
        throw refusal(data.name + ": nothing to show");
    }
    if (to_trace) {
        want_trace_file();
    }
    dump_to_stdout = !to_trace;
    tesra_dump(to_trace ? TESRA_DUMP_TRACE : TESRA_DUMP_LOG, label.c_str(), bytes_of(data),
               data.length());
    dump_to_stdout = false;
}

// A line of the trace file has at most 511 characters, its header included.
void trace(const std::string &message) {
    if (message.size() > 400 || message.find('\n') != std::string::npos) {
        throw wrong_usage("MESSAGE: must be one line of at most 400 bytes");
    }
    want_trace_file();
    tesra_trace(4, "tesra", __LINE__, "%s\n", message.c_str());
}

// The dynamic linker gives the library these two in place of the platform log's and the C
// library's.

extern "C" int platform_log_write(int level, int, const char *format, ...) {
    const bool is_dump = dump_to_stdout && level == 4;
    if (!is_dump && (level > shown_level || reports_are_muted)) {
        return 0;
    }
    va_list args;
    va_start(args, format);
    char *raw_text = nullptr;
    const int length = vasprintf(&raw_text, format, args);
    va_end(args);
    if (length < 0) {
        return -1;
    }
    const heap_ptr<char> text(raw_text);
    if (is_dump) {
        // "<file>:<line>:" in front is the library's own position.
        std::cout << strchr(strchr(raw_text, ':') + 1, ':') + 1;
    } else {
        show_report(level, raw_text);
    }
    return 0;
}

// Only the commands that are there to write into the trace file reach it.
extern "C" FILE *fopen(const char *path, const char *mode) {
    static const auto next = reinterpret_cast<decltype(&fopen)>(dlsym(RTLD_NEXT, "fopen"));
    if (!trace_file_is_wanted && mode[0] == 'a' && strcmp(path, TESRA_TRACE_FILE) == 0) {
        errno = EACCES;
        return nullptr;
    }
    return next(path, mode);
}
