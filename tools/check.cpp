#include "check.h"

#include "json.h"
#include "sinks.h"
#include "verdict.h"

#include <openssl/pem.h>
#include <openssl/x509.h>

#include <iostream>
#include <iterator>

namespace {

using bio_ptr = std::unique_ptr<BIO, decltype([](BIO *bio) { BIO_free_all(bio); })>;
using x509_ptr = std::unique_ptr<X509, decltype([](X509 *cert) { X509_free(cert); })>;

std::string_view text_of(const input &chain, const pem_block &block) {
    return std::string_view(chain.bytes).substr(block.begin, block.end - block.begin);
}

// What is wrong with a certificate's block that is Base64 and yet is not read.
void explain_refused(const input &chain, pem_block &block) {
    const std::string_view text = text_of(chain, block);
    block.state = pem_block::unreadable;
    if (text.find("ENCRYPTED") != std::string_view::npos) {
        block.fault = "encrypted";
        block.remedy = "Put the certificate there as it is; it is no secret.";
    } else if (text.find(':') != std::string_view::npos) {
        block.fault = "its header lines are not understood";
        block.remedy = "Remove them, and the blank line behind them.";
    } else {
        block.fault = "no certificate in its Base64 (the DER cannot be decoded)";
        block.remedy = "Copy it anew.";
    }
}

std::string explain_name(const X509_NAME *name, const std::string &whose) {
    for (const int nid : {NID_countryName, NID_stateOrProvinceName, NID_localityName,
                          NID_organizationName, NID_organizationalUnitName, NID_commonName}) {
        const int at = X509_NAME_get_index_by_NID(name, nid, -1);
        if (at < 0) {
            continue;
        }
        unsigned char *utf8 = nullptr;
        const int length =
            ASN1_STRING_to_UTF8(&utf8, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, at)));
        OPENSSL_free(utf8);
        if (length <= 0) {
            return whose + "'s " + OBJ_nid2ln(nid) +
                   (length == 0 ? " is empty" : " cannot be turned into UTF-8");
        }
    }
    return "";
}

// What is wrong with a certificate that counts and yet has no record.
std::string explain_no_record(const input &chain, const pem_block &block) {
    const std::string_view text = text_of(chain, block);
    const bio_ptr in(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    const bio_ptr nowhere(BIO_new(BIO_s_null()));
    const x509_ptr cert(PEM_read_bio_X509(in.get(), nullptr, nullptr, nullptr));
    if (cert == nullptr || nowhere == nullptr) {
        return "cannot be read";
    }
    if (ASN1_TIME_print(nowhere.get(), X509_get0_notBefore(cert.get())) == 0) {
        return "the start of its validity is a time that cannot be printed";
    }
    if (ASN1_TIME_print(nowhere.get(), X509_get0_notAfter(cert.get())) == 0) {
        return "the end of its validity is a time that cannot be printed";
    }
    std::string fault = explain_name(X509_get_issuer_name(cert.get()), "its issuer");
    if (fault.empty()) {
        fault = explain_name(X509_get_subject_name(cert.get()), "its subject");
    }
    return fault.empty() ? "its texts cannot be made" : fault;
}

void look_inside(const input &chain, block_finding &seen) {
    const record_ptr data = read_certificate(chain, seen.block);
    if (data == nullptr) {
        seen.block.fault = explain_no_record(chain, seen.block);
        return;
    }
    seen.subject_common_name = data->subject_common_name;
    seen.not_after = data->not_after;
}

std::string text_of(const input &chain, const block_finding &seen) {
    const pem_block &block = seen.block;
    std::string text = chain.name + ':' + std::to_string(block.first_line);
    if (block.last_line > block.first_line) {
        text += '-' + std::to_string(block.last_line);
    }
    if (block.state == pem_block::hidden) {
        return text + ": " + block.fault;
    }
    text += ": " + escaped(block.kind);
    if (!seen.is_reached) {
        text += ", not reached";
    } else if (seen.position >= 0) {
        text += ", position " + std::to_string(seen.position);
    } else if (block.fault.empty()) {
        text += ", passed over";
    }
    if (!block.fault.empty()) {
        return text + ": " + block.fault;
    }
    if (!seen.not_after.empty()) {
        text += ": " + escaped(seen.subject_common_name) + ", until " + escaped(seen.not_after);
    }
    return text;
}

json text_or_null(const std::string &text) {
    return text.empty() ? json() : json(text);
}

json json_of(const input &chain, const finding &found) {
    json blocks = json::array();
    for (const block_finding &seen : found.blocks) {
        blocks.push_back({
            {"first_line", seen.block.first_line},
            {"last_line", seen.block.last_line},
            {"kind", text_or_null(seen.block.kind)},
            {"reached", seen.is_reached},
            {"position", seen.position < 0 ? json() : json(seen.position)},
            {"subject_common_name", text_or_null(seen.subject_common_name)},
            {"not_after", text_or_null(seen.not_after)},
            {"fault", text_or_null(seen.block.fault)},
        });
    }
    return {{"file", chain.name},
            {"certificates", found.certificates},
            {"verdict", found.verdict},
            {"blocks", blocks}};
}

} // namespace

finding examine(const input &chain, uint32_t certificates) {
    finding found = {certificates, {}, ""};
    const muted_reports muted;
    bool is_reached = true;
    int positions = 0;
    for (const pem_block &block : read_blocks(chain)) {
        block_finding seen;
        seen.block = block;
        seen.is_reached = is_reached;
        if (block.state == pem_block::readable && is_certificate(block)) {
            if (counts(chain, block)) {
                seen.position = is_reached ? positions++ : -1;
                look_inside(chain, seen);
            } else {
                explain_refused(chain, seen.block);
            }
        }
        is_reached = is_reached && seen.block.state != pem_block::unreadable;
        found.blocks.push_back(seen);
    }
    found.verdict = verdict_on(chain, found);
    return found;
}

int check(const std::vector<std::string> &files, bool as_json) {
    json list = json::array();
    const int status = for_each_file(files, [&](const input &chain) {
        const finding found = examine(chain, count_certificates(chain));
        if (as_json) {
            list.push_back(json_of(chain, found));
        } else {
            for (const block_finding &seen : found.blocks) {
                std::cout << text_of(chain, seen) << '\n';
            }
            std::cout << found.verdict << '\n';
        }
        return found.certificates > 0;
    });
    std::cout << (as_json ? json_text(list) : "");
    return status;
}
