/*
 * What owns the memory and the objects of OpenSSL that the library makes: each pointer with the C
 * function that releases it. Shared by the source files that make such things.
 */
#ifndef TESRA_OWNED_H
#define TESRA_OWNED_H

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/x509.h>
#include <stdint.h>
#include <stdlib.h>

#include <memory>

#include "tesra_common.h"

using tesra_bio_ptr = std::unique_ptr<BIO, decltype([](BIO *bio) { BIO_free_all(bio); })>;
using tesra_bn_ptr = std::unique_ptr<BIGNUM, decltype([](BIGNUM *number) { BN_free(number); })>;
using tesra_x509_ptr = std::unique_ptr<X509, decltype([](X509 *cert) { X509_free(cert); })>;
using tesra_utf8_ptr =
    std::unique_ptr<unsigned char, decltype([](unsigned char *text) { OPENSSL_free(text); })>;
using tesra_text_ptr = std::unique_ptr<char, decltype([](char *text) { free(text); })>;
using tesra_bytes_ptr = std::unique_ptr<uint8_t, decltype([](uint8_t *bytes) { free(bytes); })>;
using tesra_cert_data_ptr =
    std::unique_ptr<tesra_cert_data,
                    decltype([](tesra_cert_data *data) { tesra_free_cert_data(data); })>;

#endif
