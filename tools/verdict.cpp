#include "verdict.h"

#include <openssl/pkcs12.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include <algorithm>
#include <string_view>

namespace {

using namespace std::string_view_literals;

constexpr const char *refused = "the library refuses it (--log 2 tells why)";

std::string at_line(const input &chain, size_t line) {
    return chain.name + ':' + std::to_string(line) + ": ";
}

template <class type, void release(type *)>
bool is_der(type *decode(type **, const unsigned char **, long), const input &chain) {
    const unsigned char *at = bytes_of(chain);
    const std::unique_ptr<type, decltype([](type *value) { release(value); })> value(
        decode(nullptr, &at, static_cast<long>(chain.bytes.size())));
    return value != nullptr;
}

// What a file without any PEM block is, and how to make a chain of it.
std::string not_pem(const input &chain) {
    const std::string_view text = chain.bytes;
    if (text.empty()) {
        return "empty, where a chain holds one certificate or more";
    }
    if (is_der<X509, X509_free>(d2i_X509, chain)) {
        return "DER, not PEM: openssl x509 -inform DER -in FILE -out CHAIN";
    }
    if (is_der<PKCS7, PKCS7_free>(d2i_PKCS7, chain)) {
        return "PKCS#7 in DER: openssl pkcs7 -inform DER -print_certs -in FILE | grep . >CHAIN";
    }
    if (is_der<PKCS12, PKCS12_free>(d2i_PKCS12, chain)) {
        return "PKCS#12: openssl pkcs12 -nokeys -in FILE | grep . >CHAIN";
    }
    if (is_der<EVP_PKEY, EVP_PKEY_free>(d2i_AutoPrivateKey, chain)) {
        return "a private key in DER, no certificate";
    }
    if (text.find("B\0E\0G\0I\0N"sv) != std::string_view::npos) {
        return "UTF-16: iconv -f UTF-16 -t UTF-8 FILE >CHAIN";
    }
    if (text.starts_with("MII") &&
        text.find_first_not_of("+/=\r\n0123456789ABCDEFGHIJKLM"
                               "NOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz") ==
            std::string_view::npos) {
        return "Base64 without BEGIN and END lines: "
               "base64 -d FILE | openssl x509 -inform DER -out CHAIN";
    }
    return "no PEM block in it";
}

// What a file is whose PEM blocks are all of other kinds.
std::string no_certificate(const std::string &kind) {
    constexpr struct {
        std::string_view in_kind;
        const char *verdict;
    } known[] = {
        {"PKCS", "PKCS#7, not a chain: openssl pkcs7 -print_certs -in FILE | grep . >CHAIN"},
        {"TRUSTED", "a certificate with trust settings: openssl x509 -in FILE -out CHAIN"},
        {"REQUEST", "a certificate request, no certificate; take what the CA makes of it"},
        {"KEY", "a key alone, no certificate; take the file that holds its certificate"},
    };
    for (const auto &row : known) {
        if (kind.find(row.in_kind) != std::string::npos) {
            return row.verdict;
        }
    }
    return "no certificate in it, only " + escaped(kind);
}

std::string words_for(std::string_view rest) {
    if (rest == "\n" || rest == "\r\n") {
        return "a blank line";
    }
    if (rest.find_first_not_of("\r\n") == std::string_view::npos) {
        return "blank lines";
    }
    if (rest.find_first_not_of(" \t\n\v\f\r") == std::string_view::npos) {
        return "white space";
    }
    return rest.find_first_not_of('\0') == std::string_view::npos ? "NUL" : "text";
}

std::string bytes_behind(const input &chain, const pem_block &last) {
    const std::string_view rest = std::string_view(chain.bytes).substr(last.end);
    const bool is_one = rest.size() == 1;
    return at_line(chain, last.last_line + 1) + std::to_string(rest.size()) +
           (is_one ? " byte follows" : " bytes follow") + " the last certificate's END line (" +
           words_for(rest) + "); the library reads on there and fails. Remove " +
           (is_one ? "it." : "them.");
}

// All blocks are good, and yet the chain does not end where its last certificate does.
std::string bad_end(const input &chain, const finding &found, const pem_block &last) {
    for (const auto &[block, position, is_reached, name, time] : found.blocks) {
        if (block.begin < last.begin + 1) {
            continue;
        }
        if (block.state == pem_block::hidden) {
            return at_line(chain, block.first_line) + block.fault + ". " + block.remedy;
        }
        return at_line(chain, block.first_line) + escaped(block.kind) +
               " follows the last certificate; the library looks behind it for one more and fails. "
               "Move it in front of a certificate, or elsewhere.";
    }
    return last.end < chain.bytes.size() ? bytes_behind(chain, last) : chain.name + ": " + refused;
}

std::string clean_end(const finding &found) {
    std::string verdict = std::to_string(found.certificates) +
                          (found.certificates == 1 ? " certificate" : " certificates") +
                          ", ends cleanly";
    for (const block_finding &seen : found.blocks) {
        if (!seen.block.fault.empty()) {
            verdict += "; line " + std::to_string(seen.block.first_line) + ": " + seen.block.fault;
        }
    }
    return verdict;
}

} // namespace

std::string verdict_on(const input &chain, const finding &found) {
    if (found.certificates > 0) {
        return chain.name + ": " + clean_end(found);
    }
    const pem_block *last_certificate = nullptr;
    const pem_block *other = nullptr;
    for (const auto &seen : found.blocks) {
        const pem_block &block = seen.block;
        if (block.state == pem_block::unreadable) {
            return at_line(chain, block.first_line) + escaped(block.kind) + ": " + block.fault +
                   "; the library reads no further. " + block.remedy;
        }
        (seen.position >= 0 ? last_certificate : other) = &block;
    }
    if (last_certificate != nullptr) {
        return bad_end(chain, found, *last_certificate);
    }
    if (chain.bytes.find('\r') != std::string::npos &&
        chain.bytes.find('\n') == std::string::npos) {
        return chain.name + ": no line feed in it: tr '\\r' '\\n' <FILE >CHAIN";
    }
    if (other != nullptr && other->state == pem_block::hidden) {
        return at_line(chain, other->first_line) + other->fault + ". " + other->remedy;
    }
    return chain.name + ": " + (other != nullptr ? no_certificate(other->kind) : not_pem(chain));
}
