#include "commands.h"

#include "diagnosis.h"
#include "messages.h"

#include <iostream>

namespace {

json text_or_null(const std::string &text) {
    return text.empty() ? json() : json(text);
}

// The first of its attributes that is there, from the common name up.
std::string subject_of(const std::vector<std::string> &texts) {
    for (auto text = texts.rbegin(); text != texts.rbegin() + 6; ++text) {
        if (!text->empty()) {
            return *text;
        }
    }
    return "no name";
}

json json_of(const finding &seen) {
    return {
        {"first_line", seen.first_line},
        {"last_line", seen.last_line},
        {"kind", text_or_null(seen.kind)},
        {"reached", seen.is_reached},
        {"position", seen.position < 0 ? json() : json(seen.position)},
        {"subject", !seen.texts.empty() ? json(subject_of(seen.texts)) : json()},
        {"not_after", !seen.texts.empty() ? json(seen.texts[2]) : json()},
        {"fault_line", seen.fault.text.empty() ? json() : json(seen.fault.line)},
        {"fault", text_or_null(seen.fault.text)},
        {"remedy", text_or_null(seen.fault.remedy)},
    };
}

std::string text_of(const finding &seen) {
    std::string text = std::to_string(seen.first_line);
    text += seen.last_line > seen.first_line ? '-' + std::to_string(seen.last_line) : "";
    text += seen.kind.empty() ? "" : ": " + excerpt(seen.kind);
    text += seen.position >= 0        ? ", position " + std::to_string(seen.position)
            : !seen.is_reached        ? ", not reached"
            : seen.fault.text.empty() ? ", passed over"
                                      : "";
    if (!seen.texts.empty()) { // [2] is not_after
        text += ": " + excerpt(subject_of(seen.texts)) + ", until " + seen.texts[2];
    }
    if (!seen.fault.text.empty()) {
        text +=
            ": " +
            (seen.fault.line != seen.first_line ? "line " + std::to_string(seen.fault.line) + ": "
                                                : "") +
            seen.fault.text + (seen.fault.remedy.empty() ? "" : ". " + seen.fault.remedy);
    }
    return text;
}

} // namespace

int check(const command_line &given) {
    return for_each_file(given, [&](const input &chain, json &object) {
        const uint32_t certificates = count_certificates(chain.bytes);
        const diagnosis found = diagnose(chain, certificates);
        object["count"] = certificates;
        object["verdict"] = found.verdict;
        object["remedy"] = text_or_null(found.remedy);
        object["findings"] = json::array();
        for (const finding &seen : found.findings) {
            object["findings"].push_back(json_of(seen));
            std::cout << (given.has('j') ? "" : chain.name + ':' + text_of(seen) + '\n');
        }
        std::cout << (given.has('j') ? "" : found.in_one_line() + '\n');
    });
}
