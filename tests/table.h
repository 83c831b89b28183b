// Tables of cases, in JSON files with comments.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

using columns = std::vector<std::string>;

// Calls `run` with each row of cases/<file>, a list of texts. What is no list names texts: "$name"
// in the rows below it is replaced by the text, as is each of `names`.
void run_table(const std::string &file, std::map<std::string, std::string> names,
               const std::function<void(const columns &)> &run);

// The bytes that the characters U+0000 to U+00FF of a UTF-8 text stand for.
std::string bytes_of(const std::string &text);
