// What the commands have in common: their input, what they throw, and text for a terminal.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

struct free_block {
    void operator()(void *block) const {
        free(block);
    }
};
template <class type>
using heap_ptr = std::unique_ptr<type, free_block>;

// The input cannot be read or converted: one line for standard error, and exit status 1.
struct refusal : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The command line is wrong: one line for standard error, and exit status 2.
struct wrong_usage : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct input {
    std::string name; // as it can be shown
    std::string bytes;

    uint32_t length() const {
        return static_cast<uint32_t>(bytes.size());
    }
};

// The file, or standard input for "-".
input read_input(const std::string &path);

const uint8_t *bytes_of(const input &data);

// UTF-8 text as it can be shown on a terminal, whoever chose it.
std::string escaped(std::string_view text);

// Hands over each file, or standard input if there is none, however those before it fared. Returns
// the exit status: 1 if one could not be read, was refused, or `handle` says that it is not good.
int for_each_file(const std::vector<std::string> &paths,
                  const std::function<bool(const input &)> &handle);

// One line on standard error.
void complain(const std::string &text);
