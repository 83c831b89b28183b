#include <limits.h>
#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/buffer.h>
#include <openssl/crypto.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <stdlib.h>
#include <string.h>

#include "tesra_log.h"
#include "tesra_owned.h"

namespace {

// A template takes no macro such as OPENSSL_free.
void tesra_openssl_free(void *block) {
    OPENSSL_free(block);
}

// Reads the chain certificate by certificate, up to the one at `index`, or to the end if that is
// -1. Returns true and leaves `*cert` unchanged if the chain ends cleanly before `index`. Both
// out-pointers may be null; `cert_count` is written only if `index` is -1.
bool tesra_get_cert_from_chain(const char *cert_chain, uint32_t cert_len, int32_t index,
                               X509 **cert, uint32_t *cert_count) {
    TESRA_LOG(TESRA_LEVEL_DEBUG, "Entry [%s]\n", "tesra_get_cert_from_chain");
    if (cert_chain == nullptr) {
        TESRA_LOG_ERROR("%s\n", "Invalid arguments");
        return false;
    }
    if (cert_len == 0) {
        TESRA_LOG(TESRA_LEVEL_WARNING, "%s\n", "Cert length is 0!");
        return false;
    }
    const tesra_owned<BIO, BIO_free_all> bio(BIO_new(BIO_s_mem()));
    if (bio == nullptr) {
        TESRA_LOG_ERROR("%s\n", "Allocation failed for BIO");
        return false;
    }
    // A longer length would be negative as the int of BIO_write.
    int written = -1;
    if (cert_len <= INT_MAX) {
        written = BIO_write(bio.get(), cert_chain, static_cast<int>(cert_len));
    }
    if (written < 0) {
        TESRA_LOG_ERROR("Write to BIO failed, ret: %d\n", written);
        return false;
    }
    const BUF_MEM *unread = nullptr;
    for (int32_t position = 0;;) {
        tesra_owned<X509, X509_free> current(
            PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
        if (current == nullptr) {
            TESRA_LOG_ERROR("Failed to get cert at index %d\n", position);
            return false;
        }
        if (position == index) {
            if (cert != nullptr) {
                *cert = current.release();
            }
            return true;
        }
        BIO_get_mem_ptr(bio.get(), &unread);
        if (unread == nullptr) {
            TESRA_LOG_ERROR("Failed to get buffer ptr at index %d\n", position);
            return false;
        }
        ++position;
        if (unread->length > 0) {
            continue;
        }
        if (index != -1) {
            return true;
        }
        if (cert != nullptr) {
            *cert = current.release();
        }
        if (cert_count != nullptr) {
            *cert_count = static_cast<uint32_t>(position);
        }
        return true;
    }
}

// Returns a NUL-terminated copy that the caller owns, or null. Programs that interpose the
// allocators can see which one is called, so the empty text keeps using calloc.
char *tesra_copy_text(const void *bytes, size_t length) {
    char *text = static_cast<char *>(length == 0 ? calloc(1, 1) : malloc(length + 1));
    if (text == nullptr) {
        TESRA_LOG_ERROR("%s\n", "Allocation failed");
        return nullptr;
    }
    memcpy(text, bytes, length);
    text[length] = '\0';
    return text;
}

// A missing attribute gives an empty text; an attribute with an empty value is a failure.
bool tesra_get_name_entry(const X509_NAME *name, int nid, char **out) {
    if (name == nullptr) {
        TESRA_LOG_ERROR("%s\n", "Invalid arguments");
        return false;
    }
    const int position = X509_NAME_get_index_by_NID(name, nid, -1);
    if (position < 0) {
        TESRA_LOG_ERROR("Entry not found for NID:%d\n", nid);
        *out = tesra_copy_text("", 0);
        return *out != nullptr;
    }
    const X509_NAME_ENTRY *entry = X509_NAME_get_entry(name, position);
    if (entry == nullptr) {
        TESRA_LOG_ERROR("Failed to get entry for NID:%d\n", nid);
        return false;
    }
    const ASN1_STRING *value = X509_NAME_ENTRY_get_data(entry);
    if (value == nullptr) {
        TESRA_LOG_ERROR("Failed to get entry value for NID:%d\n", nid);
        return false;
    }
    unsigned char *buffer = nullptr;
    const int length = ASN1_STRING_to_UTF8(&buffer, value);
    const tesra_owned<unsigned char, tesra_openssl_free> utf8(buffer);
    if (length <= 0) {
        TESRA_LOG_ERROR("Invalid entry length(%d) for NID:%d\n", length, nid);
        return false;
    }
    char *text = tesra_copy_text(utf8.get(), static_cast<size_t>(length));
    if (text == nullptr) {
        return false;
    }
    *out = text;
    return true;
}

bool tesra_asn1_time_to_str(const ASN1_TIME *time, char **out) {
    if (time == nullptr) {
        TESRA_LOG_ERROR("%s\n", "Invalid arguments");
        return false;
    }
    const tesra_owned<BIO, BIO_free_all> bio(BIO_new(BIO_s_mem()));
    if (bio == nullptr) {
        TESRA_LOG_ERROR("%s\n", "Allocation failed for BIO");
        return false;
    }
    if (ASN1_TIME_print(bio.get(), time) == 0) {
        TESRA_LOG_ERROR("%s\n", "Failed to convert ASN.1 time to string");
        return false;
    }
    const BUF_MEM *printed = nullptr;
    BIO_get_mem_ptr(bio.get(), &printed);
    if (printed == nullptr || printed->length == 0) {
        TESRA_LOG_ERROR("%s\n", "BIO buffer is empty");
        return false;
    }
    char *text = tesra_copy_text(printed->data, printed->length);
    if (text == nullptr) {
        return false;
    }
    *out = text;
    return true;
}

// X509_get_serialNumber, unlike the getters below, does not take a const certificate.
bool tesra_get_serial_number(X509 *cert, tesra_cert_data *data) {
    const ASN1_INTEGER *serial = X509_get_serialNumber(cert);
    if (serial == nullptr) {
        TESRA_LOG_ERROR("%s\n", "Failed to get serial number from cert");
        return false;
    }
    const tesra_owned<BIGNUM, BN_free> number(ASN1_INTEGER_to_BN(serial, nullptr));
    if (number == nullptr) {
        TESRA_LOG_ERROR("%s\n", "Failed to convert serial number to big number");
        return false;
    }
    data->serial_number = BN_bn2dec(number.get());
    if (data->serial_number == nullptr) {
        TESRA_LOG_ERROR("%s\n", "Failed to convert serial number to string");
        return false;
    }
    return true;
}

// The record receives both texts or neither.
bool tesra_get_validity_range(const X509 *cert, tesra_cert_data *data) {
    const ASN1_TIME *not_before = X509_get0_notBefore(cert);
    if (not_before == nullptr) {
        TESRA_LOG_ERROR("%s\n", "Failed to get not_before time from cert");
        return false;
    }
    char *start_text = nullptr;
    if (!tesra_asn1_time_to_str(not_before, &start_text)) {
        TESRA_LOG_ERROR("%s\n", "Failed to convert not_before time");
        return false;
    }
    tesra_owned<char, free> start(start_text);
    const ASN1_TIME *not_after = X509_get0_notAfter(cert);
    if (not_after == nullptr) {
        TESRA_LOG_ERROR("%s\n", "Failed to get not_after time from cert");
        return false;
    }
    char *end_text = nullptr;
    if (!tesra_asn1_time_to_str(not_after, &end_text)) {
        TESRA_LOG_ERROR("%s\n", "Failed to convert not_after time");
        return false;
    }
    data->not_before = start.release();
    data->not_after = end_text;
    return true;
}

// A name attribute, the field for its text, and the report of a failure.
struct tesra_name_row {
    int nid;
    char **field;
    const char *failure;
};

bool tesra_fill_name_fields(const X509_NAME *name, const tesra_name_row (&rows)[6]) {
    for (const tesra_name_row &row : rows) {
        if (!tesra_get_name_entry(name, row.nid, row.field)) {
            TESRA_LOG_ERROR("%s\n", row.failure);
            return false;
        }
    }
    return true;
}

bool tesra_get_issuer_details(const X509 *cert, tesra_cert_data *data) {
    const X509_NAME *name = X509_get_issuer_name(cert);
    if (name == nullptr) {
        TESRA_LOG_ERROR("%s\n", "Failed to get issuer name");
        return false;
    }
    const tesra_name_row rows[] = {
        {NID_countryName, &data->issuer_country, "Failed to get issuer country name"},
        {NID_stateOrProvinceName, &data->issuer_state, "Failed to get issuer state name"},
        {NID_localityName, &data->issuer_locality, "Failed to get issuer locality name"},
        {NID_organizationName, &data->issuer_org, "Failed to get issuer org name"},
        {NID_organizationalUnitName, &data->issuer_org_unit, "Failed to get issuer org unit name"},
        {NID_commonName, &data->issuer_common_name, "Failed to get issuer common name"},
    };
    return tesra_fill_name_fields(name, rows);
}

bool tesra_get_subject_details(const X509 *cert, tesra_cert_data *data) {
    const X509_NAME *name = X509_get_subject_name(cert);
    if (name == nullptr) {
        TESRA_LOG_ERROR("%s\n", "Failed to get subject name");
        return false;
    }
    const tesra_name_row rows[] = {
        {NID_countryName, &data->subject_country, "Failed to get subject country name"},
        {NID_stateOrProvinceName, &data->subject_state, "Failed to get subject state name"},
        {NID_localityName, &data->subject_locality, "Failed to get subject locality name"},
        {NID_organizationName, &data->subject_org, "Failed to get subject org name"},
        {NID_organizationalUnitName, &data->subject_org_unit,
         "Failed to get subject org unit name"},
        {NID_commonName, &data->subject_common_name, "Failed to get subject common name"},
    };
    return tesra_fill_name_fields(name, rows);
}

tesra_cert_data *tesra_parse_cert(X509 *cert) {
    tesra_owned<tesra_cert_data, tesra_free_cert_data> data(
        static_cast<tesra_cert_data *>(calloc(1, sizeof(tesra_cert_data))));
    if (data == nullptr) {
        TESRA_LOG_ERROR("%s\n", "Allocation failed for certificate buffer");
        return nullptr;
    }
    if (!tesra_get_serial_number(cert, data.get())) {
        TESRA_LOG_ERROR("%s\n", "Failed to get serial number");
        return nullptr;
    }
    if (!tesra_get_validity_range(cert, data.get())) {
        TESRA_LOG_ERROR("%s\n", "Failed to get validity range");
        return nullptr;
    }
    if (!tesra_get_issuer_details(cert, data.get())) {
        TESRA_LOG_ERROR("%s\n", "Failed to get issuer details");
        return nullptr;
    }
    if (!tesra_get_subject_details(cert, data.get())) {
        TESRA_LOG_ERROR("%s\n", "Failed to get subject details");
        return nullptr;
    }
    return data.release();
}

} // namespace

uint32_t tesra_get_cert_count(const char *cert_chain, uint32_t cert_len) {
    uint32_t count = 0;
    TESRA_LOG(TESRA_LEVEL_DEBUG, "Entry [%s]\n", "tesra_get_cert_count");
    if (cert_chain == nullptr) {
        TESRA_LOG_ERROR("%s\n", "Invalid arguments");
        return 0;
    }
    if (cert_len == 0) {
        TESRA_LOG(TESRA_LEVEL_WARNING, "%s\n", "Cert length is 0!");
        return 0;
    }
    if (!tesra_get_cert_from_chain(cert_chain, cert_len, -1, nullptr, &count)) {
        TESRA_LOG_ERROR("%s\n", "Failed to get cert count");
        return 0;
    }
    TESRA_LOG(TESRA_LEVEL_INFO, "Cert chain contain %d certs\n", static_cast<int>(count));
    return count;
}

tesra_cert_data *tesra_get_cert_data(const char *cert_chain, uint32_t cert_len, int index) {
    TESRA_LOG(TESRA_LEVEL_DEBUG, "Entry [%s]\n", "tesra_get_cert_data");
    if (cert_chain == nullptr || cert_len == 0) {
        TESRA_LOG_ERROR("%s\n", "Invalid arguments");
        return nullptr;
    }
    X509 *found = nullptr;
    if (!tesra_get_cert_from_chain(cert_chain, cert_len, index, &found, nullptr)) {
        TESRA_LOG_ERROR("Failed to get cert for index %d\n", index);
        return nullptr;
    }
    tesra_owned<X509, X509_free> cert(found);
    if (cert == nullptr) {
        TESRA_LOG_ERROR("Invalid cert at index %d\n", index);
        return nullptr;
    }
    tesra_cert_data *data = tesra_parse_cert(cert.get());
    cert.reset();
    if (data == nullptr) {
        TESRA_LOG_ERROR("Failed to parse cert at index %d\n", index);
        return nullptr;
    }
    TESRA_LOG(TESRA_LEVEL_INFO, "Parsed certificate at index %d, ret addr [%p]\n", index,
              static_cast<void *>(data));
    TESRA_LOG(TESRA_LEVEL_INFO, "Cert[%d]: Serial number [%s]\n", index, data->serial_number);
    TESRA_LOG(TESRA_LEVEL_INFO, "Cert[%d]: Valid from [%s]\n", index, data->not_before);
    TESRA_LOG(TESRA_LEVEL_INFO, "Cert[%d]: Valid to [%s]\n", index, data->not_after);
    TESRA_LOG(TESRA_LEVEL_INFO, "Cert[%d]: Issuer country [%s]\n", index, data->issuer_country);
    TESRA_LOG(TESRA_LEVEL_INFO, "Cert[%d]: Issuer state [%s]\n", index, data->issuer_state);
    TESRA_LOG(TESRA_LEVEL_INFO, "Cert[%d]: Issuer locality [%s]\n", index, data->issuer_locality);
    TESRA_LOG(TESRA_LEVEL_INFO, "Cert[%d]: Issuer org [%s]\n", index, data->issuer_org);
    TESRA_LOG(TESRA_LEVEL_INFO, "Cert[%d]: Issuer org unit [%s]\n", index, data->issuer_org_unit);
    TESRA_LOG(TESRA_LEVEL_INFO, "Cert[%d]: Issuer common name [%s]\n", index,
              data->issuer_common_name);
    TESRA_LOG(TESRA_LEVEL_INFO, "Cert[%d]: Subject country [%s]\n", index, data->subject_country);
    TESRA_LOG(TESRA_LEVEL_INFO, "Cert[%d]: Subject state [%s]\n", index, data->subject_state);
    TESRA_LOG(TESRA_LEVEL_INFO, "Cert[%d]: Subject locality [%s]\n", index, data->subject_locality);
    TESRA_LOG(TESRA_LEVEL_INFO, "Cert[%d]: Subject org [%s]\n", index, data->subject_org);
    TESRA_LOG(TESRA_LEVEL_INFO, "Cert[%d]: Subject org unit [%s]\n", index, data->subject_org_unit);
    TESRA_LOG(TESRA_LEVEL_INFO, "Cert[%d]: Subject common name [%s]\n", index,
              data->subject_common_name);
    return data;
}

void tesra_free_cert_data(tesra_cert_data *data) {
    TESRA_LOG(TESRA_LEVEL_DEBUG, "Entry [%s]\n", "tesra_free_cert_data");
    if (data == nullptr) {
        TESRA_LOG_ERROR("%s\n", "Invalid arguments");
        return;
    }
    TESRA_LOG(TESRA_LEVEL_INFO, "Free cert data [%p]\n", static_cast<void *>(data));
    // Programs that interpose the allocators see no release of a field that was never filled.
    if (data->serial_number != nullptr) {
        OPENSSL_free(data->serial_number);
    }
    char *const texts[] = {
        data->not_before,       data->not_after,           data->issuer_country,
        data->issuer_state,     data->issuer_locality,     data->issuer_org,
        data->issuer_org_unit,  data->issuer_common_name,  data->subject_country,
        data->subject_state,    data->subject_locality,    data->subject_org,
        data->subject_org_unit, data->subject_common_name,
    };
    for (char *text : texts) {
        if (text != nullptr) {
            free(text);
        }
    }
    free(data);
}
