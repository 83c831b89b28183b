// Every function, and the tool's search for certificates, given anything. Each input gets one job,
// by its form and length: to be a chain, or DER within one; to be searched; or, if it is short, to
// be encoded, decoded and written in lines.

#include "search.h"
#include "stand_ins.h"
#include "tesra_common.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ui.h>

#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

// The stack does not name the line of an inlined function.
void check(bool holds, int line = __builtin_LINE()) {
    if (!holds) {
        fprintf(stderr, "line %d does not hold\n", line);
        abort();
    }
}

void read_chain(const char *chain, uint32_t length) {
    const uint32_t count = tesra_get_cert_count(chain, length);
    tesra_cert_data *last = tesra_get_cert_data(chain, length, static_cast<int>(count) - 1);
    check(last == nullptr || count > 0);
    tesra_free_cert_data(last);
    ERR_clear_error();
}

void search(const char *text, size_t length) {
    size_t at = 0;
    for (const found_item &item : find_certificates({text, length})) {
        check(item.begin >= at && item.begin < length);
        check(item.what != found_item::certificate || !item.der.empty());
        at = item.begin;
    }
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
    check(size <= length);
    const std::string bytes(block, block + size);
    free(block);
    return bytes;
}

void encode_and_decode(const char *text, uint32_t length) {
    decoded(tesra_base64_decode, text, length);
    decoded(tesra_hex_decode, text, length);
    const auto *bytes = reinterpret_cast<const uint8_t *>(text);
    char *base64 = nullptr;
    tesra_base64_encode(bytes, length, &base64);
    check(decoded(tesra_base64_decode, base64, strlen(base64)) == std::string(text, length));
    free(base64);
    uint32_t digits = 0;
    char *hex = tesra_hex_encode(bytes, length, &digits);
    check(decoded(tesra_hex_decode, hex, digits) == std::string(text, length));
    free(hex);
}

void write_lines(const char *text, uint32_t length) {
    const std::string label(text, length);
    tesra_dump(TESRA_DUMP_LOG, label.c_str(), reinterpret_cast<const uint8_t *>(text), length);
    check(reported().size() <= (length + 15) / 16 * 129);
    tesra_trace(4, label.c_str(), length, "%s\n", label.c_str());
    check(stand_in.trace_line.size() <= 511);
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
    const auto *text = reinterpret_cast<const char *>(data);
    const auto length = static_cast<uint32_t>(size);
    if (size == 0) {
        return 0;
    }
    if (size > 128 && size % 2 == 1) {
        search(text, length);
    } else if (data[0] == 0x30) {
        read_der(data, size);
    } else if (size > 256 || memmem(data, size, "-----", 5) != nullptr) {
        read_chain(text, length);
    } else {
        write_lines(text, length);
        encode_and_decode(text, length);
    }
    reported();
    return 0;
}
