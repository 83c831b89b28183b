// The commands. Each returns the exit status.
#pragma once

#include "input.h"

// The number of certificates in chains, their texts, and what is wrong with them; and every
// certificate that any file holds, as PEM.
int count(const command_line &given);
int show(const command_line &given);
int check(const command_line &given);
int recover(const command_line &given);

// Base64 and hexadecimal text. Empty input gives empty output, which the library refuses to make.
// The decoders take text that is broken into lines or not, with padding only at its end, or with
// two digits for each byte; or, with --lenient, what the library takes.
int base64_encode(const command_line &given);
int base64_decode(const command_line &given);
int hex_encode(const command_line &given);
int hex_decode(const command_line &given);

int dump(const command_line &given);
int trace(const command_line &given);
