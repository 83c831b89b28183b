// What a command is given, and what it throws.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

// The input cannot be read or converted: one line for standard error, and exit status 1.
using refusal = std::runtime_error;

// The command line is wrong: one line for standard error, and exit status 2.
using wrong_usage = std::invalid_argument;

struct command_line {
    std::vector<std::string> words;   // after the command's name
    std::vector<std::string> options; // the names of the options given
    std::optional<int> index;
    std::string label;
    bool help = false;
    bool version = false;
    bool json = false;
    bool lenient = false;
    bool to_trace_file = false;
};

struct input {
    std::string path; // as it was given; "-" is standard input
    std::string name; // as it can be shown
    std::string bytes;

    uint32_t length() const {
        return static_cast<uint32_t>(bytes.size());
    }
    const uint8_t *data() const {
        return reinterpret_cast<const uint8_t *>(bytes.data());
    }
};

// Hands over each file that the words name, or standard input, however those before it fared.
// `handle` returns whether the file is good. One that cannot be read, or that `handle` refuses, is
// handed to `refuse` with the error, which standard error gets too. Returns the exit status: 1 if
// one of the files is not good.
int for_each_file(
    const command_line &given, const std::function<bool(const input &file)> &handle,
    const std::function<void(const std::string &path, const std::string &error)> &refuse = nullptr);
