#include "salvage.h"

#include "search.h"

#include <algorithm>
#include <cctype>

namespace {

// Whether a certificate's block holds more than the certificate: more bytes, or more Base64.
bool holds_more(const block &seen, std::string_view text, size_t size) {
    const std::string_view lines = text.substr(seen.begin, seen.end - seen.begin);
    const size_t first = std::min(lines.find('\n'), lines.size());
    const size_t last = std::min(lines.rfind("-----END"), lines.size());
    if (size != seen.content.size() || last < first) {
        return true;
    }
    const std::string_view body = lines.substr(first, last - first);
    const auto digits = std::count_if(body.begin(), body.end(), [](unsigned char byte) {
        return std::isalnum(byte) != 0 || byte == '+' || byte == '/';
    });
    return static_cast<size_t>(digits) != (size * 8 + 5) / 6;
}

fault explain_loss(const found_item &item, size_t line, const std::vector<block> &blocks) {
    if (item.what == found_item::pkcs12) {
        return {faults::pkcs12, line};
    }
    const auto next =
        std::upper_bound(blocks.begin(), blocks.end(), item.begin,
                         [](size_t place, const block &each) { return place < each.begin; });
    if (next == blocks.begin() || std::prev(next)->is_read || item.begin >= std::prev(next)->end) {
        return {faults::damaged, line};
    }
    return std::prev(next)->problem;
}

// Searches a piece of the text. The first certificate in it may be known already.
void search_piece(line_counter &lines, size_t begin, size_t end, std::string_view known,
                  const std::vector<block> &blocks, salvage &result) {
    for (found_item &item : find_certificates(lines.text.substr(begin, end - begin))) {
        item.begin += begin;
        const size_t line = lines.line_of(item.begin);
        if (item.what != found_item::certificate) {
            result.losses.push_back(explain_loss(item, line, blocks));
        } else if (!known.empty() && item.der == known) {
            known = {};
        } else {
            result.certificates.push_back({line, false, std::move(item.der)});
        }
    }
}

} // namespace

// What the library does not read is searched: all that lies between two certificates that it reads.
salvage salvage_certificates(std::string_view text, const std::vector<block> &blocks,
                             bool is_chain) {
    salvage result;
    line_counter lines = {text};
    size_t searched = 0;
    for (const block &seen : blocks) {
        if (!seen.is_certificate) {
            continue;
        }
        search_piece(lines, searched, seen.begin, "", blocks, result);
        const size_t known = der_size(seen.content);
        const size_t size = known > 0 ? known : seen.content.size();
        const std::string der = seen.content.substr(0, size);
        result.certificates.push_back({seen.first_line, is_chain && seen.is_reached, der});
        if (holds_more(seen, text, size)) {
            search_piece(lines, seen.begin, seen.end, der, blocks, result);
        }
        searched = seen.end;
    }
    search_piece(lines, searched, text.size(), "", blocks, result);
    return result;
}
