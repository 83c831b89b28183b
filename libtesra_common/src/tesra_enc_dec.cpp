#include <ctype.h>
#include <limits.h>
#include <openssl/bio.h>
#include <openssl/buffer.h>
#include <openssl/evp.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "tesra_log.h"
#include "tesra_owned.h"

namespace {

// Returns the start of the text without leading and trailing whitespace and stores its length; null
// and 0 if it is all whitespace.
const char *tesra_trim_whitespace(const char *text, uint32_t *length) {
    uint32_t leading = 0;
    while (leading < *length && isspace(static_cast<unsigned char>(text[leading])) != 0) {
        ++leading;
    }
    if (leading > 0) {
        TESRA_LOG(TESRA_LEVEL_WARNING, "Removed %d leading whitespaces\n",
                  static_cast<int>(leading));
    }
    *length -= leading;
    if (*length == 0) {
        return nullptr;
    }
    text += leading;
    uint32_t trailing = 0;
    while (isspace(static_cast<unsigned char>(text[*length - 1 - trailing])) != 0) {
        ++trailing;
    }
    if (trailing > 0) {
        TESRA_LOG(TESRA_LEVEL_WARNING, "Removed %d trailing whitespaces\n",
                  static_cast<int>(trailing));
    }
    *length -= trailing;
    return text;
}

// The number of bytes that the text decodes to, without its padding.
uint32_t tesra_decoded_length(const char *text, uint32_t length) {
    while (length > 0 && text[length - 1] == '=') {
        --length;
    }
    return static_cast<uint32_t>(uint64_t{length} * 3 / 4);
}

} // namespace

int tesra_base64_encode(const uint8_t *buffer, size_t buffer_len, char **out) {
    TESRA_LOG(TESRA_LEVEL_DEBUG, "Entry [%s]\n", "tesra_base64_encode");
    if (buffer == nullptr) {
        TESRA_LOG_ERROR("[%s]: buffer is NULL!\n\n", "tesra_base64_encode");
        return -1;
    }
    if (out == nullptr) {
        TESRA_LOG_ERROR("%s\n", "Invalid arguments");
        return -1;
    }
    tesra_owned<BIO, BIO_free_all> chain(BIO_new(BIO_f_base64()));
    if (chain == nullptr) {
        TESRA_LOG_ERROR("[%s]: BIO_new BIO_f_base64 failed!!\n\n", "tesra_base64_encode");
        return -1;
    }
    tesra_owned<BIO, BIO_free_all> sink(BIO_new(BIO_s_mem()));
    if (sink == nullptr) {
        TESRA_LOG_ERROR("[%s]: BIO_new BIO_s_mem failed!!\n\n", "tesra_base64_encode");
        return -1;
    }
    if (BIO_push(chain.get(), sink.get()) == nullptr) {
        TESRA_LOG_ERROR("[%s]: BIO_push bio failed!!\n\n", "tesra_base64_encode");
        return -1;
    }
    static_cast<void>(sink.release()); // released with the chain
    BIO_set_flags(chain.get(), BIO_FLAGS_BASE64_NO_NL);
    // A longer length must not be truncated to an int.
    if (buffer_len > INT_MAX || BIO_write(chain.get(), buffer, static_cast<int>(buffer_len)) <= 0) {
        TESRA_LOG_ERROR("[%s]: BIO_write failed!\n\n", "tesra_base64_encode");
        return -1;
    }
    if (BIO_flush(chain.get()) <= 0) {
        TESRA_LOG_ERROR("[%s]: BIO_flush failed!\n\n", "tesra_base64_encode");
        return -1;
    }
    const BUF_MEM *buf_mem = nullptr;
    BIO_get_mem_ptr(chain.get(), &buf_mem);
    // If memory runs out midway, the write succeeds with fewer bytes.
    if (buf_mem != nullptr && buf_mem->length != (buffer_len + 2) / 3 * 4) {
        TESRA_LOG_ERROR("[%s]: BIO_write failed!\n\n", "tesra_base64_encode");
        return -1;
    }
    char *text = buf_mem == nullptr ? nullptr : static_cast<char *>(malloc(buf_mem->length + 1));
    if (text == nullptr) {
        TESRA_LOG_ERROR("[%s]: malloc failed! buf_mem = 0x%08zx\n\n", "tesra_base64_encode",
                        reinterpret_cast<size_t>(buf_mem));
        return -1;
    }
    memmove(text, buf_mem->data, buf_mem->length);
    text[buf_mem->length] = '\0';
    chain.reset();
    *out = text;
    return 0;
}

uint8_t *tesra_base64_decode(const char *src, uint32_t src_len, uint32_t *dst_len) {
    TESRA_LOG(TESRA_LEVEL_DEBUG, "Entry [%s]\n", "tesra_base64_decode");
    if (src == nullptr || dst_len == nullptr || src_len == 0) {
        TESRA_LOG_ERROR("%s\n", "Invalid arguments");
        return nullptr;
    }
    TESRA_LOG(TESRA_LEVEL_DEBUG, "Decode from base64 string, src_len = %d\n",
              static_cast<int>(src_len));
    uint32_t length = src_len;
    const char *text = tesra_trim_whitespace(src, &length);
    if (text == nullptr) {
        TESRA_LOG_ERROR("%s\n", "Invalid base64 string");
        return nullptr;
    }
    const uint32_t size = length / 4 * 3;
    tesra_owned<uint8_t, free> block(static_cast<uint8_t *>(calloc(1, size)));
    if (block == nullptr) {
        TESRA_LOG_ERROR("%s\n", "Allocation failed");
        return nullptr;
    }
    int decoded = -1;
    if (length <= INT_MAX) {
        decoded = EVP_DecodeBlock(block.get(), reinterpret_cast<const unsigned char *>(text),
                                  static_cast<int>(length));
    }
    // EVP_DecodeBlock skips dashes at the end. The length below would count them, and so include
    // bytes that were not decoded, or even bytes beyond the block.
    if (decoded < 1 || int64_t{decoded} * 4 != int64_t{length} * 3) {
        TESRA_LOG_ERROR("EVP_DecodeBlock failed, ret = %d\n", decoded);
        return nullptr;
    }
    *dst_len = tesra_decoded_length(text, length);
    TESRA_LOG(TESRA_LEVEL_DEBUG, "Decoded to binary data, dst_len = %d\n",
              static_cast<int>(*dst_len));
    return block.release();
}

char *tesra_hex_encode(const uint8_t *src, uint32_t src_len, uint32_t *dst_len) {
    TESRA_LOG(TESRA_LEVEL_DEBUG, "Entry [%s]\n", "tesra_hex_encode");
    // Twice a longer length does not fit into 32 bits.
    if (dst_len == nullptr || src_len == 0 || src == nullptr || src_len > INT32_MAX) {
        TESRA_LOG_ERROR("%s\n", "Invalid arguments");
        return nullptr;
    }
    const uint32_t size = 2 * src_len + 1;
    tesra_owned<char, free> text(static_cast<char *>(calloc(1, size)));
    if (text == nullptr) {
        TESRA_LOG_ERROR("%s\n", "Allocation failed");
        return nullptr;
    }
    for (uint32_t i = 0; i < src_len; ++i) {
        const size_t at = size_t{2} * i;
        const int written = snprintf(text.get() + at, size - at, "%02X", src[i]);
        if (written != 2) {
            TESRA_LOG_ERROR("Encode failed at idx = %d, ret = %d\n", static_cast<int>(i), written);
            return nullptr;
        }
    }
    *dst_len = 2 * src_len;
    TESRA_LOG(TESRA_LEVEL_DEBUG, "Encoded to hex string, dst_len = %d\n",
              static_cast<int>(*dst_len));
    return text.release();
}

uint8_t *tesra_hex_decode(const char *src, uint32_t src_len, uint32_t *dst_len) {
    TESRA_LOG(TESRA_LEVEL_DEBUG, "Entry [%s]\n", "tesra_hex_decode");
    if (src == nullptr || dst_len == nullptr || src_len == 0) {
        TESRA_LOG_ERROR("%s\n", "Invalid arguments");
        return nullptr;
    }
    TESRA_LOG(TESRA_LEVEL_DEBUG, "Decode from hex string, src_len = %d\n",
              static_cast<int>(src_len));
    uint32_t length = src_len;
    const char *text = tesra_trim_whitespace(src, &length);
    if (text == nullptr || length % 2 != 0) {
        TESRA_LOG_ERROR("Invalid hex string size (%d)!\n", static_cast<int>(length));
        return nullptr;
    }
    tesra_owned<uint8_t, free> block(static_cast<uint8_t *>(calloc(1, length / 2 + 1)));
    if (block == nullptr) {
        TESRA_LOG_ERROR("%s\n", "Allocation failed");
        return nullptr;
    }
    // sscanf first measures its whole input: given the text itself, it would read all the rest for
    // every pair.
    for (uint32_t i = 0; i < length; i += 2) {
        const char pair[] = {text[i], text[i + 1], '\0'};
        const int converted = sscanf(pair, "%2hhx", block.get() + i / 2);
        if (converted != 1) {
            TESRA_LOG_ERROR("Decode failed at idx = %d, ret = %d\n", static_cast<int>(i),
                            converted);
            return nullptr;
        }
    }
    *dst_len = length / 2;
    TESRA_LOG(TESRA_LEVEL_DEBUG, "Decoded to binary data, dst_len = %d\n",
              static_cast<int>(*dst_len));
    return block.release();
}
