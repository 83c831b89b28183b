#include "stand_ins.h"

#include <dlfcn.h>
#include <openssl/crypto.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

thread_local stand_ins stand_in = {};
constinit thread_local heap_use heap = {};

namespace {

thread_local std::string reports;
thread_local std::string error; // has yet to reach the trace file

void add(const std::string &level, std::string text) {
    int position = 0; // in the library's sources
    sscanf(text.c_str(), "tesra_%*[a-z_].cpp:%*1[1-9]%*[0-9]:%n", &position);
    text.erase(0, static_cast<size_t>(position));
    reports += std::exchange(error, "").empty() ? "" : "(platform log only)\n";
    reports += level + ' ' + text + (text.ends_with('\n') ? "" : "(no line break)\n");
}

ssize_t write_trace(void *, const char *text, size_t length) {
    const heap_watch own_work(false);
    int level = 0, process = 0, header = 0;
    stand_in.trace_line.assign(text, length);
    sscanf(stand_in.trace_line.c_str(), "%*19[0-9T:-].%*6[0-9] L%d [%d] %n", &level, &process,
           &header);
    const std::string report = stand_in.trace_line.substr(static_cast<size_t>(header));
    if (level == 2 && process == getpid() && report == error) {
        error.clear();
    } else {
        add("trace " + std::to_string(level), report);
    }
    return static_cast<ssize_t>(length);
}

} // namespace

std::string reported() {
    reports += std::exchange(error, "").empty() ? "" : "(platform log only)\n";
    return std::exchange(reports, "");
}

heap_watch::heap_watch(bool counted) : outer(std::exchange(heap.counted, counted)) {}

heap_watch::~heap_watch() {
    heap.counted = outer;
}

#define STAND_IN extern "C" [[gnu::visibility("default")]]

STAND_IN [[gnu::format(printf, 3, 4)]] int platform_log_write(int level, int component,
                                                              const char *format, ...) {
    const heap_watch own_work(false);
    char buffer[10000];
    va_list args;
    va_start(args, format);
    vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    std::string text = buffer;
    if (strstr(format, "%p") != nullptr) {
        const size_t at = text.find("[0x") + 1;
        stand_in.pointer = std::stoull(text.substr(at), nullptr, 16);
        text.replace(at, text.find(']', at) - at, "PTR");
    }
    // A fixed text is an argument, never a format.
    const bool well_formed =
        component == 292 && strncmp(format, "%s:%u:", 6) == 0 && strchr(format + 6, '%') != nullptr;
    add(std::to_string(level) + (well_formed ? "" : " (ill-formed)"), text);
    error = level == 2 ? buffer : "";
    return -1; // refused, which the library does not care about
}

STAND_IN FILE *fopen(const char *path, const char *mode) {
    static const auto next = reinterpret_cast<decltype(&fopen)>(dlsym(RTLD_NEXT, "fopen"));
    if (strcmp(path, "/var/log/miraxlog") != 0) {
        return next(path, mode);
    }
    const heap_watch own_work(false);
    errno = EACCES; // which a success may leave, too
    if (stand_in.trace_file_unwritable || strcmp(mode, "a+") != 0) {
        return nullptr;
    }
    FILE *file = fopencookie(nullptr, mode, {nullptr, write_trace, nullptr, nullptr});
    setvbuf(file, nullptr, _IONBF, 0);       // each write shows, and needs no memory
    heap.c_blocks += own_work.outer ? 1 : 0; // released by fclose
    return file;
}

STAND_IN int gettimeofday(timeval *now, void *) noexcept {
    *now = stand_in.clock;
    return 0;
}

#ifdef TESRA_HEAP_STAND_IN

extern "C" void *__libc_realloc(void *old, size_t size);
extern "C" void __libc_free(void *block);

namespace {

void *resize(long &blocks, void *old, size_t size) {
    if (heap.counted && ++heap.asked >= heap.first_refused && heap.asked <= heap.last_refused) {
        return nullptr;
    }
    void *block = __libc_realloc(old, size);
    blocks += heap.counted && old == nullptr && block != nullptr ? 1 : 0;
    return block;
}

void release(long &blocks, void *block) {
    blocks -= heap.counted && block != nullptr ? 1 : 0;
    heap.nulls_released += heap.counted && block == nullptr ? 1 : 0;
    __libc_free(block);
}

// Counted apart, so that a block released by the other's function shows.
const int libcrypto_is_apart = CRYPTO_set_mem_functions(
    [](size_t size, auto...) { return resize(heap.libcrypto_blocks, nullptr, size); },
    [](void *old, size_t size, auto...) { return resize(heap.libcrypto_blocks, old, size); },
    [](void *block, auto...) { release(heap.libcrypto_blocks, block); });

} // namespace

STAND_IN void *malloc(size_t size) noexcept {
    return resize(heap.c_blocks, nullptr, size);
}

STAND_IN void *calloc(size_t count, size_t size) noexcept {
    void *block = resize(heap.c_blocks, nullptr, count * size);
    return block == nullptr ? nullptr : memset(block, 0, count * size);
}

STAND_IN void free(void *block) noexcept {
    release(heap.c_blocks, block);
}

#endif
