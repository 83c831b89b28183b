#include "certificates.h"
#include "table.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>

namespace {

TEST(tool, prints_what_the_table_says) {
    std::string evil = "/tmp/tesra_evil_XXXXXX";
    close(mkstemp(evil.data()));
    unsetenv("PLATFORM_LOG_STDERR");
    std::ofstream(evil) << make_certificate(
        {.subject = {{NID_commonName, "a\x1B[31m\\\n\xC2\x9B\xE2\x80\xAE\xC3\xBCz"}}});
    run_table("tool.json", {}, [&](const columns &row) {
        const std::string command = "T() { " TESRA_TOOL " \"$@\"; }; EVIL=" + evil +
                                    "; cd " TESRA_SAMPLES " && { " + row[0] + "; } 2>&1";
        FILE *output = popen(command.c_str(), "r");
        std::string text(10000, '\0');
        text.resize(fread(text.data(), 1, text.size(), output));
        EXPECT_EQ(WEXITSTATUS(pclose(output)), std::stoi(row[1]));
        EXPECT_EQ(text, row[2]);
    });
    remove(evil.c_str());
}

} // namespace
