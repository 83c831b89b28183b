#include "platform_log.h"

#include <errno.h>
#include <signal.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/uio.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <bit>
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

// Length of the UTF-8 character at the start of the text; 0 for a control character (C0, DEL, C1)
// and for bytes that are not UTF-8.
size_t shown_length(const char *text) {
    const auto first = static_cast<unsigned char>(text[0]);
    if (first < 0x80) {
        return first >= 0x20 && first != 0x7F ? 1 : 0;
    }
    const int length = std::countl_one(first);
    if (length < 2 || length > 4) {
        return 0;
    }
    uint32_t character = first & (0x7FU >> length);
    for (int at = 1; at < length; ++at) {
        const auto next = static_cast<unsigned char>(text[at]);
        if ((next & 0xC0) != 0x80) {
            return 0;
        }
        character = character << 6 | (next & 0x3FU);
    }
    constexpr uint32_t smallest[] = {0, 0, 0xA0, 0x800, 0x10000};
    const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
    if (character < smallest[length] || character > 0x10FFFF || surrogate) {
        return 0;
    }
    return static_cast<size_t>(length);
}

// The first byte that is not shown as it is, or the end of the text.
char *first_hidden(char *text) {
    size_t shown = 0;
    do {
        text += shown;
        shown = shown_length(text);
    } while (shown > 0);
    return text;
}

// Logged texts may come from an untrusted certificate, so what is not shown is escaped: none of it
// reaches a terminal or starts a new line. Without memory for that, question marks replace it.
// Returns null if `text` itself is to be shown.
heap_text escaped(char *text) {
    size_t hidden = 0;
    for (char *at = first_hidden(text); *at != '\0'; at = first_hidden(at + 1)) {
        ++hidden;
    }
    if (hidden == 0) {
        return nullptr;
    }
    heap_text result(static_cast<char *>(malloc(strlen(text) + 3 * hidden + 1)));
    char *end = result.get();
    for (char *at = first_hidden(text); *at != '\0'; at = first_hidden(at + 1)) {
        if (end == nullptr) {
            *at = '?';
            continue;
        }
        memcpy(end, text, static_cast<size_t>(at - text));
        end += at - text;
        end += snprintf(end, 5, "\\x%02X", static_cast<unsigned char>(*at));
        text = at + 1;
    }
    if (end != nullptr) {
        memcpy(end, text, strlen(text) + 1);
    }
    return result;
}

void write_line(int level, int component, const char *text) {
    char head[40];
    const int length = snprintf(head, sizeof head, "L%d [%d] ", level, component);
    char *const body = const_cast<char *>(text);
    char line_break[] = "\n";
    const iovec parts[] = {
        {head, static_cast<size_t>(length)}, {body, strlen(body)}, {line_break, 1}};
    // A closed pipe must not end the process: the write's own SIGPIPE is blocked and taken back.
    sigset_t pipe_signal;
    sigset_t pending;
    sigset_t blocked;
    sigemptyset(&pipe_signal);
    sigaddset(&pipe_signal, SIGPIPE);
    sigpending(&pending);
    pthread_sigmask(SIG_BLOCK, &pipe_signal, &blocked);
    const ssize_t written = writev(STDERR_FILENO, parts, 3);
    if (written < 0 && errno == EPIPE && sigismember(&pending, SIGPIPE) == 0) {
        const timespec at_once = {};
        sigtimedwait(&pipe_signal, nullptr, &at_once);
    }
    pthread_sigmask(SIG_SETMASK, &blocked, nullptr);
}

void deliver(int level, int component, char *text) {
    size_t end = strlen(text);
    while (end > 0 && text[end - 1] == '\n') {
        text[--end] = '\0';
    }
    const heap_text replacement = escaped(text);
    const char *shown = replacement != nullptr ? replacement.get() : text;
    syslog(syslog_priority(level), "[%d] %s", component, shown);
    if (shown_on_stderr(level)) {
        write_line(level, component, shown);
    }
}

} // namespace

int platform_log_write(int level, int component, const char *format, ...) {
    const int saved_errno = errno;
    // Reports of exhausted memory must get through, so only long texts use the heap, and a long
    // text is cut if there is no memory. So is a text that cannot be formatted: where that happens.
    char room[1024] = {};
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
    deliver(level, component, longer != nullptr ? longer.get() : room);
    errno = saved_errno;
    return length >= 0 ? 0 : -1;
}
