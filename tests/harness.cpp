#include "harness.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <fstream>
#include <set>

uintptr_t last_pointer = 0;
timeval fixed_time = {};
allocation_state allocations = {};

namespace {

std::string log;         // what reported() returns
std::string trace;       // what traced() returns
std::string trace_line;  // written, but not yet closed
std::string half_report; // an error that has yet to reach the trace file

struct {
    const char *function; // null for none
    int nth;
    int result;
    int calls;
} fault;

// While one lives, allocations are the harness's own.
struct own_work {
    bool was_counting = count_allocations(false);
    ~own_work() {
        count_allocations(was_counting);
    }
};

// malloc and calloc are called before a sanitizer's runtime is ready for instrumented code.
#define UNINSTRUMENTED __attribute__((no_sanitize("address", "thread", "undefined")))

UNINSTRUMENTED bool in_library(const void *caller) {
    Dl_info module = {};
    return dladdr(caller, &module) != 0 && strstr(module.dli_fname, "libtesra_common") != nullptr;
}

// True if the call that returns to `caller` is to fail.
UNINSTRUMENTED bool fails(const char *function, const void *caller) {
    return fault.function != nullptr && strcmp(fault.function, function) == 0 &&
           in_library(caller) && ++fault.calls == fault.nth;
}

UNINSTRUMENTED bool no_memory(const char *function, const void *caller) {
    const bool refused = allocations.counting &&
                         ++allocations.reached >= allocations.first_failing &&
                         allocations.reached <= allocations.last_failing;
    errno = refused ? ENOMEM : errno;
    return refused || fails(function, caller);
}

// libcrypto's blocks lie 16 bytes into the C library's, so neither releases the other's unnoticed.
void *shifted(void *made) {
    return made == nullptr ? nullptr : static_cast<char *>(made) + 16;
}

const int libcrypto_allocates_shifted = CRYPTO_set_mem_functions(
    [](size_t size, const char *, int) { return shifted(malloc(size + 16)); },
    [](void *old, size_t size, const char *, int) {
        return shifted(
            realloc(old == nullptr ? nullptr : static_cast<char *>(old) - 16, size + 16));
    },
    [](void *old, const char *, int) {
        free(old == nullptr ? nullptr : static_cast<char *>(old) - 16);
    });

UNINSTRUMENTED void *block(void *made) {
    allocations.live += allocations.counting && made != nullptr ? 1 : 0;
    return made;
}

void add(const std::string &event) {
    EXPECT_EQ(half_report, "") << "did not reach the trace file";
    log += (log.empty() ? "" : " | ") + event;
}

// Whether that line of the library's source makes a report.
bool reports_from(const std::string &file, int line) {
    std::ifstream source(TESRA_SOURCES "/" + file);
    std::string text;
    while (line-- > 0 && std::getline(source, text)) {
    }
    return text.find("TESRA_LOG") != std::string::npos ||
           text.find("tesra_trace") != std::string::npos;
}

// The text without the library's position in front and the line break at its end.
std::string message(std::string text) {
    static std::set<std::string> known; // positions in the library
    char file[32] = "";
    int line = 0;
    int length = 0;
    sscanf(text.c_str(), "%31[^:]:%d:%n", file, &line, &length);
    if (strncmp(file, "tesra_", 6) == 0) {
        const bool is_new = known.insert(text.substr(0, static_cast<size_t>(length))).second;
        EXPECT_TRUE(!is_new || reports_from(file, line)) << text;
        text.erase(0, static_cast<size_t>(length));
    }
    return text.ends_with('\n') ? text.substr(0, text.size() - 1) : text + "<no line break>";
}

void end_trace_line() {
    int level = 0;
    int process = 0;
    int header = 0;
    sscanf(trace_line.c_str(), "%*19[0-9T:-].%*6[0-9] L%d [%d] %n", &level, &process, &header);
    EXPECT_EQ(process, getpid()) << trace_line;
    const std::string text = trace_line.substr(static_cast<size_t>(header));
    trace += std::exchange(trace_line, "");
    if (half_report.empty()) {
        add("trace " + std::to_string(level) + ' ' + message(text));
        return;
    }
    EXPECT_EQ(level, 2);
    EXPECT_EQ(text, std::exchange(half_report, "").substr(0, 511 - static_cast<size_t>(header)));
}

} // namespace

#define CALLER __builtin_return_address(0)
#define NEXT(name) reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, #name))
#define MAY_FAIL(type, name, failure, parameters, ...)                                             \
    type name parameters {                                                                         \
        static const auto next = NEXT(name);                                                       \
        return fails(#name, CALLER) ? failure : next(__VA_ARGS__);                                 \
    }
#define RELEASES(name, type)                                                                       \
    void name(type *released) {                                                                    \
        static const auto next = NEXT(name);                                                       \
        if (in_library(CALLER)) {                                                                  \
            const own_work now;                                                                    \
            add(#name);                                                                            \
        }                                                                                          \
        next(released);                                                                            \
    }
#define PRINTS(parameters, call)                                                                   \
    parameters noexcept {                                                                          \
        va_list args;                                                                              \
        va_start(args, format);                                                                    \
        const int length = call;                                                                   \
        va_end(args);                                                                              \
        return fails("snprintf", CALLER) ? fault.result : length;                                  \
    }

extern "C" {

// The allocators are needed before dlsym works.
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *old, size_t size);
void __libc_free(void *old);
[[gnu::weak]] void *__interceptor_malloc(size_t size);
[[gnu::weak]] void *__interceptor_calloc(size_t count, size_t size);
[[gnu::weak]] void *__interceptor_realloc(void *old, size_t size);
[[gnu::weak]] void __interceptor_free(void *old);
#define REAL(name) (__interceptor_##name != nullptr ? __interceptor_##name : __libc_##name)

UNINSTRUMENTED void *malloc(size_t size) noexcept {
    return no_memory("malloc", CALLER) ? nullptr : block(REAL(malloc)(size));
}

UNINSTRUMENTED void *calloc(size_t count, size_t size) noexcept {
    return no_memory("calloc", CALLER) ? nullptr : block(REAL(calloc)(count, size));
}

UNINSTRUMENTED void *realloc(void *old, size_t size) noexcept {
    if (no_memory("realloc", CALLER)) {
        return nullptr;
    }
    void *made = REAL(realloc)(old, size);
    return old == nullptr ? block(made) : made;
}

UNINSTRUMENTED void free(void *old) noexcept {
    allocations.live -= allocations.counting && old != nullptr ? 1 : 0;
    REAL(free)(old);
}

MAY_FAIL(BIO *, BIO_new, nullptr, (const BIO_METHOD *a), a)
MAY_FAIL(int, BIO_write, fault.result, (BIO * a, const void *b, int c), a, b, c)
MAY_FAIL(long, BIO_ctrl, fault.result, (BIO * a, int b, long c, void *d), a, b, c, d)
MAY_FAIL(BIO *, BIO_push, nullptr, (BIO * a, BIO *b), a, b)
MAY_FAIL(int, EVP_DecodeBlock, fault.result, (unsigned char *a, const unsigned char *b, int c), a,
         b, c)
MAY_FAIL(ASN1_INTEGER *, X509_get_serialNumber, nullptr, (X509 * a), a)
MAY_FAIL(BIGNUM *, ASN1_INTEGER_to_BN, nullptr, (const ASN1_INTEGER *a, BIGNUM *b), a, b)
MAY_FAIL(char *, BN_bn2dec, nullptr, (const BIGNUM *a), a)
MAY_FAIL(const ASN1_TIME *, X509_get0_notBefore, nullptr, (const X509 *a), a)
MAY_FAIL(const ASN1_TIME *, X509_get0_notAfter, nullptr, (const X509 *a), a)
MAY_FAIL(int, ASN1_TIME_print, fault.result, (BIO * a, const ASN1_TIME *b), a, b)
MAY_FAIL(X509_NAME *, X509_get_issuer_name, nullptr, (const X509 *a), a)
MAY_FAIL(X509_NAME *, X509_get_subject_name, nullptr, (const X509 *a), a)
MAY_FAIL(X509_NAME_ENTRY *, X509_NAME_get_entry, nullptr, (const X509_NAME *a, int b), a, b)
MAY_FAIL(ASN1_STRING *, X509_NAME_ENTRY_get_data, nullptr, (const X509_NAME_ENTRY *a), a)
MAY_FAIL(int, ASN1_STRING_to_UTF8, fault.result, (unsigned char **a, const ASN1_STRING *b), a, b)
RELEASES(X509_free, X509)
RELEASES(BIO_free_all, BIO)
int PRINTS(snprintf(char *text, size_t size, const char *format, ...),
           vsnprintf(text, size, format, args))
    // What a fortified build calls instead.
    int PRINTS(__snprintf_chk(char *text, size_t size, int flag, size_t room, const char *format,
                              ...),
               __builtin___vsnprintf_chk(text, size, flag, room, format, args))

        X509 *PEM_read_bio_X509(BIO *bio, X509 **cert, pem_password_cb *callback, void *data) {
    static const auto next = NEXT(PEM_read_bio_X509);
    EXPECT_TRUE(cert == nullptr && callback == nullptr && data == nullptr);
    return fails("PEM_read_bio_X509", CALLER) ? nullptr : next(bio, cert, callback, data);
}

FILE *fopen(const char *path, const char *mode) {
    static const auto next = NEXT(fopen);
    if (strcmp(path, TESRA_TRACE_FILE) != 0) {
        return next(path, mode);
    }
    EXPECT_STREQ(mode, "a+");
    if (fails("fopen", CALLER)) {
        half_report.clear();
        errno = EACCES;
        return nullptr;
    }
    const auto write = [](void *, const char *bytes, size_t size) {
        const own_work now;
        trace_line.append(bytes, size);
        return static_cast<ssize_t>(size);
    };
    // Only now is the line sure to be written. A sweep of allocations loses some.
    const auto close = [](void *) {
        const own_work now;
        if (allocations.first_failing == 0) {
            end_trace_line();
        }
        trace_line.clear();
        return 0;
    };
    return fopencookie(nullptr, mode, {nullptr, write, nullptr, close});
}

// A locale in which the byte A0 is space, though not as the negative number that a char may be.
const unsigned short **__ctype_b_loc() noexcept {
    static const auto next = NEXT(__ctype_b_loc);
    static unsigned short classes[384];
    static const unsigned short *middle = classes + 128;
    std::copy(*next() - 128, *next() + 256, classes);
    classes[128 + 0xA0] = classes[128 + ' '];
    return in_library(CALLER) ? &middle : next();
}

int gettimeofday(timeval *now, void *zone) noexcept {
    static const auto next = NEXT(gettimeofday);
    const int result = next(now, zone);
    *now = fixed_time.tv_sec != 0 ? fixed_time : *now;
    return result;
}

// Destroys its argument, as POSIX allows: a path that is used twice, or a literal, shows.
char *__xpg_basename(char *path) noexcept {
    static char base[256];
    const char *slash = strrchr(path, '/');
    stpncpy(base, slash == nullptr ? path : slash + 1, sizeof base - 1);
    memset(path, 'X', strlen(path));
    return base;
}

int platform_log_write(int level, int component, const char *format, ...) {
    const own_work now;
    EXPECT_EQ(component, 292);
    EXPECT_EQ(strncmp(format, "%s:%u:", 6), 0) << format;
    EXPECT_NE(strchr(format + 6, '%'), nullptr) << "a text used as a format: " << format;
    char buffer[100000];
    va_list args;
    va_start(args, format);
    vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    std::string text = message(buffer);
    const size_t pointer = text.find("0x");
    if (pointer != std::string::npos) {
        char *end = nullptr;
        last_pointer = strtoull(&text[pointer], &end, 16);
        text.replace(pointer, static_cast<size_t>(end - &text[pointer]),
                     last_pointer == 0 ? "0x0" : "PTR");
    }
    std::string conversions;
    const char *at = strcmp(format + 6, "%s\n") == 0 ? nullptr : strchr(format + 6, '%');
    for (; at != nullptr; at = strchr(at + 1, '%')) {
        conversions.append(at, strcspn(at, "dspx") + 1);
    }
    add(std::to_string(level) + ' ' + conversions + (conversions.empty() ? "" : " ") + text);
    half_report = level == 2 && allocations.first_failing == 0 ? buffer : "";
    return -1; // refused, which the library does not care about
}

} // extern "C"

bool count_allocations(bool counting) {
    return std::exchange(allocations.counting, counting);
}

std::string reported() {
    EXPECT_EQ(half_report, "") << "did not reach the trace file";
    EXPECT_EQ(libcrypto_allocates_shifted, 1);
    trace.clear();
    return std::exchange(log, "");
}

std::string traced() {
    log.clear();
    return std::exchange(trace, "");
}

failing::failing(std::string function, int nth, int result) : name(std::move(function)) {
    fault = {name.empty() ? nullptr : name.c_str(), nth, result, 0};
}

failing::~failing() {
    EXPECT_TRUE(name.empty() || fault.calls >= fault.nth) << name << " was not reached";
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
