#include "faults.h"

namespace {

void replace(std::string &text, const char *placeholder, const std::string &value) {
    const size_t at = text.find(placeholder);
    if (at != text.npos) {
        text.replace(at, 2, value);
    }
}

} // namespace

std::string fault::sentence() const {
    std::string text = exists() ? kind.sentence : "";
    replace(text, "%w", word);
    replace(text, "%d", detail);
    return text;
}
