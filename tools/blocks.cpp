#include "blocks.h"

#include "lines.h"
#include "messages.h"
#include "reports.h"
#include "search.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>

namespace {

struct reader {
    std::string_view text;
    tesra_owned<BIO, BIO_free_all> bio;
    size_t at = 0; // where libcrypto goes on
    size_t line = 1;
    bool is_inside = false; // after a BEGIN line that libcrypto takes
    std::string open = {};  // the kind of a block whose END line has not come
    bool is_reached = true; // by the library
    int certificates = 0;   // that it reaches
    block_list found = {};
};

// Reads up to the end of the next block, if there is one.
void read_block(BIO *bio, block &next) {
    char *name = nullptr;
    char *header = nullptr;
    unsigned char *data = nullptr;
    long length = 0;
    ERR_clear_error();
    if (PEM_read_bio(bio, &name, &header, &data, &length) == 1) {
        next.kind = name;
        next.content.assign(reinterpret_cast<char *>(data), static_cast<size_t>(length));
    }
    OPENSSL_free(name);
    OPENSSL_free(header);
    OPENSSL_free(data);
}

// The library is handed the text from where libcrypto started to read, so it reads the same block.
void ask_library(block &seen, std::string_view text) {
    if (seen.kind != PEM_STRING_X509 && seen.kind != PEM_STRING_X509_OLD) {
        seen.is_read = true;
        if (!find_certificates(seen.content).empty()) {
            seen.problem.kind = faults::skipped;
        }
        return;
    }
    kept_errors errors;
    seen.record.reset(tesra_get_cert_data(text.data(), static_cast<uint32_t>(text.size()), 0));
    ERR_clear_error(); // the queue would not hold the errors of two calls
    if (seen.record == nullptr && count_certificates(text) == 1) {
        // The innermost two, as in the daemon's log; a missing attribute is no failure.
        std::erase_if(errors.texts, [](const auto &each) { return each.starts_with("Entry not"); });
        errors.texts.resize(2);
        seen.problem = {faults::no_record, 0, errors.texts[0] + ", " + errors.texts[1]};
    }
    seen.is_certificate = seen.record != nullptr || seen.problem.exists();
    seen.is_read = seen.is_certificate;
}

// Whether a line is the first or the last one of a block. Where libcrypto gave up within the block
// before, the last line of that one is still to come.
bool is_of_block(const marker &found, reader &from, block &seen) {
    if (found.is_begin && !found.kind.empty() && !from.is_inside) {
        from.is_inside = true;
        from.open = seen.kind = found.kind;
        seen.begin = from.at;
        seen.first_line = from.line;
        return true;
    }
    if (found.is_begin || found.kind.empty() || found.kind != from.open) {
        return false;
    }
    from.open.clear();
    if (!from.is_inside) {
        from.found.blocks.back().last_line = from.line;
    }
    return true;
}

void read_line(std::string_view line, reader &from, block &seen) {
    if (from.at == seen.begin && line.starts_with("\xEF\xBB\xBF")) {
        line.remove_prefix(3); // libcrypto skips it where it starts to read
    }
    fault wrong;
    const std::optional<marker> found = read_marker(trimmed(line), from.line);
    if (found && !is_of_block(*found, from, seen)) {
        wrong = found->problem;
    } else if (!found && from.is_inside) {
        wrong = read_body_line(trimmed(line), from.line, seen.lines);
    }
    if (from.is_inside && !seen.is_read && !seen.problem.exists()) {
        seen.problem = wrong;
    } else if (found && wrong.exists()) {
        from.found.strays.push_back(wrong);
    }
    const auto is_beyond_ascii = [](char byte) { return (byte & 0x80) != 0; };
    if (from.is_inside && seen.is_certificate && !seen.problem.exists() &&
        std::ranges::any_of(line, is_beyond_ascii)) {
        seen.problem = {faults::not_ascii, from.line};
    }
}

void read_lines(reader &from, block &seen) {
    from.is_inside = false;
    while (from.at < seen.end) {
        const size_t size = std::min(from.text.find('\n', from.at), seen.end - 1) + 1 - from.at;
        const std::string_view line = from.text.substr(from.at, size);
        read_line(line, from, seen);
        seen.last_line = from.line;
        from.at += size;
        from.line += line.ends_with('\n') ? 1U : 0U;
    }
}

// Why a block cannot be read where no line of it is wrong.
fault explain_unread(const reader &from, const block &seen, std::string_view text) {
    const char *const reason = ERR_reason_error_string(ERR_peek_error()); // the first is the cause
    if (text.find("ENCRYPTED") != text.npos) {
        return {faults::encrypted, seen.first_line};
    }
    if (!from.open.empty()) {
        return {faults::truncated, seen.last_line};
    }
    const size_t size = der_size(seen.content);
    if (size != seen.content.size()) {
        return {faults::wrong_length, seen.first_line,
                counted(seen.content.size(), "byte") + " long, but says " + std::to_string(size)};
    }
    return {faults::unreadable, seen.first_line, reason == nullptr ? "no data" : reason};
}

// What libcrypto takes in one step: a block with what stands before it, or what follows the last.
void read_step(reader &from) {
    block seen = {.begin = from.at, .first_line = from.line};
    read_block(from.bio.get(), seen);
    seen.end = from.text.size() - BIO_ctrl_pending(from.bio.get());
    const std::string_view text = from.text.substr(from.at, seen.end - from.at);
    if (!seen.content.empty()) {
        ask_library(seen, text);
    }
    read_lines(from, seen);
    if (!from.is_inside && seen.content.empty()) {
        return;
    }
    if (seen.kind.starts_with("PGP ")) {
        seen.problem = {faults::pgp, seen.first_line};
    } else if (!seen.is_read && !seen.problem.exists()) {
        seen.problem = explain_unread(from, seen, text);
    } else if (seen.problem.line == 0) {
        seen.problem.line = seen.first_line; // which the library does not know
    }
    seen.is_reached = from.is_reached;
    if (seen.is_reached && seen.is_certificate) {
        seen.position = from.certificates++;
    }
    from.is_reached = seen.is_reached && seen.is_read;
    from.found.blocks.push_back(std::move(seen));
}

} // namespace

block_list read_blocks(std::string_view text) {
    reader from = {text, {BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), {}}};
    while (from.at < text.size()) {
        read_step(from);
    }
    return std::move(from.found);
}

uint32_t count_certificates(std::string_view chain) {
    return tesra_get_cert_count(chain.data(), static_cast<uint32_t>(chain.size()));
}

size_t der_size(std::string_view bytes) {
    const auto *const begin = reinterpret_cast<const unsigned char *>(bytes.data());
    const auto *at = begin;
    long length = 0;
    int tag = 0;
    int tag_class = 0;
    const int form =
        ASN1_get_object(&at, &length, &tag, &tag_class, static_cast<long>(bytes.size()));
    ERR_clear_error();
    const bool has_length = tag == V_ASN1_SEQUENCE && (form & 1) == 0; // 1: of indefinite length
    return has_length && at > begin ? static_cast<size_t>(at - begin + length) : bytes.size();
}
