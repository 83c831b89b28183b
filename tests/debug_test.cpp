#include "harness.h"
#include "table.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace {

TEST(trace, lines_are_what_the_table_says) {
    setenv("TZ", "XXX-5:30", 1);
    tzset();
    const std::string process = std::to_string(getpid());
    // What a header leaves of 511 characters.
    const std::string room(511 - strlen("2026-03-05T14:07:09.004512 L2 [] f:1:") - process.size(),
                           'x');
    run_table("trace.json", {{"$process", process}, {"$room", room}}, [](const columns &row) {
        fixed_time = {std::stol(row[0]), std::stol(row[1])};
        traced();
        errno = EPERM;
        // Called like this, the compiler does not ask for a literal format.
        void (*const call)(uint8_t, const char *, uint32_t, const char *, ...) = tesra_trace;
        call(static_cast<uint8_t>(std::stoi(row[2])), row[3].c_str(),
             static_cast<uint32_t>(std::stoul(row[4])), row[5].c_str(), 500);
        EXPECT_EQ(errno, EPERM);
        EXPECT_EQ(traced(), row[6].substr(0, 511));
    });
    fixed_time = {};
}

TEST(trace, line_is_lost_without_notice_if_the_file_cannot_be_opened) {
    traced();
    {
        const failing unwritable("fopen");
        errno = EPERM;
        tesra_trace(2, "probe", 1, "lost\n");
        EXPECT_EQ(errno, EPERM);
    }
    const failing unwritable("fopen");
    EXPECT_EQ(tesra_get_cert_count(nullptr, 1), 0U);
    EXPECT_EQ(traced(), "");
}

TEST(dump, shows_five_digits_from_index_65536_on) {
    const std::string bytes(65537, '\xAB');
    reported();
    tesra_dump(TESRA_DUMP_LOG, "x", reinterpret_cast<const uint8_t *>(bytes.data()), 65537);
    const std::string lines = reported();
    EXPECT_EQ(lines.find("4 x FFF0: "), lines.size() - strlen("4 x FFF0:  | 4 x 10000: AB ") - 48);
    EXPECT_TRUE(lines.ends_with(" | 4 x 10000: AB ")) << lines.substr(lines.size() - 100);
}

} // namespace
