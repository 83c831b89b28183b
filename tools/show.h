// The number of certificates in chains, and their texts.
#pragma once

#include <optional>
#include <string>
#include <vector>

// Both print what they find in each file and return the exit status.
int count(const std::vector<std::string> &files);
int show(const std::vector<std::string> &files, const std::optional<int> &index, bool as_json);
