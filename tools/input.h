// Files and standard input, and what a command throws.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

// The input cannot be read or converted: one line for standard error, and exit status 1.
using refusal = std::runtime_error;

// The command line is wrong: one line for standard error, and exit status 2.
using wrong_usage = std::invalid_argument;

struct input {
    std::string path; // as it was given; "-" is standard input
    std::string name; // as it can be shown
    std::string bytes;
};

// Hands over each file, or standard input if there are none, however those before it fared.
// `handle` returns whether the file is good, or throws a refusal that does not name it. Standard
// error gets a line about each file that cannot be read or is refused, and `refuse` gets the same
// text. Returns the exit status: 1 if one of the files is not good.
int for_each_file(
    const std::vector<std::string> &paths, const std::function<bool(const input &file)> &handle,
    const std::function<void(const std::string &path, const std::string &error)> &refuse = nullptr);
