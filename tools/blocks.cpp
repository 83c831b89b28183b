#include "blocks.h"

#include "messages.h"
#include "reports.h"
#include "search.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>
#include <set>

namespace {

using bio_ptr = tesra_owned<BIO, BIO_free_all>;

bio_ptr bio_of(std::string_view text) {
    return bio_ptr(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

// Reads up to the end of the next block. False, if there is none.
bool read_block(BIO *bio, block &next) {
    char *name = nullptr;
    char *header = nullptr;
    unsigned char *data = nullptr;
    long length = 0;
    ERR_clear_error();
    next.is_pem = PEM_read_bio(bio, &name, &header, &data, &length) == 1;
    if (next.is_pem) {
        next.kind = name;
        next.content.assign(reinterpret_cast<char *>(data), static_cast<size_t>(length));
    }
    OPENSSL_free(name);
    OPENSSL_free(header);
    OPENSSL_free(data);
    return next.is_pem || ERR_GET_REASON(ERR_peek_last_error()) != PEM_R_NO_START_LINE;
}

std::vector<block> read_all(std::string_view text) {
    const bio_ptr bio = bio_of(text);
    std::vector<block> blocks;
    for (size_t end = 0; end < text.size();) {
        block next;
        next.start = end;
        const bool is_block = read_block(bio.get(), next);
        end = next.end = text.size() - BIO_ctrl_pending(bio.get());
        if (is_block) {
            blocks.push_back(std::move(next));
        }
    }
    return blocks;
}

// Finds the lines of a block among the marker lines from `next` on. Those that belong to no block
// go to `strays`. Returns the first marker after the block.
size_t attach(block &seen, const std::vector<marker_line> &markers, size_t next,
              std::vector<fault> &strays) {
    const auto is_within = [&] { return next < markers.size() && markers[next].begin < seen.end; };
    const auto is_first_line = [&](const marker_line &marker) {
        return marker.is_begin && marker.is_good && (!marker.has_bom || marker.begin == seen.start);
    };
    for (; is_within() && !is_first_line(markers[next]); ++next) {
        strays.push_back(markers[next].problem);
    }
    if (!is_within()) {
        return next; // part of a line of more than 254 bytes, which libcrypto takes for several
    }
    seen.begin = markers[next].begin;
    seen.first_line = markers[next].problem.line;
    seen.kind = markers[next].kind;
    for (++next; is_within(); ++next) {
        const marker_line &marker = markers[next];
        const bool is_its_end =
            !marker.is_begin && marker.is_good && !marker.has_bom && marker.kind == seen.kind;
        if (marker.end >= seen.end && (is_its_end || (seen.is_pem && !marker.is_begin))) {
            return next + 1;
        }
        strays.push_back(marker.problem);
        if (!seen.is_pem && !seen.problem.exists()) {
            seen.problem = marker.problem;
        }
    }
    // Where libcrypto gives up within a block, its END line is still to come.
    if (!seen.is_pem && next < markers.size() && !markers[next].is_begin &&
        markers[next].kind == seen.kind) {
        seen.last_line = markers[next++].problem.line;
    }
    return next;
}

// The first error of libcrypto is the cause.
std::string libcrypto_reason(std::string_view text) {
    ERR_clear_error();
    X509_free(PEM_read_bio_X509(bio_of(text).get(), nullptr, nullptr, nullptr));
    const char *const reason = ERR_reason_error_string(ERR_peek_error());
    return std::string("libcrypto: ") + (reason == nullptr ? "no data" : reason);
}

// Why a block cannot be read where no line of it is wrong.
fault explain_unread(const block &seen, std::string_view text) {
    if (text.find("ENCRYPTED") != text.npos) {
        return {faults::encrypted, seen.first_line};
    }
    if (!seen.is_pem && text.find("\n-----END ") == text.npos) {
        return {faults::truncated, seen.last_line};
    }
    const size_t size = der_size(seen.content);
    if (seen.is_pem && size > 0 && size != seen.content.size()) {
        return {faults::wrong_length, seen.first_line, "",
                counted(seen.content.size(), "byte") + " long, but says " + std::to_string(size)};
    }
    return {faults::unreadable, seen.first_line, "", libcrypto_reason(text)};
}

// The library is handed the text from where libcrypto started to read, so it reads the same block.
void judge_certificate(block &seen, std::string_view text) {
    kept_errors errors;
    seen.record = record_of(text, 0);
    seen.is_certificate = seen.record != nullptr || count_certificates(text) == 1;
    if (seen.is_certificate && seen.record == nullptr) {
        // The innermost two, as in the daemon's log; a missing attribute is no failure.
        std::erase_if(errors.texts, [](const auto &each) { return each.starts_with("Entry not"); });
        errors.texts.resize(2);
        seen.problem = {faults::no_record, seen.first_line, "",
                        errors.texts[0] + ", " + errors.texts[1]};
    }
}

bool is_beyond_ascii(char byte) {
    return static_cast<unsigned char>(byte) >= 0x80;
}

void judge(block &seen, std::string_view whole) {
    const std::string_view text = whole.substr(seen.start, seen.end - seen.start);
    const std::string_view lines = whole.substr(seen.begin, seen.end - seen.begin);
    const bool claims = seen.kind == PEM_STRING_X509 || seen.kind == PEM_STRING_X509_OLD;
    if (seen.is_pem && claims) {
        judge_certificate(seen, text);
    }
    seen.is_read = seen.is_pem && seen.is_certificate == claims;
    if (seen.kind.starts_with("PGP ")) {
        seen.problem = {faults::pgp, seen.first_line};
    } else if (!seen.is_read) {
        const fault wrong = first_wrong_line(lines, seen.first_line);
        if (wrong.exists()) {
            seen.problem = wrong;
        } else if (!seen.problem.exists()) {
            seen.problem = explain_unread(seen, text);
        }
    } else if (seen.is_certificate && !seen.problem.exists()) {
        const auto beyond = std::find_if(lines.begin() + 3, lines.end(), is_beyond_ascii);
        if (beyond != lines.end()) {
            const auto before = std::count(lines.begin(), beyond, '\n');
            seen.problem = {faults::not_ascii, seen.first_line + static_cast<size_t>(before)};
        }
    } else if (!claims && !find_certificates(seen.content).empty()) {
        seen.problem = {faults::skipped, seen.first_line};
    }
}

} // namespace

block_list read_blocks(std::string_view text) {
    const std::vector<marker_line> markers = find_marker_lines(text);
    block_list list = {read_all(text), {}};
    line_counter counter = {text};
    std::set<size_t> told; // lines that are the fault of a block
    size_t next = 0;
    bool is_reached = true;
    int positions = 0;
    for (block &seen : list.blocks) {
        next = attach(seen, markers, next, list.strays);
        if (seen.first_line == 0) {
            seen.begin = seen.start;
            seen.first_line = counter.line_of(seen.start);
            seen.kind = seen.is_pem ? seen.kind : "block";
        }
        seen.last_line = std::max(seen.last_line, counter.line_of(seen.end - 1));
        judge(seen, text);
        seen.is_reached = is_reached;
        if (is_reached && seen.is_certificate) {
            seen.position = positions++;
        }
        is_reached = is_reached && seen.is_read;
        told.insert(seen.problem.line);
    }
    for (; next < markers.size(); ++next) {
        list.strays.push_back(markers[next].problem);
    }
    std::erase_if(list.strays, [&](const fault &stray) { return told.contains(stray.line); });
    return list;
}

uint32_t count_certificates(std::string_view chain) {
    return tesra_get_cert_count(chain.data(), static_cast<uint32_t>(chain.size()));
}

record_ptr record_of(std::string_view chain, int index) {
    return record_ptr(
        tesra_get_cert_data(chain.data(), static_cast<uint32_t>(chain.size()), index));
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
    const bool is_sequence = tag == V_ASN1_SEQUENCE && (form & 1) == 0; // 1: of indefinite length
    return is_sequence && at > begin ? static_cast<size_t>(at - begin + length) : 0;
}
