// Each function of the library beside the calls that it makes of OpenSSL, the C library and the
// file system, written bare, and beside peers that do the same job.
//
// Under valgrind's callgrind every job runs once and its instructions are dumped under its name.

#include "certificates.h"

#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/buffer.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <sys/time.h>
#include <tesra_common.h>
#include <unistd.h>
#include <valgrind/callgrind.h>
#ifdef TESRA_BENCH_PEERS
#include <gnutls/x509.h>
#include <nettle/base16.h>
#include <nettle/base64.h>
#endif

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace {

char trace_path[] = "/tmp/tesra_bench_XXXXXX";

struct job {
    std::string name; // "<what is done>/<who does it>"
    std::function<void()> run;
};
std::vector<job> jobs;

void keep(const void *result) {
    benchmark::DoNotOptimize(result);
}

const uint8_t *bytes(const std::string &text) {
    return reinterpret_cast<const uint8_t *>(text.data());
}

uint32_t length(const std::string &text) {
    return static_cast<uint32_t>(text.size());
}

// Chains.

X509 *bare_walk(const std::string &chain, int index, int *count) {
    BIO *bio = BIO_new(BIO_s_mem());
    BIO_write(bio, chain.data(), static_cast<int>(chain.size()));
    const BUF_MEM *unread = nullptr;
    X509 *cert = nullptr;
    *count = 0;
    do {
        X509_free(cert);
        cert = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr);
        if ((*count)++ == index) {
            break;
        }
        BIO_get_mem_ptr(bio, &unread);
    } while (unread->length > 0);
    BIO_free_all(bio);
    return cert;
}

char *copy(const void *text, size_t size) {
    char *copied = static_cast<char *>(malloc(size + 1));
    memcpy(copied, text, size);
    copied[size] = '\0';
    return copied;
}

char *bare_time(const ASN1_TIME *time) {
    BIO *bio = BIO_new(BIO_s_mem());
    ASN1_TIME_print(bio, time);
    const BUF_MEM *printed = nullptr;
    BIO_get_mem_ptr(bio, &printed);
    char *text = copy(printed->data, printed->length);
    BIO_free_all(bio);
    return text;
}

char *bare_attribute(const X509_NAME *name, int nid) {
    const int position = X509_NAME_get_index_by_NID(name, nid, -1);
    const ASN1_STRING *value = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, position));
    unsigned char *utf8 = nullptr;
    const int size = ASN1_STRING_to_UTF8(&utf8, value);
    char *text = copy(utf8, static_cast<size_t>(size));
    OPENSSL_free(utf8);
    return text;
}

constexpr int attributes[] = {NID_countryName,      NID_stateOrProvinceName,    NID_localityName,
                              NID_organizationName, NID_organizationalUnitName, NID_commonName};

void bare_extract(const std::string &chain, int index) {
    int count = 0;
    X509 *cert = bare_walk(chain, index, &count);
    char **record = static_cast<char **>(calloc(15, sizeof *record));
    BIGNUM *number = ASN1_INTEGER_to_BN(X509_get_serialNumber(cert), nullptr);
    char **field = record;
    *field++ = BN_bn2dec(number);
    BN_free(number);
    *field++ = bare_time(X509_get0_notBefore(cert));
    *field++ = bare_time(X509_get0_notAfter(cert));
    for (const X509_NAME *name : {X509_get_issuer_name(cert), X509_get_subject_name(cert)}) {
        for (const int nid : attributes) {
            *field++ = bare_attribute(name, nid);
        }
    }
    X509_free(cert);
    keep(record);
    OPENSSL_free(record[0]);
    for (int at = 1; at < 15; ++at) {
        free(record[at]);
    }
    free(record);
}

#ifdef TESRA_BENCH_PEERS
void gnutls_chain(const std::string &chain,
                  const std::function<void(gnutls_x509_crt_t *, unsigned)> &use) {
    const gnutls_datum_t pem = {const_cast<unsigned char *>(bytes(chain)), length(chain)};
    gnutls_x509_crt_t *certs = nullptr;
    unsigned count = 0;
    gnutls_x509_crt_list_import2(&certs, &count, &pem, GNUTLS_X509_FMT_PEM, 0);
    use(certs, count);
    for (unsigned at = 0; at < count; ++at) {
        gnutls_x509_crt_deinit(certs[at]);
    }
    gnutls_free(certs);
}

void gnutls_extract(gnutls_x509_crt_t cert) {
    char text[256];
    size_t size = sizeof text;
    gnutls_x509_crt_get_serial(cert, text, &size);
    free(copy(text, size));
    for (const time_t time :
         {gnutls_x509_crt_get_activation_time(cert), gnutls_x509_crt_get_expiration_time(cert)}) {
        keep(asctime(gmtime(&time)));
    }
    for (const char *oid :
         {GNUTLS_OID_X520_COUNTRY_NAME, GNUTLS_OID_X520_STATE_OR_PROVINCE_NAME,
          GNUTLS_OID_X520_LOCALITY_NAME, GNUTLS_OID_X520_ORGANIZATION_NAME,
          GNUTLS_OID_X520_ORGANIZATIONAL_UNIT_NAME, GNUTLS_OID_X520_COMMON_NAME}) {
        for (const auto get :
             {gnutls_x509_crt_get_issuer_dn_by_oid, gnutls_x509_crt_get_dn_by_oid}) {
            size = sizeof text;
            get(cert, oid, 0, 0, text, &size);
            free(copy(text, size));
        }
    }
}
#endif

void add_chain(const std::string &name, const std::string &chain) {
    jobs.push_back({"count " + name + "/tesra", [=] {
                        benchmark::DoNotOptimize(tesra_get_cert_count(chain.data(), length(chain)));
                    }});
    jobs.push_back({"count " + name + "/bare", [=] {
                        int count = 0;
                        X509_free(bare_walk(chain, -1, &count));
                        benchmark::DoNotOptimize(count);
                    }});
#ifdef TESRA_BENCH_PEERS
    jobs.push_back({"count " + name + "/peer", [=] {
                        gnutls_chain(chain, [](gnutls_x509_crt_t *, unsigned count) {
                            benchmark::DoNotOptimize(count);
                        });
                    }});
#endif
}

void add_extraction(const std::string &name, const std::string &chain, int index) {
    jobs.push_back(
        {"extract " + name + "/tesra",
         [=] { tesra_free_cert_data(tesra_get_cert_data(chain.data(), length(chain), index)); }});
    jobs.push_back({"extract " + name + "/bare", [=] { bare_extract(chain, index); }});
#ifdef TESRA_BENCH_PEERS
    jobs.push_back({"extract " + name + "/peer", [=] {
                        gnutls_chain(chain, [=](gnutls_x509_crt_t *certs, unsigned) {
                            gnutls_extract(certs[index]);
                        });
                    }});
#endif
}

// Codecs.

void bare_base64_encode(const std::string &input) {
    BIO *filter = BIO_new(BIO_f_base64());
    BIO_push(filter, BIO_new(BIO_s_mem()));
    BIO_set_flags(filter, BIO_FLAGS_BASE64_NO_NL);
    BIO_write(filter, input.data(), static_cast<int>(input.size()));
    static_cast<void>(BIO_flush(filter));
    const BUF_MEM *encoded = nullptr;
    BIO_get_mem_ptr(filter, &encoded);
    char *text = copy(encoded->data, encoded->length);
    BIO_free_all(filter);
    keep(text);
    free(text);
}

void bare_base64_decode(const std::string &text) {
    auto *block = static_cast<uint8_t *>(calloc(1, text.size() / 4 * 3));
    EVP_DecodeBlock(block, bytes(text), static_cast<int>(text.size()));
    keep(block);
    free(block);
}

void bare_hex_encode(const std::string &input) {
    const size_t size = 2 * input.size() + 1;
    char *text = static_cast<char *>(calloc(1, size));
    for (size_t at = 0; at < input.size(); ++at) {
        snprintf(text + 2 * at, size - 2 * at, "%02X", bytes(input)[at]);
    }
    keep(text);
    free(text);
}

void bare_hex_decode(const std::string &text) {
    auto *block = static_cast<uint8_t *>(calloc(1, text.size() / 2 + 1));
    char pair[3] = {};
    for (size_t at = 0; at < text.size(); at += 2) {
        memcpy(pair, text.data() + at, 2);
        sscanf(pair, "%2hhx", block + at / 2);
    }
    keep(block);
    free(block);
}

void add_codecs(const std::string &size_name, size_t size) {
    std::string input(size, '\0');
    for (size_t at = 0; at < size; ++at) {
        input[at] = static_cast<char>(at * 131 + at / 251);
    }
    char *encoded = nullptr;
    uint32_t told = 0;
    tesra_base64_encode(bytes(input), size, &encoded);
    const std::string base64 = encoded;
    free(encoded);
    encoded = tesra_hex_encode(bytes(input), length(input), &told);
    const std::string hex = encoded;
    free(encoded);

    jobs.push_back({"base64 encode " + size_name + "/tesra", [=] {
                        char *text = nullptr;
                        tesra_base64_encode(bytes(input), input.size(), &text);
                        keep(text);
                        free(text);
                    }});
    jobs.push_back({"base64 encode " + size_name + "/bare", [=] { bare_base64_encode(input); }});
    jobs.push_back({"base64 decode " + size_name + "/tesra", [=] {
                        uint32_t decoded = 0;
                        uint8_t *block =
                            tesra_base64_decode(base64.data(), length(base64), &decoded);
                        keep(block);
                        free(block);
                    }});
    jobs.push_back({"base64 decode " + size_name + "/bare", [=] { bare_base64_decode(base64); }});
    jobs.push_back({"hex encode " + size_name + "/tesra", [=] {
                        uint32_t digits = 0;
                        char *text = tesra_hex_encode(bytes(input), length(input), &digits);
                        keep(text);
                        free(text);
                    }});
    jobs.push_back({"hex encode " + size_name + "/bare", [=] { bare_hex_encode(input); }});
    jobs.push_back({"hex decode " + size_name + "/tesra", [=] {
                        uint32_t decoded = 0;
                        uint8_t *block = tesra_hex_decode(hex.data(), length(hex), &decoded);
                        keep(block);
                        free(block);
                    }});
    jobs.push_back({"hex decode " + size_name + "/bare", [=] { bare_hex_decode(hex); }});
#ifdef TESRA_BENCH_PEERS
    jobs.push_back({"base64 encode " + size_name + "/peer", [=] {
                        char *text =
                            static_cast<char *>(malloc(BASE64_ENCODE_RAW_LENGTH(size) + 1));
                        base64_encode_raw(text, size, bytes(input));
                        keep(text);
                        free(text);
                    }});
    jobs.push_back(
        {"base64 decode " + size_name + "/peer", [=] {
             auto *block = static_cast<uint8_t *>(malloc(BASE64_DECODE_LENGTH(base64.size())));
             base64_decode_ctx context;
             size_t decoded = 0;
             base64_decode_init(&context);
             base64_decode_update(&context, &decoded, block, base64.size(), base64.data());
             keep(block);
             free(block);
         }});
    jobs.push_back({"hex encode " + size_name + "/peer", [=] {
                        char *text = static_cast<char *>(malloc(BASE16_ENCODE_LENGTH(size) + 1));
                        base16_encode_update(text, size, bytes(input));
                        keep(text);
                        free(text);
                    }});
    jobs.push_back({"hex decode " + size_name + "/peer", [=] {
                        auto *block =
                            static_cast<uint8_t *>(malloc(BASE16_DECODE_LENGTH(hex.size())));
                        base16_decode_ctx context;
                        size_t decoded = 0;
                        base16_decode_init(&context);
                        base16_decode_update(&context, &decoded, block, hex.size(), hex.data());
                        keep(block);
                        free(block);
                    }});
#endif
}

// Diagnostics.

void bare_trace(const char *message) {
    char text[512] = {};
    timeval now = {};
    gettimeofday(&now, nullptr);
    struct tm local = {};
    localtime_r(&now.tv_sec, &local);
    const int header =
        snprintf(text, sizeof text,
                 "%04d-%02d-%02dT%02d:%02d:%02d.%06ld L%d [%d] %s:%u:", local.tm_year + 1900,
                 local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                 static_cast<long>(now.tv_usec), 4, getpid(), "bench.cpp", 1U);
    snprintf(text + header, sizeof text - static_cast<size_t>(header), "%s\n", message);
    FILE *file = fopen(TESRA_TRACE_FILE, "a+");
    fputs(text, file);
    fclose(file);
}

void bare_dump(const uint8_t *input, bool to_trace) {
    char line[128] = {};
    size_t used = static_cast<size_t>(snprintf(line, 127, "%s %04X: ", "label", 0U));
    for (int at = 0; at < 16; ++at) {
        used += static_cast<size_t>(snprintf(line + used, 127 - used, "%02X ", input[at]));
    }
    keep(line);
    if (to_trace) {
        bare_trace(line);
    }
}

void add_diagnostics() {
    static const std::string input = "sixteen bytes...";
    jobs.push_back({"trace line/tesra", [] { tesra_trace(4, "bench.cpp", 1, "%s\n", "message"); }});
    jobs.push_back({"trace line/bare", [] { bare_trace("message"); }});
    jobs.push_back(
        {"dump line to log/tesra", [] { tesra_dump(TESRA_DUMP_LOG, "label", bytes(input), 16); }});
    jobs.push_back({"dump line to log/bare", [] { bare_dump(bytes(input), false); }});
    jobs.push_back({"dump line to trace/tesra",
                    [] { tesra_dump(TESRA_DUMP_TRACE, "label", bytes(input), 16); }});
    jobs.push_back({"dump line to trace/bare", [] { bare_dump(bytes(input), true); }});
}

// Leaves out the jobs whose names hold one of `skipped`.
void count_instructions(const std::vector<std::string> &skipped) {
    for (const job &each : jobs) {
        if (std::any_of(skipped.begin(), skipped.end(), [&](const std::string &part) {
                return each.name.find(part) != std::string::npos;
            })) {
            continue;
        }
        each.run();
        CALLGRIND_ZERO_STATS;
        each.run();
        CALLGRIND_DUMP_STATS_AT(each.name.c_str());
    }
}

} // namespace

extern "C" {

int platform_log_write(int, int, const char *, ...) {
    return 0;
}

FILE *fopen(const char *path, const char *mode) {
    static const auto next = reinterpret_cast<decltype(&fopen)>(dlsym(RTLD_NEXT, "fopen"));
    return next(strcmp(path, TESRA_TRACE_FILE) == 0 ? trace_path : path, mode);
}

} // extern "C"

int main(int argc, char **argv) {
    close(mkstemp(trace_path));
    const std::string pem = make_certificate({.subject = full_name("subject"),
                                              .issuer = full_name("issuer"),
                                              .serial = "4711471147114711"});
    std::string chain;
    for (int certificates = 1; certificates <= 1000; ++certificates) {
        chain += pem;
        const bool is_power =
            certificates == 1 || certificates == 10 || certificates == 100 || certificates == 1000;
        if (is_power) {
            add_chain(std::to_string(certificates), chain);
        }
        if (certificates == 10) {
            add_extraction("first of 10", chain, 0);
            add_extraction("last of 10", chain, 9);
        }
    }
    add_codecs("16 B", 16);
    add_codecs("256 B", 256);
    add_codecs("1 KiB", 1024);
    add_codecs("64 KiB", 65536);
    add_codecs("1 MiB", 1048576);
    add_diagnostics();
    if (RUNNING_ON_VALGRIND != 0) {
        count_instructions({argv + 1, argv + argc});
    } else {
        for (const job &each : jobs) {
            benchmark::RegisterBenchmark(each.name.c_str(),
                                         [run = each.run](benchmark::State &state) {
                                             for ([[maybe_unused]] auto turn : state) {
                                                 run();
                                             }
                                         });
        }
        benchmark::Initialize(&argc, argv);
        benchmark::RunSpecifiedBenchmarks();
    }
    unlink(trace_path);
    return 0;
}
