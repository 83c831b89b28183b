#include "platform_log.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/uio.h>
#include <syslog.h>
#include <unistd.h>

#include <memory>

namespace {

using heap_text = std::unique_ptr<char, decltype([](char *text) { free(text); })>;

int syslog_priority(int level) {
    if (level <= 2) {
        return LOG_ERR;
    }
    if (level == 3) {
        return LOG_WARNING;
    }
    return level < 11 ? LOG_INFO : LOG_DEBUG;
}

bool shown_on_stderr(int level) {
    const char *setting = secure_getenv("PLATFORM_LOG_STDERR");
    if (setting == nullptr || *setting == '\0') {
        return false;
    }
    char *end = nullptr;
    const long highest_shown = strtol(setting, &end, 10);
    return *end == '\0' && level <= highest_shown;
}

// The bytes of the control character that the text begins with, if it does: one in C0 and for DEL,
// two in C1 (UTF-8).
size_t control_length(const char *text) {
    const auto first = static_cast<unsigned char>(text[0]);
    if (first < 0x20 || first == 0x7F) {
        return 1;
    }
    const auto second = static_cast<unsigned char>(text[1]);
    return first == 0xC2 && second >= 0x80 && second <= 0x9F ? 2 : 0;
}

void cover_controls(char *text) {
    while (*text != '\0') {
        const size_t control = control_length(text);
        memset(text, '?', control);
        text += control > 0 ? control : 1;
    }
}

// The texts that are logged may come from a stranger's certificate, so control characters are
// spelled out: none of them reaches a terminal or starts a line of its own. Without memory for
// that, question marks stand for them. Returns null if `text` can be shown as it now is.
heap_text spelled_out(char *text) {
    const size_t length = strlen(text);
    size_t controls = 0;
    for (size_t at = 0; at < length; ++at) {
        controls += control_length(text + at);
    }
    if (controls == 0) {
        return nullptr;
    }
    heap_text spelled(static_cast<char *>(malloc(length + 3 * controls + 1)));
    if (spelled == nullptr) {
        cover_controls(text);
        return nullptr;
    }
    char *end = spelled.get();
    while (*text != '\0') {
        size_t control = control_length(text);
        if (control == 0) {
            *end++ = *text++;
        }
        for (; control > 0; --control) {
            end += snprintf(end, 5, "\\x%02X", static_cast<unsigned char>(*text++));
        }
    }
    *end = '\0';
    return spelled;
}

void write_line(int level, int component, const char *text) {
    char head[40];
    const int length = snprintf(head, sizeof head, "L%d [%d] ", level, component);
    char *const body = const_cast<char *>(text);
    char line_break[] = "\n";
    const iovec parts[] = {
        {head, static_cast<size_t>(length)}, {body, strlen(body)}, {line_break, 1}};
    // Nothing can be done about a standard error that takes no more.
    [[maybe_unused]] const ssize_t written = writev(STDERR_FILENO, parts, 3);
}

void deliver(int level, int component, char *text) {
    size_t end = strlen(text);
    while (end > 0 && text[end - 1] == '\n') {
        text[--end] = '\0';
    }
    const heap_text spelled = spelled_out(text);
    const char *shown = spelled != nullptr ? spelled.get() : text;
    syslog(syslog_priority(level), "[%d] %s", component, shown);
    if (shown_on_stderr(level)) {
        write_line(level, component, shown);
    }
}

} // namespace

int platform_log_write(int level, int component, const char *format, ...) {
    const int saved_errno = errno;
    // Reports of exhausted memory have to get through, so the heap serves long texts only, and a
    // long text that finds none is cut.
    char room[1024];
    va_list args;
    va_list again;
    va_start(args, format);
    va_copy(again, args);
    const int length = vsnprintf(room, sizeof room, format, args);
    heap_text longer;
    if (length >= static_cast<int>(sizeof room)) {
        const size_t size = static_cast<size_t>(length) + 1;
        longer.reset(static_cast<char *>(malloc(size)));
        if (longer != nullptr) {
            vsnprintf(longer.get(), size, format, again);
        }
    }
    va_end(again);
    va_end(args);
    if (length >= 0) {
        deliver(level, component, longer != nullptr ? longer.get() : room);
    }
    errno = saved_errno;
    return length >= 0 ? 0 : -1;
}
