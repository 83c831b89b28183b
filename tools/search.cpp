#include "search.h"

#include "readings.h"

#include <openssl/err.h>
#include <openssl/x509.h>

#include <algorithm>

namespace {

// How many attempts may enclose a place. Each costs time in proportion to its length, and hostile
// bytes can nest any number.
constexpr size_t max_enclosing = 8;

// PEM in Base64, as in a Kubernetes secret, and in Base64 once more.
constexpr int max_depth = 2;

// Shorter than any certificate, and than the text of one.
constexpr size_t min_size = 64;

// An element of DER. One that is cut short ends beyond the bytes.
struct element {
    int tag = -1;
    size_t content = 0;
    size_t end = 0;
};

element element_at(std::string_view bytes, size_t at) {
    if (at >= bytes.size()) {
        return {};
    }
    const auto *const start = reinterpret_cast<const unsigned char *>(bytes.data()) + at;
    const unsigned char *content = start;
    const auto room = static_cast<long>(bytes.size() - at);
    long length = 0;
    int tag = -1;
    int tag_class = 0;
    ASN1_get_object(&content, &length, &tag, &tag_class, room);
    at += static_cast<size_t>(content - start);
    return {tag, at, at + static_cast<size_t>(length)};
}

bool is_certificate(std::string_view der) {
    const auto *at = reinterpret_cast<const unsigned char *>(der.data());
    const unsigned char *const end = at + der.size();
    X509 *const cert = d2i_X509(nullptr, &at, end - at);
    X509_free(cert);
    return cert != nullptr && at == end;
}

// A certificate of version 3, which may be cut short.
bool starts_certificate(std::string_view bytes, const element &contents) {
    return contents.tag == V_ASN1_SEQUENCE &&
           bytes.substr(contents.content, 5) == "\xA0\x03\x02\x01\x02";
}

bool starts_pkcs12(std::string_view bytes, const element &whole) {
    const element contents = element_at(bytes, whole.content + 3);
    return bytes.substr(whole.content, 3) == "\x02\x01\x03" && contents.tag == V_ASN1_SEQUENCE &&
           bytes.substr(contents.content, 4) == "\x06\x09\x2A\x86";
}

// A certificate is a sequence of two sequences and a bit string. So its outline is checked first,
// at the cost of four headers.
void find_at(std::string_view bytes, size_t at, std::vector<size_t> &enclosing,
             std::vector<found_item> &found) {
    const element whole = element_at(bytes, at);
    const element contents = element_at(bytes, whole.content);
    const element algorithm = element_at(bytes, contents.end);
    const element signature = element_at(bytes, algorithm.end);
    const bool fits = whole.end <= bytes.size() && contents.tag == V_ASN1_SEQUENCE &&
                      algorithm.tag == V_ASN1_SEQUENCE && signature.tag == V_ASN1_BIT_STRING &&
                      signature.end == whole.end;
    std::erase_if(enclosing, [&](size_t end) { return end <= at; });
    if (fits && enclosing.size() < max_enclosing) {
        enclosing.push_back(whole.end);
        const std::string_view der = bytes.substr(at, whole.end - at);
        if (is_certificate(der)) {
            found.push_back({found_item::certificate, at, whole.end, std::string(der)});
            return;
        }
    }
    if (fits || starts_certificate(bytes, contents)) {
        found.push_back({found_item::damaged, at, at + 1, ""});
    } else if (starts_pkcs12(bytes, whole)) {
        found.push_back({found_item::pkcs12, at, whole.end, ""});
    }
}

std::vector<found_item> find_in_der(std::string_view bytes) {
    std::vector<size_t> enclosing; // where earlier attempts end
    std::vector<found_item> found;
    for (size_t at = bytes.find('\x30'); at < bytes.size() - 1; at = bytes.find('\x30', at + 1)) {
        // A length of more than 127 bytes, or an indefinite one.
        if (static_cast<unsigned char>(bytes[at + 1]) >> 3 == 0x80 >> 3) {
            find_at(bytes, at, enclosing, found);
        }
    }
    ERR_clear_error();
    return found;
}

bool starts_before(const found_item &one, const found_item &other) {
    return one.begin != other.begin ? one.begin < other.begin : one.what < other.what;
}

// Several readings may find the same certificate, and one that is cut short with what completes it.
std::vector<found_item> without_overlaps(std::vector<found_item> found) {
    std::stable_sort(found.begin(), found.end(), starts_before);
    std::vector<found_item> kept;
    for (found_item &item : found) {
        const bool overlaps = !kept.empty() && item.begin < kept.back().end;
        if (overlaps && (item.what != item.certificate || item.begin == kept.back().begin)) {
            continue;
        }
        if (overlaps && kept.back().what == item.certificate) {
            kept.back() = {item.damaged, kept.back().begin, item.begin, ""};
        } else if (overlaps) {
            kept.pop_back();
        }
        kept.push_back(std::move(item));
    }
    return kept;
}

bool holds_text(std::string_view bytes) {
    const auto is_printable = [](char byte, bool) {
        return (byte >= ' ' && byte <= '~') || byte == '\n' || byte == '\r' || byte == '\t' ||
               byte == '\0'; // as in UTF-16
    };
    return std::search_n(bytes.begin(), bytes.end(), min_size, true, is_printable) != bytes.end();
}

template <int depth>
std::vector<found_item> find_in_text(std::string_view source);

// A digit stands for six bits, so a byte may start in any of four digits.
template <int depth>
std::vector<found_item> find_in_part(std::string_view part) {
    std::vector<found_item> found;
    const auto take = [&](const derived_text &digits, size_t phase, found_item &item) {
        item.begin = digits.source_of(phase + item.begin * 4 / 3);
        item.end = digits.source_of(phase + item.end * 4 / 3 - 1) + 1; // the next digit may be far
        found.push_back(std::move(item));
    };
    for (const derived_text &digits : read_digits(part)) {
        for (size_t phase = 0; phase < 4; ++phase) {
            const std::string bytes = decode(digits, phase);
            for (found_item &item : find_in_der(bytes)) {
                take(digits, phase, item);
            }
            if constexpr (depth < max_depth) {
                if (holds_text(bytes)) {
                    for (found_item &item : find_in_text<depth + 1>(bytes)) {
                        take(digits, phase, item);
                    }
                }
            }
        }
    }
    return without_overlaps(std::move(found));
}

// Whether this stands between the dashes of a line that announces a certificate.
bool announces_certificate(std::string_view label) {
    return label.starts_with("BEGIN") && label.find("CERT") != label.npos &&
           label.find("REQ") == label.npos;
}

bool is_digit(char byte, bool) {
    return std::isalnum(static_cast<unsigned char>(byte)) != 0 || byte == '+' || byte == '/';
}

// Nothing is joined across rows of dashes: what follows a marker line is not the rest of what
// stands before it.
template <int depth>
std::vector<found_item> find_in_text(std::string_view source) {
    const derived_text plain = without_escapes(source);
    const std::string_view text = plain.text;
    std::vector<found_item> found;
    std::string_view label;
    size_t label_start = 0; // with its dashes
    size_t start = 0;       // of the part, with the dashes before it
    for (size_t at = 0, next = 0; at < text.size(); at = next) {
        const size_t end = std::min(text.find("----", at), text.size());
        next = std::min(text.find_first_not_of('-', end), text.size());
        const std::string_view part = text.substr(at, end - at);
        std::vector<found_item> items = find_in_part<depth>(part);
        for (found_item &item : items) {
            item.begin = plain.source_of(at + item.begin);
            item.end = plain.source_of(at + item.end);
        }
        const bool has_base64 =
            std::search_n(part.begin(), part.end(), 16, true, is_digit) != part.end();
        if (items.empty() && announces_certificate(label) &&
            (has_base64 || text.substr(next, 3) == "END")) {
            items.push_back({found_item::damaged, 0, 1, ""});
        }
        if (label.starts_with("BEGIN") && !items.empty()) {
            items[0].begin = plain.source_of(label_start);
        }
        std::move(items.begin(), items.end(), std::back_inserter(found));
        label = part.size() < min_size ? part : "";
        label_start = start;
        start = end;
    }
    return found;
}

} // namespace

std::vector<found_item> find_certificates(std::string_view text) {
    std::vector<found_item> found = without_overlaps(find_in_der(text));
    std::vector<found_item> in_text = find_in_text<0>(text);
    std::move(in_text.begin(), in_text.end(), std::back_inserter(found));
    std::stable_sort(found.begin(), found.end(), starts_before);
    return found;
}
