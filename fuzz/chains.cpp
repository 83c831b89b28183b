// Chains: any text, or any DER inside a well-formed PEM block.

#include "sinks.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <tesra_common.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

namespace {

using record_ptr =
    std::unique_ptr<tesra_cert_data,
                    decltype([](tesra_cert_data *data) { tesra_free_cert_data(data); })>;

std::string pem_of(const uint8_t *der, size_t size) {
    BIO *bio = BIO_new(BIO_s_mem());
    PEM_write_bio(bio, PEM_STRING_X509, "", der, static_cast<long>(size));
    char *text = nullptr;
    const long length = BIO_get_mem_data(bio, &text);
    const std::string pem(text, static_cast<size_t>(length));
    BIO_free_all(bio);
    return pem;
}

// All fifteen texts, or nothing.
std::string texts(const char *chain, uint32_t length, int index) {
    const record_ptr data(tesra_get_cert_data(chain, length, index));
    std::string all;
    char *const *fields = reinterpret_cast<char *const *>(data.get());
    for (size_t at = 0; data != nullptr && at < sizeof *data / sizeof *fields; ++at) {
        check(fields[at] != nullptr, "every field is set");
        all += fields[at] + std::string("\n");
    }
    return all;
}

void check_chain(const char *chain, uint32_t length) {
    const uint32_t count = tesra_get_cert_count(chain, length);
    const std::string last = texts(chain, length, -1);
    check(count > 0 || last.empty(), "a chain that cannot be counted has no last certificate");
    // A chain that is damaged somewhere has readable certificates all the same, so many of them at
    // most: a new one takes more text than this.
    const uint32_t positions = std::min(count > 0 ? count : length / 64, UINT32_C(8));
    for (uint32_t at = 0; at < positions; ++at) {
        const std::string found = texts(chain, length, static_cast<int>(at));
        check(at + 1 != count || found == last, "the last position is position -1");
    }
    check(count == 0 || texts(chain, length, static_cast<int>(count)).empty(),
          "one past the end there is nothing");
    ERR_clear_error();
    traced();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const auto *text = reinterpret_cast<const char *>(data);
    if (size > 0 && data[0] == 0x30) {
        const std::string pem = pem_of(data, size);
        check_chain(pem.data(), static_cast<uint32_t>(pem.size()));
    } else if (memmem(text, size, "Proc-Type", 9) == nullptr) { // would ask for a pass phrase
        check_chain(text, static_cast<uint32_t>(size));
    }
    return 0;
}
