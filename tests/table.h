// Tables of cases: text files with one case a line, its columns separated by ";".
#pragma once

#include <functional>
#include <string>
#include <vector>

using columns = std::vector<std::string>;

// Calls `run` with the columns of each row of cases/<file>. "#" starts a comment line, and a line
// "$name = text" defines what $name stands for below it.
void run_table(const std::string &file, size_t width,
               const std::function<void(const columns &)> &run);

columns split(const std::string &line, char separator);

// Resolves \s (blank), \n, \r, \t, \v, \f, \xHH; any other escaped character stands for itself.
std::string unescaped(const std::string &text);
