#include "harness.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <vector>

bool watch_releases = false;
timeval fixed_time = {};
const void *last_pointer = nullptr;

namespace {

struct event {
    std::string shown; // empty for a line of the trace file
    std::string text;  // as the sink got it
    bool is_error = false;
};
std::vector<event> events;

char *serial_text = nullptr; // the last that BN_bn2dec made
struct {
    char function[40]; // empty for none
    int nth;
    int result;
    int calls;
} fault;

// malloc and calloc are called before a sanitizer's runtime is ready for instrumented code.
#define UNINSTRUMENTED __attribute__((no_sanitize("address", "thread")))

// True if the call that returns to `caller` comes from the library and is to fail.
UNINSTRUMENTED bool fails(const char *function, const void *caller) {
    Dl_info module = {};
    return fault.function[0] != 0 && strcmp(fault.function, function) == 0 &&
           dladdr(caller, &module) != 0 && strstr(module.dli_fname, "libtesra_common") != nullptr &&
           (++fault.calls == fault.nth || fault.nth == 0);
}

// The text of a format, with each conversion in front of what it gives.
std::string rendered(const char *format, va_list args) {
    std::string shown;
    while (*format != '\0') {
        if (*format != '%') {
            shown += *format++;
            continue;
        }
        const size_t length = strcspn(format, "dspx") + 1;
        const std::string conversion(format, length);
        format += length;
        shown += conversion + '=';
        if (conversion == "%s") {
            shown += va_arg(args, const char *);
        } else if (conversion == "%d") {
            shown += std::to_string(va_arg(args, int));
        } else {
            last_pointer = va_arg(args, const void *); // as wide as the size_t of %zx
            shown += last_pointer == nullptr ? "0" : "PTR";
        }
    }
    return shown;
}

// The length of the file and line in front of a report.
size_t position_length(const std::string &text) {
    int length = 0;
    sscanf(text.c_str(), "tesra_%*[a-z_].cpp:%*u:%n", &length);
    EXPECT_GT(length, 0) << text;
    return static_cast<size_t>(length);
}

} // namespace

#define CALLER __builtin_return_address(0)
#define NEXT(name) reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, #name))
#define MAY_FAIL(type, name, failure, parameters, ...)                                             \
    type name parameters {                                                                         \
        static const auto next = NEXT(name);                                                       \
        return fails(#name, CALLER) ? failure : next(__VA_ARGS__);                                 \
    }

extern "C" {

// The allocators are needed before dlsym works.
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
[[gnu::weak]] void *__interceptor_malloc(size_t size);
[[gnu::weak]] void *__interceptor_calloc(size_t count, size_t size);

UNINSTRUMENTED void *malloc(size_t size) noexcept {
    const auto next = __interceptor_malloc != nullptr ? __interceptor_malloc : __libc_malloc;
    return fails("malloc", CALLER) ? nullptr : next(size);
}

UNINSTRUMENTED void *calloc(size_t count, size_t size) noexcept {
    const auto next = __interceptor_calloc != nullptr ? __interceptor_calloc : __libc_calloc;
    return fails("calloc", CALLER) ? nullptr : next(count, size);
}

MAY_FAIL(BIO *, BIO_new, nullptr, (const BIO_METHOD *a), a)
MAY_FAIL(int, BIO_write, fault.result, (BIO * a, const void *b, int c), a, b, c)
MAY_FAIL(long, BIO_ctrl, fault.result, (BIO * a, int b, long c, void *d), a, b, c, d)
MAY_FAIL(BIO *, BIO_push, nullptr, (BIO * a, BIO *b), a, b)
MAY_FAIL(int, EVP_DecodeBlock, fault.result, (unsigned char *a, const unsigned char *b, int c), a,
         b, c)
MAY_FAIL(ASN1_INTEGER *, X509_get_serialNumber, nullptr, (X509 * a), a)
MAY_FAIL(BIGNUM *, ASN1_INTEGER_to_BN, nullptr, (const ASN1_INTEGER *a, BIGNUM *b), a, b)
MAY_FAIL(const ASN1_TIME *, X509_get0_notBefore, nullptr, (const X509 *a), a)
MAY_FAIL(const ASN1_TIME *, X509_get0_notAfter, nullptr, (const X509 *a), a)
MAY_FAIL(int, ASN1_TIME_print, fault.result, (BIO * a, const ASN1_TIME *b), a, b)
MAY_FAIL(X509_NAME *, X509_get_issuer_name, nullptr, (const X509 *a), a)
MAY_FAIL(X509_NAME *, X509_get_subject_name, nullptr, (const X509 *a), a)
MAY_FAIL(X509_NAME_ENTRY *, X509_NAME_get_entry, nullptr, (const X509_NAME *a, int b), a, b)
MAY_FAIL(ASN1_STRING *, X509_NAME_ENTRY_get_data, nullptr, (const X509_NAME_ENTRY *a), a)
MAY_FAIL(int, ASN1_STRING_to_UTF8, fault.result, (unsigned char **a, const ASN1_STRING *b), a, b)

X509 *PEM_read_bio_X509(BIO *bio, X509 **cert, pem_password_cb *callback, void *data) {
    static const auto next = NEXT(PEM_read_bio_X509);
    EXPECT_TRUE(cert == nullptr && callback == nullptr && data == nullptr);
    return fails("PEM_read_bio_X509", CALLER) ? nullptr : next(bio, cert, callback, data);
}

#define NOTED(name, type)                                                                          \
    void name(type *object) {                                                                      \
        static const auto next = NEXT(name);                                                       \
        if (watch_releases) {                                                                      \
            events.push_back({#name, ""});                                                         \
        }                                                                                          \
        next(object);                                                                              \
    }
NOTED(X509_free, X509)
NOTED(BIO_free_all, BIO)

char *BN_bn2dec(const BIGNUM *number) {
    static const auto next = NEXT(BN_bn2dec);
    serial_text = fails("BN_bn2dec", CALLER) ? nullptr : next(number);
    return serial_text;
}

void CRYPTO_free(void *block, const char *file, int line) {
    static const auto next = NEXT(CRYPTO_free);
    if (block != nullptr && block == serial_text) {
        serial_text = nullptr;
        if (watch_releases) {
            events.push_back({"OPENSSL_free", ""});
        }
    }
    next(block, file, line);
}

FILE *fopen(const char *path, const char *mode) {
    static const auto next = NEXT(fopen);
    if (strcmp(path, TESRA_TRACE_FILE) != 0) {
        return next(path, mode);
    }
    EXPECT_STREQ(mode, "a+");
    if (fails("fopen", CALLER)) {
        errno = EACCES;
        return nullptr;
    }
    // The line counts as written when the file is closed.
    const auto write = [](void *line, const char *bytes, size_t size) {
        static_cast<std::string *>(line)->append(bytes, size);
        return static_cast<ssize_t>(size);
    };
    const auto close = [](void *line) {
        const std::unique_ptr<std::string> text(static_cast<std::string *>(line));
        events.push_back({"", *text});
        return 0;
    };
    return fopencookie(new std::string, mode, {nullptr, write, nullptr, close});
}

int snprintf(char *text, size_t size, const char *format, ...) noexcept {
    va_list args;
    va_start(args, format);
    const int length = vsnprintf(text, size, format, args);
    va_end(args);
    return fails("snprintf", CALLER) ? fault.result : length;
}

// What a fortified build calls instead.
int __snprintf_chk(char *text, size_t size, int flag, size_t room, const char *format,
                   ...) noexcept {
    va_list args;
    va_start(args, format);
    const int length = __builtin___vsnprintf_chk(text, size, flag, room, format, args);
    va_end(args);
    return fails("snprintf", CALLER) ? fault.result : length;
}

int gettimeofday(timeval *now, void *zone) noexcept {
    static const auto next = NEXT(gettimeofday);
    const int result = next(now, zone);
    *now = fixed_time.tv_sec != 0 ? fixed_time : *now;
    return result;
}

// Destroys its argument, as POSIX allows: a path that is used twice, or a literal, shows.
char *__xpg_basename(char *path) noexcept {
    static thread_local char base[256];
    const char *slash = strrchr(path, '/');
    snprintf(base, sizeof base, "%s", slash == nullptr ? path : slash + 1);
    memset(path, 'X', strlen(path));
    return base;
}

int platform_log_write(int level, int component, const char *format, ...) {
    EXPECT_EQ(component, 292);
    EXPECT_EQ(strncmp(format, "%s:%u:", 6), 0) << format;
    char text[100000];
    va_list args;
    va_list again;
    va_start(args, format);
    va_copy(again, args);
    vsnprintf(text, sizeof text, format, args);
    va_arg(again, const char *);
    va_arg(again, unsigned);
    const bool fixed = strcmp(format + 6, "%s\n") == 0;
    std::string shown =
        fixed ? va_arg(again, const char *) + std::string("\n") : rendered(format + 6, again);
    va_end(again);
    va_end(args);
    EXPECT_EQ(shown.back(), '\n') << format;
    shown.pop_back();
    events.push_back({std::to_string(level) + ' ' + shown, text, level == 2});
    return -1; // refused, which the library does not care about
}

} // extern "C"

std::string reported() {
    std::string all;
    std::string open_error; // an error that has yet to reach the trace file
    for (const event &seen : std::exchange(events, {})) {
        std::string shown = seen.shown;
        if (shown.empty()) {
            int level = 0;
            int process = 0;
            int end = 0;
            sscanf(seen.text.c_str(), "%*19[0-9T:-].%*6[0-9] L%d [%d] %n", &level, &process, &end);
            EXPECT_EQ(process, getpid()) << seen.text;
            const std::string text = seen.text.substr(static_cast<size_t>(end));
            if (!open_error.empty()) {
                EXPECT_EQ(level, 2);
                EXPECT_EQ(text, open_error.substr(0, 511 - static_cast<size_t>(end)));
                open_error.clear();
                continue;
            }
            shown = "trace " + std::to_string(level) + ' ' + text.substr(position_length(text));
            EXPECT_EQ(shown.back(), '\n');
            shown.pop_back();
        } else if (!seen.text.empty()) {
            position_length(seen.text);
        }
        EXPECT_EQ(open_error, "") << "did not reach the trace file";
        open_error = seen.is_error ? seen.text : "";
        all += (all.empty() ? "" : " | ") + shown;
    }
    EXPECT_EQ(open_error, "") << "did not reach the trace file";
    return all;
}

std::string traced() {
    std::string text;
    for (const event &seen : std::exchange(events, {})) {
        text += seen.shown.empty() ? seen.text : "";
    }
    return text;
}

failing::failing(const std::string &function, int nth, int result) {
    fault = {{}, nth, result, 0};
    function.copy(fault.function, sizeof fault.function - 1);
}

failing::~failing() {
    if (fault.function[0] != 0) {
        EXPECT_GE(fault.calls, std::max(fault.nth, 1)) << fault.function << " was not reached";
    }
    fault = {};
}

std::shared_ptr<char> guarded(const std::string &bytes) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t readable = (bytes.size() + page - 1) / page * page;
    char *map = static_cast<char *>(
        mmap(nullptr, readable + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    memcpy(map + readable - bytes.size(), bytes.data(), bytes.size());
    mprotect(map + readable, page, PROT_NONE);
    return {map + readable - bytes.size(), [=](char *) { munmap(map, readable + page); }};
}
