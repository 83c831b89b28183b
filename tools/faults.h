// Every fault that check knows: a code for programs, which never changes, and a sentence for
// people.
#pragma once

#include <string>

// In a sentence, %w is BEGIN or END, and %d the detail.
struct fault_kind {
    const char *code;
    const char *sentence;
};

namespace faults {

// Of a line that looks like the BEGIN or the END line of a block.
inline constexpr fault_kind malformed_marker = {"malformed-marker", "malformed %w line: %d"};
inline constexpr fault_kind stray_begin = {"stray-begin",
                                           "BEGIN line without an END line before it"};
inline constexpr fault_kind stray_end = {"stray-end", "END line without its BEGIN line: %d"};

// Of a block.
inline constexpr fault_kind not_ascii = {"not-ascii",
                                         "character beyond ASCII, which AArch64 refuses"};
inline constexpr fault_kind blank_line = {"blank-line", "blank line within the block"};
inline constexpr fault_kind not_base64 = {"not-base64", "%d is not a Base64 character"};
inline constexpr fault_kind early_padding = {"early-padding",
                                             "padding before the end of the Base64"};
inline constexpr fault_kind encrypted = {"encrypted", "encrypted"};
inline constexpr fault_kind truncated = {"truncated", "truncated: no END line"};
inline constexpr fault_kind wrong_length = {"wrong-length", "damaged: %d"};
inline constexpr fault_kind unreadable = {"unreadable", "unreadable: %d"};
inline constexpr fault_kind no_record = {"no-record", "the library makes no record of it: %d"};
inline constexpr fault_kind skipped = {"skipped", "skipped, with the certificates in it"};
inline constexpr fault_kind pgp = {"pgp", "PGP, not PEM"};

// Of what recover cannot write.
inline constexpr fault_kind damaged = {"damaged", "a damaged certificate; copy it again"};
inline constexpr fault_kind pkcs12 = {"pkcs12", "PKCS#12; openssl pkcs12 asks for its password"};
inline constexpr fault_kind nothing = {"nothing", "contains no certificate"};

// Of a chain.
inline constexpr fault_kind empty = {"empty", "empty; a chain has at least one certificate"};
inline constexpr fault_kind no_block = {"no-block", "contains no PEM block"};
inline constexpr fault_kind no_certificate = {"no-certificate", "contains no certificate, only %d"};
inline constexpr fault_kind text_after = {
    "text-after", "%d after the last certificate; the library expects another one there"};
inline constexpr fault_kind block_after = {
    "block-after", "%d after the last certificate; the library expects another one there"};
inline constexpr fault_kind refused = {"refused", "--log 2 shows why"};

} // namespace faults

struct fault {
    fault_kind kind = {};
    size_t line = 0; // from 1; 0 is none
    std::string word = {};
    std::string detail = {};

    bool exists() const {
        return kind.code != nullptr;
    }
    std::string sentence() const;
};
