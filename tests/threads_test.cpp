// All functions at once: from several threads, from several processes, and many times over.

#include "certificates.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <tesra_common.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

namespace {

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr bool sanitized = true; // which slows down most of what happens here many times over
#else
constexpr bool sanitized = false;
#endif

const int trace_file = memfd_create("trace", 0);
const std::string trace_path = "/proc/self/fd/" + std::to_string(trace_file);
std::atomic<int> reports = 0; // to the platform log

const std::string chain =
    make_certificate({.subject = full_name("subject"), .issuer = full_name("issuer")});
const auto *const chain_bytes = reinterpret_cast<const uint8_t *>(chain.data());
const auto chain_length = static_cast<uint32_t>(chain.size());

// Each function, a failure included; true if every result was right.
bool call_every_function() {
    bool right = tesra_get_cert_count(chain.data(), chain_length) == 1;
    right = tesra_get_cert_count(nullptr, 1) == 0 && right;
    tesra_cert_data *data = tesra_get_cert_data(chain.data(), chain_length, 0);
    right = data != nullptr && strcmp(data->issuer_common_name, "issuer13") == 0 && right;
    tesra_free_cert_data(data);

    char *base64 = nullptr;
    uint32_t told = 0;
    right = tesra_base64_encode(chain_bytes, 300, &base64) == 0 && right;
    uint8_t *from_base64 = tesra_base64_decode(base64, 400, &told);
    right = told == 300 && memcmp(from_base64, chain_bytes, told) == 0 && right;
    char *hex = tesra_hex_encode(chain_bytes, 300, &told);
    uint8_t *from_hex = tesra_hex_decode(hex, told, &told);
    right = told == 300 && memcmp(from_hex, chain_bytes, told) == 0 && right;
    for (void *block : std::initializer_list<void *>{base64, from_base64, hex, from_hex}) {
        free(block);
    }

    tesra_trace(4, "probe", 7, "%s\n", std::string(300, 't').c_str());
    tesra_dump(TESRA_DUMP_TRACE, "dump", chain_bytes, 32);
    return right;
}

// What stands behind the headers of the trace file's lines.
std::vector<std::string> traced() {
    std::vector<std::string> texts;
    std::ifstream in(trace_path);
    for (std::string line; std::getline(in, line);) {
        int header = 0;
        sscanf(line.c_str(), "%*19[0-9T:-].%*6[0-9] L%*d [%*d] %n", &header);
        texts.push_back(line.substr(static_cast<size_t>(header)));
    }
    EXPECT_EQ(ftruncate(trace_file, 0), 0);
    return texts;
}

TEST(all_functions, work_at_once_in_threads_and_processes) {
    ASSERT_TRUE(call_every_function());
    const std::vector<std::string> expected = traced();
    ASSERT_EQ(expected.size(), 4U);
    constexpr int turns = sanitized ? 100 : 500;
    for (int process = 0; process < 2; ++process) {
        if (fork() != 0) {
            continue;
        }
        std::atomic<bool> right = true;
        std::vector<std::thread> threads(4);
        for (std::thread &thread : threads) {
            thread = std::thread([&right] {
                for (int turn = 0; turn < turns; ++turn) {
                    right = call_every_function() && right;
                }
            });
        }
        std::for_each(threads.begin(), threads.end(), [](std::thread &each) { each.join(); });
        exit(right ? 0 : 1); // not _exit: a sanitizer may have findings to tell in the exit status
    }
    for (int status = 0; wait(&status) > 0;) {
        EXPECT_EQ(status, 0);
    }
    const std::vector<std::string> lines = traced();
    EXPECT_EQ(lines.size(), expected.size() * 2 * 4 * turns);
    for (const std::string &line : lines) {
        ASSERT_NE(std::find(expected.begin(), expected.end(), line), expected.end()) << line;
    }
}

size_t resident_pages() {
    size_t total = 0;
    size_t resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident;
}

auto open_descriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

TEST(all_functions, leave_memory_and_descriptors_flat_over_100000_calls) {
    if (sanitized) {
        GTEST_SKIP() << "a sanitizer keeps what is released";
    }
    const auto descriptors = open_descriptors();
    size_t before = 0;
    for (int turn = 0; turn < 101000; ++turn) {
        if (turn % 1000 == 0) {
            EXPECT_EQ(ftruncate(trace_file, 0), 0);
            before = turn == 1000 ? resident_pages() : before;
        }
        ASSERT_TRUE(call_every_function());
    }
    // A block of the smallest size left behind by one call of each turn would be 800 pages.
    EXPECT_LE(resident_pages(), before + 100);
    EXPECT_EQ(open_descriptors(), descriptors);
}

// In a process that is killed at its first system call other than read, write and exit.
TEST(reports, reach_the_platform_log_without_a_system_call) {
    if (sanitized) {
        GTEST_SKIP() << "a sanitizer makes calls of its own";
    }
    auto *record = static_cast<tesra_cert_data *>(calloc(1, sizeof(tesra_cert_data)));
    if (fork() == 0) {
        reports = 0;
        uint32_t told = 0;
        if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT) != 0) {
            _exit(99);
        }
        free(tesra_hex_decode(" 41", 3, &told));
        tesra_dump(TESRA_DUMP_LOG, "label", chain_bytes, 32);
        tesra_dump(TESRA_DUMP_LOG, "label", chain_bytes, 0);
        tesra_free_cert_data(record);
        syscall(SYS_exit, reports.load());
    }
    int status = 0;
    wait(&status);
    EXPECT_TRUE(WIFEXITED(status)) << "killed by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 9);
    free(record);
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
    ++reports;
    return 0;
}

FILE *fopen(const char *path, const char *mode) {
    static const auto next = reinterpret_cast<decltype(&fopen)>(dlsym(RTLD_NEXT, "fopen"));
    return next(strcmp(path, TESRA_TRACE_FILE) == 0 ? trace_path.c_str() : path, mode);
}

} // extern "C"
