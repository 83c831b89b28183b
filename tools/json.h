// How results are printed for programs.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

using json = nlohmann::ordered_json;

// ASCII: JSON's own escapes then cover every character that acts on a terminal.
inline std::string json_text(const json &value) {
    return value.dump(2, ' ', true, json::error_handler_t::replace) + '\n';
}
