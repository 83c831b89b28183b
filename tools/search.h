// Certificates in any bytes: in DER, and in Base64 however it is wrapped. Knows nothing of chains.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct found_item {
    // What starts like a certificate but cannot be read is damaged. PKCS#12 is left to OpenSSL,
    // which asks for its password.
    enum kind { certificate, damaged, pkcs12 } what;
    size_t begin; // in the text; of an item in escaped Base64, in the same line
    size_t end;
    std::string der; // of a certificate
};

// In the order of the text. A certificate that is cut short is completed by whatever follows it,
// since any bytes are a signature: one that another one starts in is damaged.
std::vector<found_item> find_certificates(std::string_view text);
