#include "show.h"

#include "check.h"
#include "json.h"

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <sstream>

namespace {

constexpr struct {
    const char *key;
    const char *title;
    char *tesra_cert_data::*text;
} fields[] = {
    {"serial_number", "Serial number", &tesra_cert_data::serial_number},
    {"not_before", "Valid from", &tesra_cert_data::not_before},
    {"not_after", "Valid to", &tesra_cert_data::not_after},
    {"issuer_country", "Issuer country", &tesra_cert_data::issuer_country},
    {"issuer_state", "Issuer state", &tesra_cert_data::issuer_state},
    {"issuer_locality", "Issuer locality", &tesra_cert_data::issuer_locality},
    {"issuer_org", "Issuer org", &tesra_cert_data::issuer_org},
    {"issuer_org_unit", "Issuer org unit", &tesra_cert_data::issuer_org_unit},
    {"issuer_common_name", "Issuer common name", &tesra_cert_data::issuer_common_name},
    {"subject_country", "Subject country", &tesra_cert_data::subject_country},
    {"subject_state", "Subject state", &tesra_cert_data::subject_state},
    {"subject_locality", "Subject locality", &tesra_cert_data::subject_locality},
    {"subject_org", "Subject org", &tesra_cert_data::subject_org},
    {"subject_org_unit", "Subject org unit", &tesra_cert_data::subject_org_unit},
    {"subject_common_name", "Subject common name", &tesra_cert_data::subject_common_name},
};

json json_of(const tesra_cert_data &data) {
    json object;
    for (const auto &field : fields) {
        object[field.key] = data.*field.text;
    }
    return object;
}

std::string text_of(const tesra_cert_data &data, int index) {
    std::ostringstream text;
    text << (index == -1 ? "Last certificate" : "Certificate " + std::to_string(index)) << '\n';
    for (const auto &field : fields) {
        const std::string value = escaped(data.*field.text);
        text << "  " << std::left << std::setw(value.empty() ? 0 : 20) << field.title << value
             << '\n';
    }
    return text.str();
}

uint32_t count_or_refuse(const input &chain) {
    const uint32_t certificates = count_certificates(chain);
    if (certificates == 0) {
        throw refusal(examine(chain, 0).verdict);
    }
    return certificates;
}

[[noreturn]] void refuse(const input &chain, int index) {
    const finding found = examine(chain, count_certificates(chain));
    const int certificates = static_cast<int>(found.certificates);
    const int position = index == -1 ? certificates - 1 : index;
    for (const block_finding &seen : found.blocks) {
        if (seen.position == position && !seen.block.fault.empty()) {
            throw refusal(chain.name + ':' + std::to_string(seen.block.first_line) + ": position " +
                          std::to_string(position) + ": " + seen.block.fault);
        }
    }
    if (certificates > 0) {
        throw refusal(chain.name + ": no certificate at position " + std::to_string(index) +
                      "; the last is at " + std::to_string(certificates - 1));
    }
    throw refusal(found.verdict);
}

record_ptr or_refuse(record_ptr data, const input &chain, int index) {
    if (data == nullptr) {
        refuse(chain, index);
    }
    return data;
}

// The certificate at the position, or all of them.
std::vector<record_ptr> read_chain(const input &chain, const std::optional<int> &index) {
    std::vector<record_ptr> certificates;
    if (index) {
        record_ptr data(tesra_get_cert_data(chain.bytes.data(), chain.length(), *index));
        certificates.push_back(or_refuse(std::move(data), chain, *index));
        return certificates;
    }
    count_or_refuse(chain);
    for (const pem_block &block : read_blocks(chain)) {
        if (block.state == pem_block::readable && is_certificate(block)) {
            const int position = static_cast<int>(certificates.size());
            certificates.push_back(or_refuse(read_certificate(chain, block), chain, position));
        }
    }
    return certificates;
}

json json_of(const std::vector<record_ptr> &certificates) {
    json list = json::array();
    for (const record_ptr &data : certificates) {
        list.push_back(json_of(*data));
    }
    return list;
}

std::string text_of(const std::vector<record_ptr> &certificates, const std::optional<int> &index) {
    std::string text;
    for (size_t at = 0; at < certificates.size(); ++at) {
        text += (at == 0 ? "" : "\n") +
                text_of(*certificates[at], index.value_or(static_cast<int>(at)));
    }
    return text;
}

} // namespace

int count(const std::vector<std::string> &files) {
    return for_each_file(files, [&](const input &chain) {
        const uint32_t certificates = count_or_refuse(chain);
        std::cout << (files.size() > 1 ? chain.name + ':' : "") << certificates << '\n';
        return true;
    });
}

// Nothing is printed of a chain before every certificate asked for has been read.
int show(const std::vector<std::string> &files, const std::optional<int> &index, bool as_json) {
    const bool are_many = files.size() > 1;
    json list = json::array();
    bool is_first = true;
    const int status = for_each_file(files, [&](const input &chain) {
        const std::vector<record_ptr> certificates = read_chain(chain, index);
        if (as_json) {
            list.push_back({{"file", chain.name}, {"certificates", json_of(certificates)}});
        } else {
            std::cout << (is_first ? "" : "\n") << (are_many ? chain.name + ":\n" : "")
                      << text_of(certificates, index);
        }
        is_first = false;
        return true;
    });
    if (as_json && are_many) {
        std::cout << json_text(list);
    } else if (as_json && !list.empty()) {
        const json &certificates = list[0]["certificates"];
        std::cout << json_text(index ? certificates[0] : certificates);
    }
    return status;
}
