#include "reports.h"

#include "input.h"
#include "messages.h"

#include <dlfcn.h>
#include <platform_log.h>
#include <tesra_common.h>
#include <tesra_owned.h>

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
tesra_owned<FILE, fclose> trace_file;
size_t traced_lines = 0;

// A report without its line break; of a longer one, the start.
[[gnu::format(printf, 1, 0)]] std::string text_of(const char *format, va_list args) {
    char text[4096] = "";
    vsnprintf(text, sizeof text, format, args);
    std::string report = text;
    report.erase(report.find_last_not_of('\n') + 1);
    return report;
}

} // namespace

void show_reports(const std::string &level) {
    for (const auto &[number, name] : levels) {
        if (level == name || level == std::to_string(number)) {
            shown_level = number;
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

void open_trace_file() {
    trace_file.reset(fopen(TESRA_TRACE_FILE, "a+"));
    if (trace_file == nullptr || fseek(trace_file.get(), 0, SEEK_END) != 0) {
        throw refusal(std::string(TESRA_TRACE_FILE ": ") + strerror(errno));
    }
}

// A line that arrived in part has no line break, or the next line's.
void check_trace_file() {
    for (; traced_lines > 0; --traced_lines) {
        char line[512] = "";
        if (fgets(line, sizeof line, trace_file.get()) == nullptr ||
            strchr(line, '\n') == nullptr) {
            throw refusal(TESRA_TRACE_FILE ": a line could not be written");
        }
    }
}

extern "C" int platform_log_write(int level, int, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const std::string text = text_of(format, args);
    va_end(args);
    if (keeper != nullptr && level == 2) {
        // "<file>:<line>:" in front is the library's own position.
        keeper->texts.push_back(text.substr(text.find(':', text.find(':') + 1) + 1));
    }
    for (const auto &[number, name] : levels) {
        if (keeper == nullptr && level == number && level <= shown_level) {
            complain(std::string(name) + ": " + escaped(text));
        }
    }
    return 0;
}

// Errors come from the library itself; everything else was asked for.
extern "C" void tesra_trace(uint8_t level, const char *file, uint32_t line, const char *format,
                            ...) {
    if (level == 2) {
        return;
    }
    va_list args;
    va_start(args, format);
    const std::string text = text_of(format, args);
    va_end(args);
    if (trace_file == nullptr) {
        std::cout << escaped(text) << '\n';
        return;
    }
    static const auto trace =
        reinterpret_cast<decltype(&tesra_trace)>(dlsym(RTLD_NEXT, "tesra_trace"));
    trace(level, file, line, "%s\n", text.c_str());
    ++traced_lines;
}
