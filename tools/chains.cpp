#include "commands.h"

#include "messages.h"
#include "verdict.h"

#include <openssl/pem.h>

#include <iomanip>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

namespace {

using json = nlohmann::ordered_json;

constexpr struct {
    const char *name;
    char *tesra_cert_data::*text;
} fields[] = {
    {"serial_number", &tesra_cert_data::serial_number},
    {"not_before", &tesra_cert_data::not_before},
    {"not_after", &tesra_cert_data::not_after},
    {"issuer_country", &tesra_cert_data::issuer_country},
    {"issuer_state", &tesra_cert_data::issuer_state},
    {"issuer_locality", &tesra_cert_data::issuer_locality},
    {"issuer_org", &tesra_cert_data::issuer_org},
    {"issuer_org_unit", &tesra_cert_data::issuer_org_unit},
    {"issuer_common_name", &tesra_cert_data::issuer_common_name},
    {"subject_country", &tesra_cert_data::subject_country},
    {"subject_state", &tesra_cert_data::subject_state},
    {"subject_locality", &tesra_cert_data::subject_locality},
    {"subject_org", &tesra_cert_data::subject_org},
    {"subject_org_unit", &tesra_cert_data::subject_org_unit},
    {"subject_common_name", &tesra_cert_data::subject_common_name},
};

// The last of its attributes that is there.
std::string subject_of(const tesra_cert_data &record) {
    std::string subject = "no name";
    for (const auto &field : fields) {
        if (std::string_view(field.name).starts_with("subject") && *(record.*field.text) != '\0') {
            subject = record.*field.text;
        }
    }
    return subject;
}

} // namespace

// nlohmann::json finds these by their names.

static void to_json(json &object, const tesra_cert_data &record) {
    for (const auto &field : fields) {
        object[field.name] = record.*field.text;
    }
}

static void to_json(json &object, const fault &problem) {
    object = {{"code", problem.kind.code}, {"line", problem.line}, {"text", problem.sentence()}};
}

static void to_json(json &object, const block &seen) {
    object = {{"first_line", seen.first_line},
              {"last_line", seen.last_line},
              {"kind", seen.kind},
              {"reached", seen.is_reached}};
    if (seen.position >= 0) {
        object["position"] = seen.position;
    }
    if (seen.record != nullptr) {
        object["subject"] = subject_of(*seen.record);
        object["not_after"] = seen.record->not_after;
    }
    if (seen.problem.exists()) {
        object["fault"] = seen.problem;
    }
}

namespace {

// Hands over each file, with the list that --json prints; a refused file is in it with its error.
// The list is ASCII, since JSON's own escapes then cover control characters.
int for_each_chain(const command_line &given,
                   const std::function<bool(const input &chain, json &list)> &handle) {
    json list = json::array();
    const int status = for_each_file(
        given.words, [&](const input &chain) { return handle(chain, list); },
        [&](const std::string &path, const std::string &error) {
            list.push_back({{"file", path}, {"error", error}});
        });
    if (given.options.contains("json")) {
        std::cout << list.dump(2, ' ', true, json::error_handler_t::replace) << '\n';
    }
    return status;
}

std::string text_of(const block &seen) {
    std::string text = std::to_string(seen.first_line) + '-' + std::to_string(seen.last_line) +
                       ": " + excerpt(seen.kind);
    if (seen.position >= 0) {
        text += ", position " + std::to_string(seen.position);
    } else if (!seen.is_reached) {
        text += ", not reached";
    }
    if (seen.record != nullptr) {
        text += ": " + excerpt(subject_of(*seen.record)) + ", until " + seen.record->not_after;
    }
    return seen.problem.exists() ? text + ": " + seen.problem.text() : text;
}

// Blocks and stray lines in the order of the file.
void print(const std::string &name, const block_list &list) {
    std::multimap<size_t, std::string> lines;
    for (const block &seen : list.blocks) {
        lines.emplace(seen.first_line, text_of(seen));
    }
    for (const fault &stray : list.strays) {
        lines.emplace(stray.line, std::to_string(stray.line) + ": " + stray.sentence());
    }
    for (const auto &[number, text] : lines) {
        std::cout << name << ':' << text << '\n';
    }
}

void print(const tesra_cert_data &record, int position) {
    std::cout << "Certificate " << position << '\n';
    for (const auto &field : fields) {
        const std::string text = escaped(record.*field.text);
        std::cout << "  " << std::left << std::setw(text.empty() ? 0 : 20) << field.name << text
                  << '\n';
    }
}

// The certificates that show was asked for; -1 is the last one.
std::vector<const block *> wanted(const verdict &found, std::optional<int> index) {
    const int last = static_cast<int>(found.count) - 1;
    if (index == -1) {
        index = last;
    }
    std::vector<const block *> certificates;
    for (const block &seen : found.list.blocks) {
        if (seen.position >= 0 && (index ? seen.position == *index : last >= 0)) {
            certificates.push_back(&seen);
        }
    }
    if (certificates.empty()) {
        if (last < 0) {
            throw refusal(found.text);
        }
        throw refusal("the last certificate is at position " + std::to_string(last));
    }
    return certificates;
}

} // namespace

int count(const command_line &given) {
    return for_each_file(given.words, [&](const input &chain) {
        const uint32_t certificates = count_certificates(chain.bytes);
        if (certificates == 0) {
            throw refusal(judge_chain(chain.bytes).text);
        }
        if (given.words.size() > 1) {
            std::cout << chain.name << ':';
        }
        std::cout << certificates << '\n';
        return true;
    });
}

// A certificate without a record is an error; the others are shown all the same.
int show(const command_line &given) {
    const char *gap = "";
    return for_each_chain(given, [&](const input &chain, json &list) {
        const verdict found = judge_chain(chain.bytes);
        json object = {{"file", chain.path}, {"certificates", json::array()}};
        std::string head = given.words.size() > 1 ? chain.name + ":\n" : "";
        bool is_good = true;
        for (const block *const seen : wanted(found, given.index)) {
            if (seen->record == nullptr) {
                object["error"] = chain.name + ':' + text_of(*seen);
                complain(object["error"]);
                is_good = false;
            } else if (given.options.contains("json")) {
                object["certificates"].push_back(*seen->record);
            } else {
                std::cout << std::exchange(gap, "\n") << std::exchange(head, "");
                print(*seen->record, seen->position);
            }
        }
        list.push_back(object);
        return is_good;
    });
}

int check(const command_line &given) {
    return for_each_chain(given, [&](const input &chain, json &list) {
        const verdict found = judge_chain(chain.bytes);
        if (given.options.contains("json")) {
            json object = {{"file", chain.path},
                           {"count", found.count},
                           {"verdict", found.text},
                           {"recovered", found.recoverable.certificates.size()}};
            if (found.count == 0) {
                object["fault"] = found.cause;
            }
            object["blocks"] = found.list.blocks;
            object["stray_lines"] = found.list.strays;
            list.push_back(object);
        } else {
            print(chain.name, found.list);
            std::cout << chain.name << ": " << found.text << '\n';
        }
        return found.count > 0;
    });
}

int recover(const command_line &given) {
    return for_each_file(given.words, [&](const input &file) {
        const salvage found = salvage_certificates(file.bytes, read_blocks(file.bytes).blocks);
        for (const salvaged &each : found.certificates) {
            const auto *const der = reinterpret_cast<const unsigned char *>(each.der.data());
            const auto size = static_cast<long>(each.der.size());
            if (PEM_write(stdout, PEM_STRING_X509, "", der, size) == 0) {
                throw refusal("cannot be written to standard output");
            }
        }
        for (const fault &loss : found.losses) {
            complain(file.name + ':' + std::to_string(loss.line) + ": " + loss.sentence());
        }
        if (found.certificates.empty() && found.losses.empty()) {
            throw refusal(fault{faults::nothing}.sentence());
        }
        return found.losses.empty();
    });
}
