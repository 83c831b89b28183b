#include "certificates.h"

#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

namespace {

void set_name(X509_NAME *name, const std::vector<attribute> &attributes) {
    for (const auto &[nid, value, type] : attributes) {
        const auto *bytes = reinterpret_cast<const unsigned char *>(value.data());
        X509_NAME_add_entry_by_NID(name, nid, type, bytes, static_cast<int>(value.size()), -1, 0);
    }
}

void set_time(ASN1_TIME *time, const std::string &value) {
    ASN1_TIME_set(time, 0);
    if (ASN1_TIME_set_string(time, value.c_str()) == 0) {
        ASN1_STRING_set(time, value.data(), static_cast<int>(value.size()));
    }
}

} // namespace

std::vector<attribute> full_name(const std::string &prefix) {
    std::vector<attribute> name;
    for (const int nid : {13, 18, 17, 15, 16, 14}) {
        name.push_back({nid, prefix + std::to_string(nid)});
    }
    return name;
}

std::string make_certificate(const recipe &ingredients) {
    EVP_PKEY *key = EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519");
    X509 *cert = X509_new();
    BIGNUM *serial = nullptr;
    BN_dec2bn(&serial, ingredients.serial.c_str());
    BN_to_ASN1_INTEGER(serial, X509_get_serialNumber(cert));
    set_name(X509_get_subject_name(cert), ingredients.subject);
    set_name(X509_get_issuer_name(cert), ingredients.issuer);
    set_time(X509_getm_notBefore(cert), ingredients.not_before);
    set_time(X509_getm_notAfter(cert), ingredients.not_after);
    X509_set_pubkey(cert, key);
    X509_sign(cert, key, nullptr);

    BIO *bio = BIO_new(BIO_s_mem());
    PEM_write_bio_X509(bio, cert);
    char *text = nullptr;
    const long length = BIO_get_mem_data(bio, &text);
    const std::string pem(text, static_cast<size_t>(length));
    BIO_free_all(bio);
    BN_free(serial);
    X509_free(cert);
    EVP_PKEY_free(key);
    return pem;
}
