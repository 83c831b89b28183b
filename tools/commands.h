// The commands. Each returns the exit status.
#pragma once

#include "input.h"

#include <map>
#include <optional>

struct command_line {
    std::string command;
    std::vector<std::string> words;             // after it
    std::map<std::string, std::string> options; // their names and values
    std::optional<int> index;                   // the value of --index
};

// The number of certificates in chains, their texts, and what is wrong with them; and every
// certificate that any file holds, as PEM.
int count(const command_line &given);
int show(const command_line &given);
int check(const command_line &given);
int recover(const command_line &given);

// Bytes as Base64 or hexadecimal text, and back. Empty input gives empty output, which the library
// refuses to make. A text to decode may be broken by blanks and line breaks, and is padded only at
// its end, or has two digits for each byte; or, with --lenient, it is what the library takes.
int convert(const command_line &given);

int dump(const command_line &given);
int trace(const command_line &given);
