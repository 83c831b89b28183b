#include "reports.h"

#include "input.h"
#include "messages.h"
#include "owned.h"

#include <dlfcn.h>
#include <platform_log.h>
#include <tesra_common.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iostream>

namespace {

constexpr std::pair<int, const char *> levels[] = {
    {2, "error"}, {3, "warning"}, {4, "info"}, {11, "debug"}};

const char *const setting = getenv("PLATFORM_LOG_STDERR");
int shown_level = setting == nullptr ? 0 : atoi(setting);

kept_errors *keeper = nullptr;
bool dumps_are_printed = false;
bool trace_file_is_written = false;
bool trace_line_is_lost = false;

using file_ptr = tesra_owned<FILE, fclose>;

// How long the trace file is; 0, if its last line is cut.
long whole_lines() {
    const file_ptr file(fopen(TESRA_TRACE_FILE, "rb"));
    if (file == nullptr || fseek(file.get(), -1, SEEK_END) != 0 || getc(file.get()) != '\n') {
        return 0;
    }
    return ftell(file.get());
}

} // namespace

void show_reports(const std::string &level) {
    for (const auto &[known, name] : levels) {
        if (level == name || level == std::to_string(known)) {
            shown_level = known;
            return;
        }
    }
    throw wrong_usage("--log: must be 2 (error), 3 (warning), 4 (info) or 11 (debug)");
}

kept_errors::kept_errors() {
    keeper = this;
}

kept_errors::~kept_errors() {
    keeper = nullptr;
}

void print_dumps() {
    dumps_are_printed = true;
}

void write_trace_file(const std::function<void()> &write) {
    const file_ptr file(fopen(TESRA_TRACE_FILE, "a+"));
    if (file == nullptr) {
        throw refusal(std::string(TESRA_TRACE_FILE ": ") + strerror(errno));
    }
    trace_file_is_written = true;
    write();
    if (trace_line_is_lost) {
        throw refusal(TESRA_TRACE_FILE ": a line could not be written");
    }
}

extern "C" int platform_log_write(int level, int, const char *format, ...) {
    const bool is_dump = dumps_are_printed && level == 4;
    if (keeper != nullptr ? level != 2 : level > shown_level && !is_dump) {
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
    const heap_ptr<char> owner(raw_text);
    std::string text = raw_text;
    text.erase(text.find_last_not_of('\n') + 1);
    // "<file>:<line>:" in front is the library's own position.
    const std::string message = text.substr(text.find(':', text.find(':') + 1) + 1);
    if (keeper != nullptr) {
        keeper->texts.push_back(message);
        return 0;
    }
    if (is_dump) {
        std::cout << escaped(message) << '\n';
    } else {
        const char *const name = level == 2   ? "error"
                                 : level == 3 ? "warning"
                                 : level == 4 ? "info"
                                              : "debug";
        complain(std::string(name) + ": " + escaped(text));
    }
    return 0;
}

extern "C" void tesra_trace(uint8_t level, const char *file, uint32_t line, const char *format,
                            ...) {
    static const auto trace =
        reinterpret_cast<decltype(&tesra_trace)>(dlsym(RTLD_NEXT, "tesra_trace"));
    char text[512]; // as much as a line has room for
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    if (trace_file_is_written) {
        const long before = whole_lines();
        trace(level, file, line, "%s", text);
        trace_line_is_lost = trace_line_is_lost || whole_lines() <= before;
    }
}
