// Certificates in any bytes: in DER, and in Base64 however it is wrapped. Knows nothing of chains.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct found_item {
    // What starts like a certificate but cannot be read is damaged. PKCS#12 is left to OpenSSL,
    // which asks for its password.
    enum kind { certificate, damaged, pkcs12 } what;
    size_t begin; // in the text; of an item in Base64, up to 64 bytes too early
    size_t end;
    size_t signature; // where the signature of a certificate starts
    std::string der;  // of a certificate
    bool fits = true; // ends where its Base64 ends
};

// In the order of the text. A certificate that is cut short is completed by whatever follows it,
// since any bytes are a signature: one whose signature holds the start of another is dropped.
std::vector<found_item> find_certificates(std::string_view text);
