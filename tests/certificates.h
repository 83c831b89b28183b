// Certificates made to order.
#pragma once

#include <openssl/asn1.h>
#include <openssl/objects.h>

#include <string>
#include <vector>

struct attribute {
    int nid;
    std::string value;
    int type = V_ASN1_UTF8STRING;
};

// All six attributes, the common name first: each holds `prefix` and its number.
std::vector<attribute> full_name(const std::string &prefix);

struct recipe {
    std::vector<attribute> subject = {{NID_commonName, "subject"}};
    std::vector<attribute> issuer = {{NID_commonName, "issuer"}};
    std::string serial = "1";
    std::string not_before = "240101000000Z";
    std::string not_after = "20500615123045Z";
};

// The certificate as PEM text. A time that is no time goes in as it is.
std::string make_certificate(const recipe &ingredients);
