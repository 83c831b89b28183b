// What a command is given, and what it throws.
#pragma once

#include <nlohmann/json.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

using json = nlohmann::ordered_json;

template <class type>
using heap_ptr = std::unique_ptr<type, decltype([](void *block) { free(block); })>;

// The input cannot be read or converted: one line for standard error, and exit status 1.
using refusal = std::runtime_error;

// The command line is wrong: one line for standard error, and exit status 2.
using wrong_usage = std::invalid_argument;

struct command_line {
    std::vector<std::string> words; // after the command's name
    std::string options;            // the letters of those that are there
    std::optional<int> index;
    std::string label;

    bool has(char option) const {
        return options.find(option) != std::string::npos;
    }
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

// Hands over each file that the words name, or standard input, however those before it fared, with
// an object that --json prints in a list. A file that cannot be read, or that `handle` refuses, is
// in the list with its error. Returns the exit status: 1 if there is such a file, or one whose
// "count" is 0.
int for_each_file(const command_line &given,
                  const std::function<void(const input &file, json &object)> &handle);
