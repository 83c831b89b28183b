// Base64 and hexadecimal text. Empty input gives empty output, which the library refuses to make.
#pragma once

#include "input.h"

void base64_encode(const input &data);

// Takes text that is broken into lines, unlike the library.
void base64_decode(const input &text);

void hex_encode(const input &data);

// Takes two digits for each byte, broken into lines or not; or, if `lenient`, what the library
// takes.
void hex_decode(const input &text, bool lenient);
