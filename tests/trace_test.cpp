#include "harness.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

namespace {

const std::string process = "[" + std::to_string(getpid()) + "] ";

TEST(trace, line_holds_local_time_level_process_file_and_line) {
    setenv("TZ", "XXX-5:30", 1);
    tzset();
    const struct {
        timeval now;
        uint8_t level;
        uint32_t line;
        std::string expected;
    } cases[] = {
        {{1772699829, 4512}, 2, 120, "2026-03-05T14:07:09.004512 L2 " + process + "probe:120:"},
        {{1767205799, 999999}, 11, 0, "2025-12-31T23:59:59.999999 L11 " + process + "probe:0:"},
        {{1767205800, 0},
         255,
         4294967295,
         "2026-01-01T00:00:00.000000 L255 " + process + "probe:4294967295:"},
        // Its year does not fit a calendar.
        {{INT64_MAX, 7}, 4, 1, "1900-01-00T00:00:00.000007 L4 " + process + "probe:1:"},
    };
    traced();
    for (const auto &row : cases) {
        fixed_time = row.now;
        errno = 77;
        tesra_trace(row.level, "probe", row.line, "Timeout after %d ms\n", 500);
        EXPECT_EQ(errno, 77);
        EXPECT_EQ(traced(), row.expected + "Timeout after 500 ms\n");
    }
    fixed_time = {};
}

TEST(trace, line_is_cut_at_511_characters) {
    const size_t header = strlen("2026-03-05T14:07:09.004512 L2 ") + process.size();
    const size_t room = 511 - header - strlen("f:1:");
    const struct {
        std::string file;
        std::string text;
        std::string expected;
    } cases[] = {
        {"f", "no line break", "f:1:no line break"},
        {"f", "100%s\n", "f:1:100%s\n"},
        {"f", std::string(room - 1, 'x') + "\n", "f:1:" + std::string(room - 1, 'x') + "\n"},
        {"f", std::string(room, 'x') + "\n", "f:1:" + std::string(room, 'x')},
        {"f", std::string(9000, 'x') + "\n", "f:1:" + std::string(room, 'x')},
        {std::string(600, 'f'), "message\n", std::string(511 - header, 'f')},
    };
    for (const auto &row : cases) {
        tesra_trace(2, row.file.c_str(), 1, "%s", row.text.c_str());
        EXPECT_EQ(traced().substr(header), row.expected);
    }
}

TEST(trace, line_is_lost_without_notice_if_the_file_cannot_be_opened) {
    const failing unwritable("fopen", 0);
    errno = 77;
    tesra_trace(2, "probe", 1, "lost\n");
    EXPECT_EQ(errno, 77);
    EXPECT_EQ(tesra_get_cert_count(nullptr, 1), 0U);
    EXPECT_EQ(traced(), "");
}

} // namespace
