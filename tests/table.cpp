#include "table.h"

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

namespace {

std::string expanded(std::string text, const std::map<std::string, std::string> &names) {
    // From the last name to the first: what another name begins with comes after that name.
    for (auto name = names.rbegin(); name != names.rend(); ++name) {
        size_t at = 0;
        while ((at = text.find(name->first, at)) != std::string::npos) {
            text.replace(at, name->first.size(), name->second);
            at += name->second.size();
        }
    }
    return text;
}

} // namespace

void run_table(const std::string &file, std::map<std::string, std::string> names,
               const std::function<void(const columns &)> &run) {
    std::ifstream in(TESRA_CASES "/" + file);
    for (const auto &row : nlohmann::json::parse(in, nullptr, true, true)) {
        if (row.is_object()) {
            for (const auto &[name, text] : row.items()) {
                names[name] = expanded(text, names);
            }
            continue;
        }
        SCOPED_TRACE(row.dump());
        columns cells;
        for (const std::string cell : row) {
            cells.push_back(expanded(cell, names));
        }
        run(cells);
    }
}

std::string bytes_of(const std::string &text) {
    std::string bytes;
    for (size_t at = 0; at < text.size(); ++at) {
        const bool is_pair = (text[at] & 0xC0) == 0xC0;
        bytes += is_pair ? static_cast<char>(text[at] << 6 | (text[at + 1] & 0x3F)) : text[at];
        at += is_pair ? 1 : 0;
    }
    return bytes;
}
