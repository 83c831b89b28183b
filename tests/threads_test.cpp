// All functions at once: from several threads, from several processes, and many times over.

#include "certificates.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <regex.h>
#include <sys/wait.h>
#include <tesra_common.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <fstream>
#include <thread>

namespace {

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int turns = 100; // a sanitizer slows down most of what happens here many times over
constexpr bool sanitized = true;
#else
constexpr int turns = 500;
constexpr bool sanitized = false;
#endif

char trace_path[] = "/tmp/tesra_trace_XXXXXX";

const std::string chain =
    make_certificate({.subject = full_name("subject"), .issuer = full_name("issuer")});
const auto *const chain_bytes = reinterpret_cast<const uint8_t *>(chain.data());
const auto chain_length = static_cast<uint32_t>(chain.size());

// Each function once, a failure included; true if every result was right.
bool call_every_function() {
    bool right = tesra_get_cert_count(chain.data(), chain_length) == 1;
    right = tesra_get_cert_count(nullptr, 1) == 0 && right;
    tesra_cert_data *data = tesra_get_cert_data(chain.data(), chain_length, 0);
    right = data != nullptr && strcmp(data->issuer_common_name, "issuer13") == 0 && right;
    tesra_free_cert_data(data);

    char *base64 = nullptr;
    right = tesra_base64_encode(chain_bytes, 300, &base64) == 0 && right;
    uint32_t told = 0;
    uint8_t *bytes = tesra_base64_decode(base64, 400, &told);
    right = told == 300 && memcmp(bytes, chain_bytes, told) == 0 && right;
    free(base64);
    free(bytes);
    char *hex = tesra_hex_encode(chain_bytes, 300, &told);
    bytes = tesra_hex_decode(hex, told, &told);
    right = told == 300 && memcmp(bytes, chain_bytes, told) == 0 && right;
    free(hex);
    free(bytes);

    tesra_trace(4, "probe", 7, "%s\n", std::string(300, 't').c_str());
    tesra_dump(TESRA_DUMP_TRACE, "dump", chain_bytes, 32);
    return right;
}

TEST(all_functions, work_at_once_in_threads_and_processes) {
    std::ofstream(trace_path, std::ios::trunc);
    constexpr int processes = 2;
    constexpr int threads = 4;
    for (int process = 0; process < processes; ++process) {
        if (fork() != 0) {
            continue;
        }
        bool right[threads];
        std::vector<std::thread> running;
        for (bool &result : right) {
            running.emplace_back([&result] {
                result = true;
                for (int turn = 0; turn < turns; ++turn) {
                    result = call_every_function() && result;
                }
            });
        }
        for (std::thread &thread : running) {
            thread.join();
        }
        // Not _exit: a sanitizer may have findings to tell in the exit status.
        exit(std::all_of(right, right + threads, [](bool each) { return each; }) ? 0 : 1);
    }
    for (int process = 0; process < processes; ++process) {
        int status = 0;
        wait(&status);
        EXPECT_EQ(status, 0);
    }

    regex_t whole;
    ASSERT_EQ(regcomp(&whole,
                      "^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6} L[24] "
                      "\\[[0-9]+\\] (probe:7:t{255}t{45}|tesra_cert\\.cpp:[0-9]+:Invalid arguments|"
                      "tesra_debug\\.cpp:[0-9]+:dump 00[01]0: ([0-9A-F]{2} ){16})$",
                      REG_EXTENDED | REG_NOSUB),
              0);
    std::ifstream trace(trace_path);
    int lines = 0;
    for (std::string line; std::getline(trace, line); ++lines) {
        ASSERT_EQ(regexec(&whole, line.c_str(), 0, nullptr, 0), 0) << line;
    }
    regfree(&whole);
    EXPECT_EQ(lines, 4 * turns * threads * processes);
}

size_t resident_pages() {
    size_t total = 0;
    size_t resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident;
}

TEST(all_functions, leave_memory_flat_over_100000_calls) {
    if (sanitized) {
        GTEST_SKIP() << "a sanitizer keeps what is released";
    }
    size_t before = 0;
    for (int turn = 0; turn < 101000; ++turn) {
        if (turn % 1000 == 0) {
            EXPECT_EQ(truncate(trace_path, 0), 0);
            before = turn == 1000 ? resident_pages() : before;
        }
        ASSERT_TRUE(call_every_function());
    }
    // A block of the smallest size left behind by one call of each turn would be 800 pages.
    EXPECT_LE(resident_pages(), before + 100);
}

} // namespace

extern "C" {

// Reads every argument, so that a data race on one of them shows.
[[gnu::format(printf, 3, 4)]] int platform_log_write(int, int, const char *format, ...) {
    char text[1024];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return 0;
}

FILE *fopen(const char *path, const char *mode) {
    static const auto next = reinterpret_cast<decltype(&fopen)>(dlsym(RTLD_NEXT, "fopen"));
    return next(strcmp(path, TESRA_TRACE_FILE) == 0 ? trace_path : path, mode);
}

} // extern "C"

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    close(mkstemp(trace_path));
    const int status = RUN_ALL_TESTS();
    unlink(trace_path);
    return status;
}
