// The stand-in for the platform's log, by what it shows on standard error.

#include "platform_log.h"

#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

TEST(platform_log, shows_levels_up_to_the_setting_and_escapes_what_is_not_text) {
    openlog("syslog", LOG_PERROR, LOG_USER); // to standard error, too
    setlogmask(LOG_MASK(LOG_WARNING));
    testing::internal::CaptureStderr();
    errno = ERANGE;
    setenv("PLATFORM_LOG_STDERR", "5x", 1);
    platform_log_write(5, 292, "not shown");
    setenv("PLATFORM_LOG_STDERR", "5", 1);
    // Escaped: U+001B, U+000A, U+009F; 0x9B alone, a surrogate, an overlong U+009B, half a
    // character.
    const char *text = "\x1B\n\xC2\x9F\xC3\xBC\xE2\x82\xAC\xF0\x9F\x98\x80"
                       "\x9B\xED\xA0\x80\xE0\x82\x9B\xC3";
    EXPECT_EQ(platform_log_write(5, 292, "%s%1003d", text, 7), 0); // 1024 bytes
    platform_log_write(6, 292, "not shown");
    platform_log_write(3, 292, "warning\n\n");
    setlogmask(LOG_MASK(LOG_ERR));
    EXPECT_EQ(platform_log_write(1, 292, "cut %ls", L"\u20AC"), -1) << "no such character in C";
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "L5 [292] \\x1B\\x0A\\xC2\\x9F\xC3\xBC\xE2\x82\xAC\xF0\x9F\x98\x80"
              "\\x9B\\xED\\xA0\\x80\\xE0\\x82\\x9B\\xC3" +
                  std::string(1002, ' ') +
                  "7\nsyslog: [292] warning\nL3 [292] warning\n"
                  "syslog: [292] cut \nL1 [292] cut \n");

    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    dup2(ends[1], STDERR_FILENO);
    EXPECT_EQ(platform_log_write(3, 292, "nobody reads"), 0); // and no SIGPIPE
    EXPECT_EQ(errno, ERANGE);
}
