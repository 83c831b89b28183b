// Every function, given anything. Each input is given to one job, which its form chooses: a reader
// of chains; or the codecs, a dump and a trace line, which need no long inputs.

#include "stand_ins.h"
#include "tesra_common.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ui.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

void check(bool holds, const char *what) {
    if (!holds) {
        fprintf(stderr, "does not hold: %s\n", what);
        abort();
    }
}

// All fifteen texts, or nothing.
std::string texts(const char *chain, uint32_t length, uint32_t index) {
    tesra_cert_data *data = tesra_get_cert_data(chain, length, static_cast<int>(index));
    std::string all;
    for (size_t at = 0; data != nullptr && at < 15; ++at) {
        all += reinterpret_cast<char *const *>(data)[at] + std::string("\n");
    }
    tesra_free_cert_data(data);
    return all;
}

void read_chain(const char *chain, uint32_t length) {
    const uint32_t count = tesra_get_cert_count(chain, length);
    const std::string last = texts(chain, length, UINT32_MAX);
    check(count > 0 ? texts(chain, length, count - 1) == last : last.empty(), "-1 is the last one");
    ERR_clear_error();
}

// A PEM block of a certificate around any DER.
void read_der(const uint8_t *der, size_t size) {
    const std::unique_ptr<BIO, decltype(&BIO_free_all)> pem(BIO_new(BIO_s_mem()), BIO_free_all);
    PEM_write_bio(pem.get(), PEM_STRING_X509, "", der, static_cast<long>(size));
    char *chain = nullptr;
    const long length = BIO_get_mem_data(pem.get(), &chain);
    read_chain(chain, static_cast<uint32_t>(length));
}

std::string decoded(decltype(tesra_hex_decode) decode, const char *text, size_t length) {
    uint32_t size = 0;
    uint8_t *block = decode(text, static_cast<uint32_t>(length), &size);
    check(size <= length, "no text stands for more bytes than it has");
    const std::string bytes(block, block + size);
    free(block);
    return bytes;
}

void convert(const uint8_t *data, size_t size) {
    const std::string bytes(reinterpret_cast<const char *>(data), size);
    decoded(tesra_base64_decode, bytes.data(), size);
    decoded(tesra_hex_decode, bytes.data(), size);
    char *base64 = nullptr;
    uint32_t digits = 0;
    check(tesra_base64_encode(data, size, &base64) == 0, "anything can be encoded");
    char *hex = tesra_hex_encode(data, static_cast<uint32_t>(size), &digits);
    check(decoded(tesra_base64_decode, base64, strlen(base64)) == bytes, "Base64 goes both ways");
    check(decoded(tesra_hex_decode, hex, digits) == bytes, "hexadecimal goes both ways");
    free(base64);
    free(hex);
}

void show(const uint8_t *data, size_t size) {
    const std::string label(data, std::find(data, data + size, 0));
    const auto length = static_cast<uint32_t>(size);
    reported();
    tesra_dump(TESRA_DUMP_LOG, label.c_str(), data, length);
    check(reported().size() <= (size + 15) / 16 * 129, "a line of a dump has 126 characters");
    tesra_trace(4, label.c_str(), length, "%.*s\n", static_cast<int>(length), data);
    check(stand_in.trace_line.size() <= 511, "a line of the trace file has 511 characters");
}

} // namespace

// Nobody is asked for a pass phrase.
extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    UI_METHOD *const method = UI_create_method("nobody is asked");
    UI_method_set_opener(method, [](UI *) { return 0; });
    UI_set_default_method(method);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) {
        return 0;
    }
    if (data[0] == 0x30) {
        read_der(data, size);
    } else if (size > 256 || memmem(data, size, "-----", 5) != nullptr) {
        read_chain(reinterpret_cast<const char *>(data), static_cast<uint32_t>(size));
    } else {
        convert(data, size);
        show(data, size);
    }
    reported();
    return 0;
}
