// The stand-in for the platform's log, with syslog(3) taken over by this program.

#include "table.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <platform_log.h>
#include <syslog.h>

#include <cerrno>
#include <cstdarg>

namespace {

std::string sent;  // to syslog
int formatted = 0; // texts, by the platform log

TEST(platform_log, sends_one_line_to_syslog_and_up_to_a_level_to_standard_error) {
    const std::map<std::string, std::string> names = {{"$5000x", std::string(5000, 'x')}};
    run_table("platform_log.json", names, [](const columns &row) {
        setenv("PLATFORM_LOG_STDERR", row[2].c_str(), 1);
        sent.clear();
        formatted = 0;
        errno = EPERM;
        testing::internal::CaptureStderr();
        EXPECT_EQ(platform_log_write(std::stoi(row[0]), 292, "%s", row[1].c_str()), 0);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), row[4]);
        EXPECT_EQ(errno, EPERM);
        EXPECT_EQ(formatted, row[1].size() < 1024 ? 1 : 2);
        EXPECT_EQ(sent, row[3]);
    });
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
    char text[10000];
    const int before = formatted;
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    formatted = before;
    sent += std::to_string(priority) + ' ' + text + '\n';
    errno = EPIPE;
}

// What a fortified build calls instead. The platform log's only format has these arguments.
void __syslog_chk(int priority, int, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int component = va_arg(args, int);
    syslog(priority, "[%d] %s", component, va_arg(args, const char *));
    va_end(args);
    EXPECT_STREQ(format, "[%d] %s");
}

} // extern "C"
