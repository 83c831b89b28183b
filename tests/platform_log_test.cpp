// The stand-in for the platform's log, by what it shows on standard error.

#include "platform_log.h"

#include <gtest/gtest.h>
#include <syslog.h>

#include <cerrno>
#include <cstdlib>

TEST(platform_log, shows_levels_up_to_the_setting_with_control_characters_spelled_out) {
    setenv("PLATFORM_LOG_STDERR", "5", 1);
    openlog("syslog", LOG_PERROR, LOG_USER); // to standard error, too
    setlogmask(LOG_MASK(LOG_WARNING));
    testing::internal::CaptureStderr();
    errno = ERANGE;
    EXPECT_EQ(platform_log_write(5, 292, "%s%1200d\n\n", "\x1B\n\xC2\x9B\xC3\xBC", 7), 0);
    platform_log_write(6, 292, "not shown");
    platform_log_write(3, 292, "warning");
    EXPECT_EQ(platform_log_write(2, 292, "%ls", L"\u20AC"), -1) << "no such character in C";
    EXPECT_EQ(errno, ERANGE);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "L5 [292] \\x1B\\x0A\\xC2\\x9B\xC3\xBC" + std::string(1199, ' ') +
                  "7\nsyslog: [292] warning\nL3 [292] warning\n");
}
