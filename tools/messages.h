// What people read.
//
// A message is one line. On standard error it starts with "tesra: ". The file and the line come
// first, then the cause. Text that somebody else chose is escaped, and cut where it may be of any
// length.
#pragma once

#include <string>

// UTF-8 text as it can be shown on a terminal: control and invisible characters are escaped.
std::string escaped(std::string_view text);

// The start of a text, escaped, and how much of it is left out.
std::string excerpt(std::string_view text);

std::string in_quotes(std::string_view text); // an excerpt

// Such as "1 byte" and "2 bytes".
std::string counted(size_t number, const std::string &noun);

// One line on standard error.
void complain(const std::string &text);
