// Compares each function of the library with the bare calls of OpenSSL and the C library that it
// makes, and with GnuTLS where it does the same job.
//
// Under valgrind's callgrind, dumps the instructions of each job under the job's name.

#include <benchmark/benchmark.h>
#include <gnutls/x509.h>
#include <openssl/bn.h>
#include <openssl/buffer.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <tesra_common.h>
#include <valgrind/callgrind.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

namespace {

// Works on `size` bytes of input, and returns a block for free(3), or null.
using job = void *(*)(const uint8_t *input, uint32_t size);

const char *text(const uint8_t *input) {
    return reinterpret_cast<const char *>(input);
}

void *library_count(const uint8_t *input, uint32_t size) {
    benchmark::DoNotOptimize(tesra_get_cert_count(text(input), size));
    return nullptr;
}

template <int index>
void *library_extract(const uint8_t *input, uint32_t size) {
    tesra_free_cert_data(tesra_get_cert_data(text(input), size, index));
    return nullptr;
}

void *library_base64_encode(const uint8_t *input, uint32_t size) {
    char *out = nullptr;
    tesra_base64_encode(input, size, &out);
    return out;
}

void *library_hex_encode(const uint8_t *input, uint32_t size) {
    return tesra_hex_encode(input, size, &size);
}

template <uint8_t *(*function)(const char *, uint32_t, uint32_t *)>
void *library_decode(const uint8_t *input, uint32_t size) {
    return function(text(input), size, &size);
}

X509 *bare_walk(const uint8_t *input, uint32_t size, int index) {
    BIO *bio = BIO_new(BIO_s_mem());
    BIO_write(bio, input, static_cast<int>(size));
    const BUF_MEM *unread = nullptr;
    X509 *cert = nullptr;
    do {
        X509_free(cert);
        cert = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr);
    } while (index-- != 0 && BIO_get_mem_ptr(bio, &unread) > 0 && unread->length > 0);
    BIO_free_all(bio);
    return cert;
}

void *bare_count(const uint8_t *input, uint32_t size) {
    X509_free(bare_walk(input, size, -1));
    return nullptr;
}

char *bare_copy(const void *from, size_t size) {
    char *copied = static_cast<char *>(malloc(size + 1));
    memcpy(copied, from, size);
    copied[size] = '\0';
    return copied;
}

template <int index>
void *bare_extract(const uint8_t *input, uint32_t size) {
    X509 *cert = bare_walk(input, size, index);
    BIGNUM *number = ASN1_INTEGER_to_BN(X509_get_serialNumber(cert), nullptr);
    OPENSSL_free(BN_bn2dec(number));
    BN_free(number);
    for (const ASN1_TIME *time : {X509_get0_notBefore(cert), X509_get0_notAfter(cert)}) {
        BIO *bio = BIO_new(BIO_s_mem());
        ASN1_TIME_print(bio, time);
        const BUF_MEM *printed = nullptr;
        BIO_get_mem_ptr(bio, &printed);
        free(bare_copy(printed->data, printed->length));
        BIO_free_all(bio);
    }
    for (const X509_NAME *name : {X509_get_issuer_name(cert), X509_get_subject_name(cert)}) {
        for (const int nid : {NID_countryName, NID_stateOrProvinceName, NID_localityName,
                              NID_organizationName, NID_organizationalUnitName, NID_commonName}) {
            const int position = X509_NAME_get_index_by_NID(name, nid, -1);
            const X509_NAME_ENTRY *entry = X509_NAME_get_entry(name, position);
            unsigned char *utf8 = nullptr;
            const int length = ASN1_STRING_to_UTF8(&utf8, X509_NAME_ENTRY_get_data(entry));
            free(bare_copy(utf8, static_cast<size_t>(length)));
            OPENSSL_free(utf8);
        }
    }
    X509_free(cert);
    return calloc(1, sizeof(tesra_cert_data));
}

void *bare_base64_encode(const uint8_t *input, uint32_t size) {
    BIO *filter = BIO_new(BIO_f_base64());
    BIO_push(filter, BIO_new(BIO_s_mem()));
    BIO_set_flags(filter, BIO_FLAGS_BASE64_NO_NL);
    BIO_write(filter, input, static_cast<int>(size));
    static_cast<void>(BIO_flush(filter));
    const BUF_MEM *encoded = nullptr;
    BIO_get_mem_ptr(filter, &encoded);
    char *out = bare_copy(encoded->data, encoded->length);
    BIO_free_all(filter);
    return out;
}

void *bare_base64_decode(const uint8_t *input, uint32_t size) {
    auto *out = static_cast<uint8_t *>(calloc(1, size / 4 * 3));
    EVP_DecodeBlock(out, input, static_cast<int>(size));
    return out;
}

void *bare_hex_encode(const uint8_t *input, uint32_t size) {
    char *out = static_cast<char *>(calloc(1, 2 * size + 1));
    for (uint32_t at = 0; at < size; ++at) {
        snprintf(out + 2 * at, 2 * (size - at) + 1, "%02X", input[at]);
    }
    return out;
}

void *bare_hex_decode(const uint8_t *input, uint32_t size) {
    auto *out = static_cast<uint8_t *>(calloc(1, size / 2 + 1));
    for (uint32_t at = 0; at < size; at += 2) {
        const uint8_t pair[] = {input[at], input[at + 1], '\0'};
        sscanf(text(pair), "%2hhx", out + at / 2);
    }
    return out;
}

void *peer_count(const uint8_t *input, uint32_t size) {
    const gnutls_datum_t chain = {const_cast<uint8_t *>(input), size};
    gnutls_x509_crt_t *certs = nullptr;
    unsigned left = 0;
    gnutls_x509_crt_list_import2(&certs, &left, &chain, GNUTLS_X509_FMT_PEM, 0);
    while (left > 0) {
        gnutls_x509_crt_deinit(certs[--left]);
    }
    return certs;
}

template <int (*function)(const gnutls_datum_t *, gnutls_datum_t *)>
void *peer_convert(const uint8_t *input, uint32_t size) {
    const gnutls_datum_t from = {const_cast<uint8_t *>(input), size};
    gnutls_datum_t to = {};
    function(&from, &to);
    return to.data;
}

void measure(benchmark::State &state, const std::string &name, const std::string &input, job run) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(input.data());
    const auto size = static_cast<uint32_t>(input.size());
    for ([[maybe_unused]] auto turn : state) {
        void *result = run(bytes, size);
        benchmark::DoNotOptimize(result);
        free(result);
    }
    if (RUNNING_ON_VALGRIND != 0) {
        CALLGRIND_ZERO_STATS;
        free(run(bytes, size));
        CALLGRIND_DUMP_STATS_AT(name.c_str());
    }
}

void add(const std::string &name, const std::string &input, job library, job bare, job peer) {
    for (const auto &[who, run] :
         {std::pair{"/library", library}, std::pair{"/bare", bare}, std::pair{"/peer", peer}}) {
        if (run != nullptr) {
            benchmark::RegisterBenchmark((name + who).c_str(), measure, name + who, input, run);
        }
    }
}

void add_chains(const std::string &certificate) {
    std::string chain;
    for (size_t count = 1; count <= 10000; count *= 10) {
        while (chain.size() < count * certificate.size()) {
            chain += certificate;
        }
        add("count-" + std::to_string(count), chain, library_count, bare_count, peer_count);
        if (count == 10) {
            add("extract-first-of-10", chain, library_extract<0>, bare_extract<0>, nullptr);
            add("extract-last-of-10", chain, library_extract<9>, bare_extract<9>, nullptr);
        }
    }
}

void add_codecs(const std::string &name, size_t size) {
    const std::string bytes(size, 'A');
    const std::string base64((size + 2) / 3 * 4, 'A');
    const std::string hex(size * 2, 'A');
    add("base64-encode-" + name, bytes, library_base64_encode, bare_base64_encode,
        peer_convert<gnutls_base64_encode2>);
    add("base64-decode-" + name, base64, library_decode<tesra_base64_decode>, bare_base64_decode,
        peer_convert<gnutls_base64_decode2>);
    add("hex-encode-" + name, bytes, library_hex_encode, bare_hex_encode,
        peer_convert<gnutls_hex_encode2>);
    add("hex-decode-" + name, hex, library_decode<tesra_hex_decode>, bare_hex_decode,
        peer_convert<gnutls_hex_decode2>);
}

} // namespace

// The cost of the platform's log depends on the platform; here it costs nothing.
extern "C" int platform_log_write(int, int, const char *, ...) {
    return 0;
}

int main(int argc, char **argv) {
    std::ifstream file(BENCH_CERTIFICATE);
    add_chains({std::istreambuf_iterator<char>(file), {}});
    add_codecs("16B", 16);
    add_codecs("1KiB", 1024);
    add_codecs("64KiB", 65536);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
