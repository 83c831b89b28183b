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

// The last of its six attributes that is there.
std::string subject_of(const tesra_cert_data &record) {
    for (size_t last = std::size(fields); last > std::size(fields) - 6; --last) {
        if (*(record.*fields[last - 1].text) != '\0') {
            return record.*fields[last - 1].text;
        }
    }
    return "no name";
}

json json_of(const tesra_cert_data &record) {
    json object;
    for (const auto &field : fields) {
        object[field.name] = record.*field.text;
    }
    return object;
}

json json_of(const fault &problem) {
    return {{"code", problem.kind.code}, {"line", problem.line}, {"text", problem.sentence()}};
}

json json_of(const block &seen) {
    json object = {{"first_line", seen.first_line},
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
        object["fault"] = json_of(seen.problem);
    }
    return object;
}

json json_of(const input &chain, const verdict &found) {
    json object = {{"file", chain.path},
                   {"count", found.count},
                   {"verdict", found.text},
                   {"recovered", found.recoverable.certificates.size()}};
    if (found.count == 0) {
        object["fault"] = json_of(found.cause);
    }
    object["blocks"] = json::array();
    for (const block &seen : found.list.blocks) {
        object["blocks"].push_back(json_of(seen));
    }
    object["stray_lines"] = json::array();
    for (const fault &stray : found.list.strays) {
        object["stray_lines"].push_back(json_of(stray));
    }
    return object;
}

// Hands over each file, with the list that --json prints; a refused file is in it with its error.
// The list is ASCII, since JSON's own escapes then cover control characters.
int for_each_chain(const command_line &given,
                   const std::function<bool(const input &chain, json &list)> &handle) {
    json list = json::array();
    const int status = for_each_file(
        given, [&](const input &chain) { return handle(chain, list); },
        [&](const std::string &path, const std::string &error) {
            list.push_back({{"file", path}, {"error", error}});
        });
    if (given.json) {
        std::cout << list.dump(2, ' ', true, json::error_handler_t::replace) << '\n';
    }
    return status;
}

std::string text_of(const block &seen) {
    std::string text = std::to_string(seen.first_line);
    if (seen.last_line > seen.first_line) {
        text += '-' + std::to_string(seen.last_line);
    }
    text += ": " + excerpt(seen.kind);
    if (seen.position >= 0) {
        text += ", position " + std::to_string(seen.position);
    } else if (!seen.is_reached) {
        text += ", not reached";
    }
    if (seen.record != nullptr) {
        text += ": " + excerpt(subject_of(*seen.record)) + ", until " + seen.record->not_after;
    }
    if (seen.problem.exists() && seen.problem.line != seen.first_line) {
        text += ": line " + std::to_string(seen.problem.line);
    }
    return text + (seen.problem.exists() ? ": " + seen.problem.sentence() : "");
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

// The positions that show was asked for: the first and the one after the last.
std::pair<int, int> wanted(const input &chain, const verdict &found, std::optional<int> index) {
    int end = 0;
    for (const block &seen : found.list.blocks) {
        end = std::max(end, seen.position + 1);
    }
    const bool is_one = index && *index >= 0 && *index < end;
    if (found.count == 0 && !is_one) {
        throw refusal(chain.name + ": " + found.text);
    }
    if (!index) {
        return {0, end};
    }
    if (*index >= end) {
        throw refusal(chain.name + ": the last certificate is at position " +
                      std::to_string(end - 1));
    }
    return *index < 0 ? std::pair(end - 1, end) : std::pair(*index, *index + 1);
}

void write_pem(const std::string &der) {
    const tesra_owned<BIO, BIO_free_all> pem(BIO_new(BIO_s_mem()));
    const auto *const bytes = reinterpret_cast<const unsigned char *>(der.data());
    char *text = nullptr;
    if (pem == nullptr ||
        PEM_write_bio(pem.get(), PEM_STRING_X509, "", bytes, static_cast<long>(der.size())) == 0) {
        throw std::bad_alloc();
    }
    const long length = BIO_get_mem_data(pem.get(), &text);
    std::cout.write(text, length);
}

} // namespace

int count(const command_line &given) {
    return for_each_file(given, [&](const input &chain) {
        const uint32_t certificates = count_certificates(chain.bytes);
        if (certificates == 0) {
            throw refusal(chain.name + ": " + judge_chain(chain).text);
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
        const verdict found = judge_chain(chain);
        const auto [first, end] = wanted(chain, found, given.index);
        json object = {{"file", chain.path}, {"certificates", json::array()}};
        std::string head = given.words.size() > 1 ? chain.name + ":\n" : "";
        bool is_good = true;
        for (const block &seen : found.list.blocks) {
            if (seen.position < first || seen.position >= end) {
                continue;
            }
            if (seen.record == nullptr) {
                object["error"] = chain.name + ':' + text_of(seen);
                complain(object["error"]);
                is_good = false;
            } else if (given.json) {
                object["certificates"].push_back(json_of(*seen.record));
            } else {
                std::cout << std::exchange(gap, "\n") << std::exchange(head, "");
                print(*seen.record, seen.position);
            }
        }
        list.push_back(object);
        return is_good;
    });
}

int check(const command_line &given) {
    return for_each_chain(given, [&](const input &chain, json &list) {
        const verdict found = judge_chain(chain);
        if (given.json) {
            list.push_back(json_of(chain, found));
        } else {
            print(chain.name, found.list);
            std::cout << chain.name << ": " << found.text << '\n';
        }
        return found.count > 0;
    });
}

int recover(const command_line &given) {
    return for_each_file(given, [&](const input &file) {
        const salvage found =
            salvage_certificates(file.bytes, read_blocks(file.bytes).blocks, true);
        for (const salvaged &each : found.certificates) {
            write_pem(each.der);
        }
        for (const fault &loss : found.losses) {
            complain(file.name + ':' + std::to_string(loss.line) + ": " + loss.sentence());
        }
        if (found.certificates.empty() && found.losses.empty()) {
            throw refusal(file.name + ": " + fault{faults::nothing}.sentence());
        }
        return found.losses.empty();
    });
}
