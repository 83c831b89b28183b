#include "table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

columns split(const std::string &line, char separator) {
    columns parts;
    std::istringstream in(line);
    for (std::string part; std::getline(in, part, separator);) {
        part.erase(part.find_last_not_of(' ') + 1);
        parts.push_back(part.substr(std::min(part.find_first_not_of(' '), part.size())));
    }
    return parts;
}

std::string unescaped(const std::string &text) {
    static const std::map<char, char> escapes = {{'s', ' '},  {'n', '\n'}, {'r', '\r'},
                                                 {'t', '\t'}, {'v', '\v'}, {'f', '\f'}};
    std::string bytes;
    for (size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '\\') {
            bytes += text[at];
        } else if (text[++at] == 'x') {
            bytes += static_cast<char>(std::stoi(text.substr(at + 1, 2), nullptr, 16));
            at += 2;
        } else {
            const auto escape = escapes.find(text[at]);
            bytes += escape == escapes.end() ? text[at] : escape->second;
        }
    }
    return bytes;
}

void run_table(const std::string &file, size_t width,
               const std::function<void(const columns &)> &run) {
    std::ifstream in(TESRA_CASES "/" + file);
    std::map<std::string, std::string> names;
    int rows = 0;
    int number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        if (line.empty() || line[0] == '#') {
            continue;
        }
        const size_t equals = line[0] == '$' ? line.find('=') : 0;
        for (size_t at = equals; (at = line.find('$', at)) != std::string::npos; ++at) {
            const size_t end = std::min(line.find_first_of(" =|$", at + 1), line.size());
            const auto name = names.find(line.substr(at, end - at));
            if (name != names.end()) {
                line.replace(at, end - at, name->second);
            }
        }
        if (equals > 0) {
            names[split(line, ' ').front()] = line.substr(line.find_first_not_of(' ', equals + 1));
            continue;
        }
        SCOPED_TRACE(file + ":" + std::to_string(number));
        const columns row = split(line + ';', ';');
        ASSERT_EQ(row.size(), width);
        run(row);
        ++rows;
    }
    ASSERT_GT(rows, 0) << file;
}
