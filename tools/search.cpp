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

// Shorter than any certificate.
constexpr size_t min_size = 64;

// An element of DER with a definite length. The end is 0 if there is none.
struct element {
    unsigned char tag = 0;
    size_t content = 0;
    size_t end = 0;
};

element element_at(std::string_view bytes, size_t at) {
    if (bytes.size() < 2 || at > bytes.size() - 2) {
        return {};
    }
    const auto *const byte = reinterpret_cast<const unsigned char *>(bytes.data());
    size_t content = at + 2;
    size_t length = byte[at + 1];
    if (length >= 0x80) {
        const size_t digits = length - 0x80;
        if (digits == 0 || digits > 4 || digits > bytes.size() - content) {
            return {};
        }
        length = 0;
        for (size_t digit = 0; digit < digits; ++digit) {
            length = length << 8 | byte[content++];
        }
    }
    if (length > bytes.size() - content) {
        return {};
    }
    return {byte[at], content, content + length};
}

// Whether a tag stands there, and where the content starts; the rest of it may be missing.
bool skip_header(std::string_view bytes, size_t &at, unsigned char tag) {
    if (at + 2 > bytes.size() || static_cast<unsigned char>(bytes[at]) != tag) {
        return false;
    }
    const auto length = static_cast<unsigned char>(bytes[at + 1]);
    at += length > 0x80 && length <= 0x84 ? length - 0x80U + 2U : 2U;
    return true;
}

// Version 3 of a certificate that may be cut short.
bool starts_certificate(std::string_view bytes, size_t at) {
    return skip_header(bytes, at, 0x30) && skip_header(bytes, at, 0x30) && at < bytes.size() &&
           bytes.substr(at, 5) == "\xA0\x03\x02\x01\x02";
}

bool starts_pkcs12(std::string_view bytes, size_t at) {
    return skip_header(bytes, at, 0x30) && at < bytes.size() &&
           bytes.substr(at, 4) == "\x02\x01\x03\x30" && skip_header(bytes, at += 3, 0x30) &&
           at < bytes.size() && bytes.substr(at, 4) == "\x06\x09\x2A\x86";
}

bool is_certificate(std::string_view der) {
    const auto *at = reinterpret_cast<const unsigned char *>(der.data());
    const unsigned char *const end = at + der.size();
    X509 *const cert = d2i_X509(nullptr, &at, end - at);
    X509_free(cert);
    return cert != nullptr && at == end;
}

// A certificate is a sequence of two sequences and a bit string. So its outline is checked first,
// at the cost of four headers.
void find_in_der(std::string_view bytes, std::vector<found_item> &found) {
    std::vector<size_t> enclosing; // where earlier attempts end
    for (size_t at = bytes.find('\x30'); at != bytes.npos; at = bytes.find('\x30', at + 1)) {
        const element whole = element_at(bytes, at);
        const element contents = element_at(bytes, whole.content);
        const element algorithm = element_at(bytes, contents.end);
        const element signature = element_at(bytes, algorithm.end);
        const bool fits = whole.end > 0 && contents.tag == 0x30 && algorithm.tag == 0x30 &&
                          signature.tag == 0x03 && signature.end == whole.end;
        std::erase_if(enclosing, [&](size_t end) { return end <= at; });
        if (fits && enclosing.size() < max_enclosing) {
            enclosing.push_back(whole.end);
            const std::string_view der = bytes.substr(at, whole.end - at);
            if (is_certificate(der)) {
                found.push_back(
                    {found_item::certificate, at, whole.end, algorithm.end, std::string(der)});
                continue;
            }
        }
        if (fits || starts_certificate(bytes, at)) {
            found.push_back({found_item::damaged, at, at + min_size, at, ""});
        } else if (starts_pkcs12(bytes, at)) {
            found.push_back({found_item::pkcs12, at, std::max(whole.end, at + 1), at, ""});
        }
    }
    ERR_clear_error();
}

bool starts_before(const found_item &one, const found_item &other) {
    return one.begin != other.begin ? one.begin < other.begin : one.what < other.what;
}

// The same certificate may be found in several readings of a text, a certificate in another's
// extension, and, in a signature, the one that completes a certificate that is cut short.
std::vector<found_item> without_overlaps(std::vector<found_item> found) {
    std::stable_sort(found.begin(), found.end(), starts_before);
    std::vector<found_item> kept;
    for (found_item &item : found) {
        if (kept.empty() || item.begin >= kept.back().end) {
            kept.push_back(std::move(item));
            continue;
        }
        const found_item &last = kept.back();
        const bool is_better = item.begin >= last.signature || (item.fits && !last.fits);
        if (item.what == found_item::certificate && item.der != last.der && is_better) {
            kept.back() = std::move(item);
        }
    }
    return kept;
}

bool is_printable(char byte) {
    return (byte >= ' ' && byte <= '~') || byte == '\n' || byte == '\r' || byte == '\t' ||
           byte == '\0'; // as in UTF-16
}

void find_in_text(std::string_view text, int depth, std::vector<found_item> &found);

// Bytes may hold text that holds certificates.
void find_in_texts(std::string_view bytes, int depth, std::vector<found_item> &found) {
    for (auto at = bytes.begin(); at != bytes.end();) {
        const auto begin = std::find_if(at, bytes.end(), is_printable);
        at = std::find_if_not(begin, bytes.end(), is_printable);
        const size_t before = found.size();
        const auto offset = static_cast<size_t>(begin - bytes.begin());
        if (static_cast<size_t>(at - begin) >= min_size) {
            find_in_text({&*begin, static_cast<size_t>(at - begin)}, depth, found);
        }
        for (size_t item = before; item < found.size(); ++item) {
            found[item].begin += offset;
            found[item].end += offset;
            found[item].signature += offset;
        }
    }
}

// A digit stands for six bits, so a byte may start in any of four digits.
void find_in_digits(const base64_digits &digits, int depth, std::vector<found_item> &found) {
    for (size_t phase = 0; phase < 4; ++phase) {
        const std::string bytes = decode(digits, phase);
        const size_t before = found.size();
        find_in_der(bytes, found);
        if (depth < max_depth) {
            find_in_texts(bytes, depth + 1, found);
        }
        for (size_t item = before; item < found.size(); ++item) {
            found[item].fits = phase + (found[item].end * 4 + 2) / 3 >= digits.values.size();
            for (size_t *place : {&found[item].begin, &found[item].end, &found[item].signature}) {
                *place = digits.places.source_of(phase + *place * 4 / 3);
            }
        }
    }
}

void find_in_text(std::string_view text, int depth, std::vector<found_item> &found) {
    for_each_part(text, [&](const text_part &part) {
        const size_t before = found.size();
        for (const base64_digits &digits : read_digits(part)) {
            find_in_digits(digits, depth, found);
        }
        if (found.size() == before && part.is_certificate && (!part.is_empty || part.has_end)) {
            found.push_back({found_item::damaged, part.begin, part.begin + 1, part.begin, ""});
        }
    });
}

} // namespace

std::vector<found_item> find_certificates(std::string_view text) {
    std::vector<found_item> in_der;
    std::vector<found_item> in_text;
    find_in_der(text, in_der);
    find_in_text(text, 0, in_text);
    std::vector<found_item> found = without_overlaps(std::move(in_der));
    for (found_item &item : without_overlaps(std::move(in_text))) {
        found.push_back(std::move(item));
    }
    std::stable_sort(found.begin(), found.end(), starts_before);
    return found;
}
