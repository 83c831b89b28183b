#include "commands.h"

#include "diagnosis.h"
#include "messages.h"

#include <iomanip>
#include <iostream>

namespace {

json json_of(const std::vector<std::string> &texts) {
    // In the record's order.
    constexpr const char *keys[] = {
        "serial_number",      "not_before",       "not_after",           "issuer_country",
        "issuer_state",       "issuer_locality",  "issuer_org",          "issuer_org_unit",
        "issuer_common_name", "subject_country",  "subject_state",       "subject_locality",
        "subject_org",        "subject_org_unit", "subject_common_name",
    };
    json object;
    for (size_t at = 0; at < std::size(keys); ++at) {
        object[keys[at]] = texts[at];
    }
    return object;
}

// The certificate at the position, or all of them.
json certificates_of(const input &chain, const std::optional<int> &index) {
    const auto texts = index ? texts_of(chain.bytes, *index) : std::vector<std::string>();
    if (!texts.empty()) {
        return json::array({json_of(texts)});
    }
    const uint32_t certificates = count_certificates(chain.bytes);
    const diagnosis found = diagnose(chain, certificates);
    const int last = static_cast<int>(certificates) - 1;
    const int wanted = index == -1 ? last : index.value_or(-1);
    json list = json::array();
    for (const finding &seen : found.findings) {
        if (seen.position < 0 || (index ? seen.position != wanted : last < 0)) {
            continue;
        }
        if (seen.texts.empty()) {
            throw refusal(chain.name + ':' + std::to_string(seen.fault.line) + ": position " +
                          std::to_string(seen.position) + ": " + seen.fault.text);
        }
        list.push_back(json_of(seen.texts));
    }
    if (list.empty()) {
        throw refusal(last < 0 ? found.in_one_line()
                               : chain.name + ": the last certificate is at position " +
                                     std::to_string(last));
    }
    return list;
}

} // namespace

int count(const command_line &given) {
    return for_each_file(given, [&](const input &chain, json &) {
        const uint32_t certificates = count_certificates(chain.bytes);
        if (certificates == 0) {
            throw refusal(diagnose(chain, 0).in_one_line());
        }
        std::cout << (given.words.size() > 1 ? chain.name + ':' : "") << certificates << '\n';
    });
}

// Nothing is printed of a chain before every certificate asked for has been read.
int show(const command_line &given) {
    const char *gap = "";
    return for_each_file(given, [&](const input &chain, json &object) {
        object["certificates"] = certificates_of(chain, given.index);
        std::string head = given.words.size() > 1 ? chain.name + ":\n" : "";
        int position = given.index.value_or(0);
        for (const json &certificate : given.has('j') ? json::array() : object["certificates"]) {
            head += position < 0 ? "Last certificate" : "Certificate " + std::to_string(position++);
            std::cout << std::left << gap << head << '\n';
            for (const auto &[key, value] : certificate.items()) {
                const std::string text = escaped(value.get<std::string>());
                std::cout << "  " << std::setw(text.empty() ? 0 : 20) << key << text << '\n';
            }
            head.clear();
            gap = "\n";
        }
    });
}
