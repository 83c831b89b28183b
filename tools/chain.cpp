#include "chain.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>
#include <new>
#include <optional>
#include <string_view>

namespace {

using bio_ptr = std::unique_ptr<BIO, decltype([](BIO *bio) { BIO_free_all(bio); })>;

constexpr std::string_view begin_mark = "-----BEGIN ";
constexpr std::string_view end_mark = "-----END ";
constexpr std::string_view dashes = "-----";

// The line at the start of the text. libcrypto takes a longer one for several.
std::string_view next_line(std::string_view text) {
    const std::string_view most = text.substr(0, 254);
    return most.substr(0, std::min(most.find('\n'), most.size() - 1) + 1);
}

std::string_view without_byte_order_mark(std::string_view line) {
    return line.starts_with("\xEF\xBB\xBF") ? line.substr(3) : line;
}

// What a BEGIN line names, as far as C functions see it; nothing if the line is none.
std::optional<std::string_view> kind_of(std::string_view line) {
    while (!line.empty() && line.back() <= ' ') {
        line.remove_suffix(1);
    }
    const size_t around = begin_mark.size() + dashes.size();
    if (line.size() < around || !line.starts_with(begin_mark) || !line.ends_with(dashes)) {
        return std::nullopt;
    }
    const std::string_view kind = line.substr(begin_mark.size(), line.size() - around);
    return kind.substr(0, kind.find('\0'));
}

// Where the first BEGIN line stands from `start` on, or the text's end. A byte order mark is passed
// over where a read starts, and nowhere else.
size_t find_begin_line(std::string_view text, size_t start) {
    for (size_t at = start; at < text.size(); at += next_line(text.substr(at)).size()) {
        const std::string_view line = next_line(text.substr(at));
        if (kind_of(at == start ? without_byte_order_mark(line) : line)) {
            return at;
        }
    }
    return text.size();
}

size_t line_breaks(std::string_view text, size_t from, size_t to) {
    return static_cast<size_t>(std::count(text.begin() + static_cast<ptrdiff_t>(from),
                                          text.begin() + static_cast<ptrdiff_t>(to), '\n'));
}

// Reads up to the end of the next block.
bool read_block(BIO *bio) {
    char *name = nullptr;
    char *header = nullptr;
    unsigned char *data = nullptr;
    long length = 0;
    ERR_clear_error();
    const bool is_read = PEM_read_bio(bio, &name, &header, &data, &length) == 1;
    OPENSSL_free(name);
    OPENSSL_free(header);
    OPENSSL_free(data);
    return is_read;
}

void explain_unreadable(pem_block &block, std::string_view text) {
    const int reason = ERR_GET_REASON(ERR_peek_last_error());
    const std::string_view own = text.substr(block.begin, block.end - block.begin);
    const bool has_end = own.find("\n" + std::string(end_mark)) != std::string_view::npos;
    block.state = pem_block::unreadable;
    block.remedy = "Copy it anew.";
    if (own.find(begin_mark, begin_mark.size()) != std::string_view::npos) {
        block.fault = "no END line of its own before the next BEGIN line";
        block.remedy = "Put a line break between the two, or the END line that is missing.";
    } else if (!has_end && block.end == text.size()) {
        block.fault = "cut off, without an END line";
    } else if (has_end && reason == PEM_R_BAD_END_LINE) {
        block.fault = "its END line does not fit its BEGIN line";
        block.remedy = "Correct it.";
    } else {
        block.fault = "what stands between its BEGIN and END lines is not Base64";
    }
}

// A BEGIN line that is overlooked behind the start of one block and in front of the next.
void add_hidden(std::vector<pem_block> &blocks, std::string_view text, const pem_block &before,
                size_t next_begin) {
    const size_t from = before.end == 0 ? 0 : before.begin + begin_mark.size();
    const size_t at = text.substr(0, next_begin).find(begin_mark, from);
    if (at == std::string_view::npos) {
        return;
    }
    pem_block block;
    block.state = pem_block::hidden;
    block.begin = block.end = at;
    block.first_line = before.first_line + line_breaks(text, before.begin, at);
    block.last_line = block.first_line;
    if (at > 0 && text[at - 1] == '\n') {
        block.fault = "a BEGIN line is passed over, for no END line stands in front of it";
        block.remedy = "Put the END line there.";
    } else {
        block.fault = "a BEGIN line is passed over, for it does not stand at the start of its line";
        block.remedy = "Put it there.";
    }
    blocks.push_back(block);
}

} // namespace

std::vector<pem_block> read_blocks(const input &chain) {
    const std::string_view text = chain.bytes;
    const bio_ptr bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    if (bio == nullptr) {
        throw std::bad_alloc();
    }
    std::vector<pem_block> blocks;
    pem_block before;
    for (size_t end = 0; end < text.size();) {
        const size_t start = end;
        const bool is_read = read_block(bio.get());
        end = text.size() - BIO_ctrl_pending(bio.get());
        const size_t begin = find_begin_line(text.substr(0, end), start);
        add_hidden(blocks, text, before, begin);
        if (begin == end) {
            break;
        }
        pem_block block;
        block.begin = begin;
        block.end = end;
        block.first_line = before.first_line + line_breaks(text, before.begin, begin);
        block.last_line = block.first_line + line_breaks(text, begin, end - 1);
        block.kind = kind_of(without_byte_order_mark(next_line(text.substr(begin)))).value_or("");
        if (!is_read) {
            explain_unreadable(block, text);
        }
        blocks.push_back(block);
        before = block;
    }
    return blocks;
}

bool is_certificate(const pem_block &block) {
    return block.kind == PEM_STRING_X509 || block.kind == PEM_STRING_X509_OLD;
}

uint32_t count_certificates(const input &chain) {
    return tesra_get_cert_count(chain.bytes.data(), chain.length());
}

record_ptr read_certificate(const input &chain, const pem_block &block) {
    return record_ptr(tesra_get_cert_data(chain.bytes.data() + block.begin,
                                          static_cast<uint32_t>(block.end - block.begin), 0));
}

bool counts(const input &chain, const pem_block &block) {
    return tesra_get_cert_count(chain.bytes.data() + block.begin,
                                static_cast<uint32_t>(block.end - block.begin)) == 1;
}
