#include "salvage.h"

#include "search.h"

#include <algorithm>

namespace {

fault explain_loss(const found_item &item, size_t line, const std::vector<block> &blocks) {
    if (item.what == found_item::pkcs12) {
        return {faults::pkcs12, line};
    }
    const auto around = std::ranges::upper_bound(blocks, item.begin, {}, &block::end);
    if (around == blocks.end() || around->is_read || item.begin < around->begin) {
        return {faults::damaged, line};
    }
    return around->problem;
}

void skip_to(size_t place, salvage &found) {
    const std::string_view passed = found.text.substr(found.at, place - found.at);
    found.line += static_cast<size_t>(std::ranges::count(passed, '\n'));
    found.at = place;
}

// Searches the text up to a place. The first certificate there may be known already.
void search_to(size_t end, std::string known, const std::vector<block> &blocks, salvage &found) {
    const size_t start = found.at;
    for (found_item &item : find_certificates(found.text.substr(start, end - start))) {
        item.begin += start;
        skip_to(item.begin, found);
        if (item.what != found_item::certificate) {
            found.losses.push_back(explain_loss(item, found.line, blocks));
        } else if (item.der == known) {
            known.clear();
        } else {
            found.certificates.push_back({found.line, false, std::move(item.der)});
        }
    }
    skip_to(end, found);
}

} // namespace

// What the library does not read is searched: all that lies between two certificates that it reads,
// and a block that holds more than its certificate.
salvage salvage_certificates(std::string_view text, const std::vector<block> &blocks) {
    salvage found = {text};
    for (const block &seen : blocks) {
        if (!seen.is_certificate) {
            continue;
        }
        search_to(seen.begin, "", blocks, found);
        const std::string der = seen.content.substr(0, der_size(seen.content));
        found.certificates.push_back({seen.first_line, seen.is_reached, der});
        if (seen.lines.size != (der.size() + 2) / 3 * 4) {
            search_to(seen.end, der, blocks, found);
        }
        skip_to(seen.end, found);
    }
    search_to(text.size(), "", blocks, found);
    return found;
}
