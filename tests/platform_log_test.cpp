// The stand-in for the platform's log, with syslog(3) taken over by this program.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <platform_log.h>
#include <syslog.h>

#include <cerrno>
#include <cstdarg>

namespace {

std::string sent;
int formatted = 0; // texts, by the platform log

void send(int priority, const char *format, va_list args) {
    char text[10000];
    const int before = formatted;
    vsnprintf(text, sizeof text, format, args);
    formatted = before;
    sent += std::to_string(priority) + ' ' + text + '\n';
    errno = EPIPE;
}

TEST(platform_log, sends_one_line_to_syslog_and_up_to_a_level_to_standard_error) {
    const std::string longest(5000, 'x');
    const struct {
        int level;
        std::string text;
        int priority;
        const char *most;
        std::string line; // on standard error
    } cases[] = {
        {2, "text\n", LOG_ERR, "2", "L2 [292] text\n"},
        {3, "text", LOG_WARNING, "2", ""},
        {4, "100%s\n", LOG_INFO, "4", "L4 [292] 100%s\n"},
        {11, "text\n", LOG_DEBUG, "11", "L11 [292] text\n"},
        {-2147483647, "text\n", LOG_ERR, "-5", "L-2147483647 [292] text\n"},
        {7, "text\n", LOG_INFO, "", ""},
        {2147483647, "text\n", LOG_DEBUG, "4x", ""},
        {2, longest + "\n\n", LOG_ERR, "11", "L2 [292] " + longest + "\n"},
        {2, "", LOG_ERR, "11", "L2 [292] \n"},
    };
    for (const auto &row : cases) {
        setenv("PLATFORM_LOG_STDERR", row.most, 1);
        sent.clear();
        formatted = 0;
        errno = 77;
        testing::internal::CaptureStderr();
        EXPECT_EQ(platform_log_write(row.level, 292, "%s", row.text.c_str()), 0);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), row.line);
        EXPECT_EQ(errno, 77);
        EXPECT_EQ(formatted, row.text.size() < 1024 ? 1 : 2);
        const std::string text = row.text.substr(0, row.text.find('\n'));
        EXPECT_EQ(sent, std::to_string(row.priority) + " [292] " + text + "\n");
    }
    sent.clear();
    testing::internal::CaptureStderr();
    platform_log_write(2, 1, "%s", "a\nL2 [292] forged \x7F\xC2\x9B\xC3\xBC\n");
    const std::string shown = "[1] a\\x0AL2 [292] forged \\x7F\\xC2\\x9B\xC3\xBC\n";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "L2 " + shown);
    EXPECT_EQ(sent, "3 " + shown);
}

} // namespace

extern "C" {

int vsnprintf(char *text, size_t size, const char *format, va_list args) noexcept {
    static const auto next = reinterpret_cast<decltype(&vsnprintf)>(dlsym(RTLD_NEXT, "vsnprintf"));
    ++formatted;
    return next(text, size, format, args);
}

// What a fortified build calls instead.
int __vsnprintf_chk(char *text, size_t size, int, size_t, const char *format,
                    va_list args) noexcept {
    return vsnprintf(text, size, format, args);
}

void syslog(int priority, const char *format, ...) {
    va_list args;
    va_start(args, format);
    send(priority, format, args);
    va_end(args);
}

// What a fortified build calls instead.
void __syslog_chk(int priority, int, const char *format, ...) {
    va_list args;
    va_start(args, format);
    send(priority, format, args);
    va_end(args);
}

} // extern "C"
