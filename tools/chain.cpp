#include "chain.h"

#include "reports.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>

namespace {

using bio_ptr = std::unique_ptr<BIO, decltype([](BIO *bio) { BIO_free_all(bio); })>;

// Reads up to the end of the next block.
bool read_block(BIO *bio, std::string &kind, std::string &content) {
    char *name = nullptr;
    char *header = nullptr;
    unsigned char *data = nullptr;
    long length = 0;
    ERR_clear_error();
    const bool is_read = PEM_read_bio(bio, &name, &header, &data, &length) == 1;
    kind = is_read ? name : "";
    content.assign(reinterpret_cast<char *>(data), is_read ? static_cast<size_t>(length) : 0);
    OPENSSL_free(name);
    OPENSSL_free(header);
    OPENSSL_free(data);
    return is_read;
}

size_t line_breaks(std::string_view text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

// Why a block cannot be read. Libcrypto's first error is the cause, and a later one names the
// field, where there is one.
line_fault explain_unread(const finding &seen, std::string_view block, bool is_pem) {
    std::string reason;
    std::string field;
    const char *data = "";
    ERR_clear_error();
    const bio_ptr bio(BIO_new_mem_buf(block.data(), static_cast<int>(block.size())));
    X509_free(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
    while (const auto code = ERR_get_error_all(nullptr, nullptr, nullptr, &data, nullptr)) {
        const char *const text = ERR_reason_error_string(code);
        reason = reason.empty() && text != nullptr ? text : reason;
        field = field.empty() && *data != '\0' ? std::string(", ") + data : field;
    }
    if (block.find("ENCRYPTED") != block.npos) {
        return {seen.first_line, "encrypted", "Put the certificate as it is; it is no secret."};
    }
    if (block.find("\n-----END ") == block.npos) {
        return {seen.last_line, "cut off, without an END line", "Copy it again."};
    }
    // An error in a field tells that the outer length is right.
    const bool is_cut = !is_pem || field == ", Type=X509";
    return {seen.first_line,
            "unreadable (libcrypto: " + (reason.empty() ? "no data" : reason) + field + ')',
            is_cut          ? "Copy it again."
            : field.empty() ? "Remove its header."
                            : "It is whole, so ask whoever made it."};
}

// Finds out what becomes of a block, and what is wrong with it where its lines do not tell.
void examine(finding &seen, std::string_view block, bool is_pem, std::string_view content) {
    const bool claims_certificate =
        seen.kind == PEM_STRING_X509 || seen.kind == PEM_STRING_X509_OLD;
    if (is_pem && claims_certificate) {
        kept_errors errors;
        seen.texts = texts_of(block, 0);
        seen.is_certificate = !seen.texts.empty() || count_certificates(block) == 1;
        // As the daemon's log has them, but for those that tell of no failure, or of all that
        // failed.
        std::erase_if(errors.texts, [](const auto &text) { return text.starts_with("Entry not"); });
        errors.texts.resize(2);
        if (seen.is_certificate && seen.texts.empty()) {
            seen.fault = {seen.first_line, errors.texts[0] + ", " + errors.texts[1], ""};
        }
    } else if (is_pem) {
        const bool is_cms =
            seen.kind.find("PKCS") != std::string::npos || seen.kind == PEM_STRING_CMS;
        seen.holds = seen.kind == PEM_STRING_X509_TRUSTED ? finding::trusted
                     : is_cms                             ? finding::cms
                     : count_der(content) > 0             ? finding::certificate
                                                          : finding::nothing;
        const bool holds = seen.holds != finding::nothing;
        seen.fault = {seen.first_line, holds ? "passed over with its certificates" : "", ""};
    }
    seen.is_read = is_pem && seen.is_certificate == claims_certificate;
    if (seen.kind.starts_with("PGP ")) {
        seen.fault = {seen.first_line, "no PEM, but PGP", "Remove it."};
    } else if (!seen.is_read && seen.fault.text.empty()) {
        seen.fault = explain_unread(seen, block, is_pem);
    }
}

} // namespace

uint32_t count_certificates(std::string_view chain) {
    return tesra_get_cert_count(chain.data(), static_cast<uint32_t>(chain.size()));
}

std::vector<std::string> texts_of(std::string_view chain, int index) {
    const auto size = static_cast<uint32_t>(chain.size());
    tesra_cert_data *const record = tesra_get_cert_data(chain.data(), size, index);
    if (record == nullptr) {
        return {};
    }
    auto *const texts = reinterpret_cast<char **>(record);
    std::vector<std::string> copies(texts, texts + sizeof *record / sizeof *texts);
    tesra_free_cert_data(record);
    return copies;
}

size_t count_der(std::string_view bytes) {
    const auto *at = reinterpret_cast<const unsigned char *>(bytes.data());
    const auto *const end = at + bytes.size();
    size_t count = 0;
    while (X509 *const cert = d2i_X509(nullptr, &at, end - at)) {
        X509_free(cert);
        ++count;
    }
    return end - at > 1 ? 0 : count;
}

std::vector<finding> read_chain(const input &chain) {
    const std::string_view text = chain.bytes;
    const bio_ptr bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    const std::vector<marker_line> markers = find_marker_lines(text);
    auto marker = markers.begin();
    std::vector<finding> findings;
    constexpr size_t none = SIZE_MAX;
    size_t open = none; // the block that libcrypto gave up before its END line
    bool is_reached = true;
    int positions = 0;
    std::string kind;
    std::string content;
    for (size_t start = 0, end = 0; end < text.size(); start = end) {
        const bool is_pem = read_block(bio.get(), kind, content);
        end = text.size() - BIO_ctrl_pending(bio.get());
        size_t block = none;
        for (; marker != markers.end() && marker->begin < end; ++marker) {
            const size_t line = marker->fault.line;
            const bool is_end = marker->is_good && !marker->is_begin;
            const bool is_last = block != none && !marker->is_begin && marker->end >= end;
            if (block == none && marker->is_begin && marker->is_good) {
                block = findings.size();
                open = is_pem ? none : block;
                findings.push_back(
                    {marker->begin, end, line, line, marker->kind,
                     first_wrong_line(text.substr(marker->begin, end - marker->begin), line,
                                      is_pem)});
            } else if (is_last && (is_pem || (is_end && marker->kind == findings[block].kind))) {
                open = none;
            } else if (block != none && !is_pem && !marker->is_base64 &&
                       findings[block].fault.text.empty()) {
                findings[block].fault = marker->fault;
                open = is_last ? none : open;
            } else if (block == none && open != none && is_end) {
                findings[open].last_line = line;
                open = none;
            } else if (block == none || !marker->is_base64) {
                findings.push_back({0, 0, line, line, "", marker->fault});
            }
        }
        if (block == none &&
            (is_pem || ERR_GET_REASON(ERR_peek_last_error()) != PEM_R_NO_START_LINE)) {
            // Such as a part of a line of more than 254 bytes, which libcrypto takes for several.
            block = findings.size();
            const size_t line = line_breaks(text.substr(0, start)) + 1;
            findings.push_back({start, end, line, line, is_pem ? kind : "block"});
        }
        if (block != none) {
            finding &seen = findings[block];
            seen.last_line += line_breaks(text.substr(seen.begin, end - 1 - seen.begin));
            examine(seen, text.substr(seen.begin, end - seen.begin), is_pem, content);
            seen.is_reached = is_reached;
            seen.position = is_reached && seen.is_certificate ? positions++ : -1;
            is_reached = is_reached && seen.is_read;
        }
    }
    return findings;
}
