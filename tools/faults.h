// Every fault that check knows: a code for programs, which never changes, and a sentence for
// people.
#pragma once

#include <string>

// In a sentence, % is the detail.
struct fault_kind {
    const char *code;
    const char *sentence;
};

namespace faults {

// Of a line that looks like the BEGIN or the END line of a block.
constexpr fault_kind malformed_marker = {"malformed-marker", "malformed %"};
constexpr fault_kind stray_begin = {"stray-begin", "BEGIN line without an END line before it"};
constexpr fault_kind stray_end = {"stray-end", "END line without its BEGIN line: %"};

// Of a block.
constexpr fault_kind not_ascii = {"not-ascii", "character beyond ASCII, which AArch64 refuses"};
constexpr fault_kind blank_line = {"blank-line", "blank line within the block"};
constexpr fault_kind not_base64 = {"not-base64", "% is not a Base64 character"};
constexpr fault_kind early_padding = {"early-padding", "padding before the end of the Base64"};
constexpr fault_kind encrypted = {"encrypted", "encrypted"};
constexpr fault_kind truncated = {"truncated", "truncated: no END line"};
constexpr fault_kind wrong_length = {"wrong-length", "damaged: %"};
constexpr fault_kind unreadable = {"unreadable", "unreadable: libcrypto: %"};
constexpr fault_kind no_record = {"no-record", "the library makes no record of it: %"};
constexpr fault_kind skipped = {"skipped", "skipped, with the certificates in it"};
constexpr fault_kind pgp = {"pgp", "PGP, not PEM"};

// Of what recover cannot write.
constexpr fault_kind damaged = {"damaged", "a damaged certificate; copy it again"};
constexpr fault_kind pkcs12 = {"pkcs12", "PKCS#12; openssl pkcs12 asks for its password"};
constexpr fault_kind nothing = {"nothing", "contains no certificate"};

// Of a chain.
constexpr fault_kind empty = {"empty", "empty; a chain has at least one certificate"};
constexpr fault_kind no_block = {"no-block", "contains no PEM block"};
constexpr fault_kind no_certificate = {"no-certificate", "contains no certificate, only %"};
constexpr fault_kind text_after = {
    "text-after", "% after the last certificate; the library expects another one there"};
constexpr fault_kind block_after = {
    "block-after", "% after the last certificate; the library expects another one there"};
constexpr fault_kind refused = {"refused", "--log 2 shows why"};

} // namespace faults

struct fault {
    fault_kind kind = {};
    size_t line = 0; // from 1; 0 is none
    std::string detail = {};

    bool exists() const {
        return kind.code != nullptr;
    }
    std::string sentence() const {
        std::string text = kind.sentence;
        const size_t at = text.find('%');
        return at == text.npos ? text : text.replace(at, 1, detail);
    }
    // With the line in front.
    std::string text() const {
        return (line > 0 ? "line " + std::to_string(line) + ": " : "") + sentence();
    }
};
