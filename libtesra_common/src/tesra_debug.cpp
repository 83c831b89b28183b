#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include "tesra_log.h"
#include "tesra_owned.h"

namespace {

// Failures are not reported: reporting them would recurse.
void tesra_append_line(const char *text) {
    const tesra_owned<FILE, fclose> trace(fopen(TESRA_TRACE_FILE, "a+"));
    if (trace != nullptr) {
        fputs(text, trace.get());
    }
}

} // namespace

void tesra_trace(uint8_t level, const char *file, uint32_t line, const char *format, ...) {
    const int saved_errno = errno;
    char text[512] = {};
    struct timeval now = {};
    gettimeofday(&now, nullptr);
    struct tm local = {};
    if (localtime_r(&now.tv_sec, &local) == nullptr) {
        local = {};
    }
    snprintf(text, sizeof text,
             "%04d-%02d-%02dT%02d:%02d:%02d.%06ld L%d [%d] %s:%u:", local.tm_year + 1900,
             local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
             static_cast<long>(now.tv_usec), level, getpid(), file, line);

    const size_t header_length = strlen(text);
    va_list args;
    va_start(args, format);
    errno = saved_errno; // the message may ask for it with %m
    vsnprintf(text + header_length, sizeof text - header_length, format, args);
    va_end(args);

    tesra_append_line(text);
    errno = saved_errno;
}

void tesra_dump(uint8_t flags, const char *label, const uint8_t *buffer, uint32_t length) {
    constexpr uint32_t bytes_per_line = 16;
    constexpr size_t bound = 127; // not 128: a line has at most 126 characters
    char line[128] = {};
    if (buffer == nullptr) {
        TESRA_LOG_ERROR("%s\n", "Invalid arguments");
        return;
    }
    if (length == 0) {
        TESRA_LOG(TESRA_LEVEL_WARNING, "%s\n", "Buffer length = 0!");
        return;
    }
    if (label == nullptr) {
        label = "";
    }
    for (uint32_t i = 0; i < length; ++i) {
        if (i % bytes_per_line == 0) {
            snprintf(line, bound, "%s %04X: ", label, i);
        }
        const size_t used = strlen(line);
        snprintf(line + used, bound - used, "%02X ", buffer[i]);
        const bool is_last = i == length - 1;
        if ((i + 1) % bytes_per_line != 0 && !is_last) {
            continue;
        }
        if ((flags & TESRA_DUMP_LOG) != 0) {
            TESRA_LOG(TESRA_LEVEL_INFO, "%s\n", line);
        }
        if ((flags & TESRA_DUMP_TRACE) != 0) {
            char path[] = __FILE__;
            tesra_trace(TESRA_LEVEL_INFO, basename(path), __LINE__, "%s\n", line);
        }
        if (!is_last) {
            memset(line, 0, sizeof line);
        }
    }
}
