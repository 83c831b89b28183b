#include "diagnosis.h"

#include "messages.h"
#include "reports.h"

#include <openssl/cms.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>

#include <algorithm>
#include <cctype>

namespace {

constexpr const char *fails = " after the last certificate, where the library looks for one more";

template <class type, void release(type *)>
bool is_der(type *decode(type **, const unsigned char **, long), std::string_view bytes) {
    const auto *at = reinterpret_cast<const unsigned char *>(bytes.data());
    type *const value = decode(nullptr, &at, static_cast<long>(bytes.size()));
    release(value);
    return value != nullptr;
}

// The file's name as a shell takes it; FILE, if it has none, none that can be shown as it is, or
// that of the file to be written.
std::string shell_word(const std::string &path) {
    const bool is_plain =
        escaped(path) == path && path.find('\'') == path.npos && !path.ends_with("CHAIN");
    return is_plain ? (path[0] == '-' ? "'./" : "'") + path + '\'' : "FILE";
}

// OpenSSL's store finds certificates in DER, in PKCS#12, and in PEM blocks with trust settings.
std::string store_command(const std::string &file) {
    return "openssl storeutl -certs " + file + " | sed -n '/^-----BEGIN/,/^-----END/p' >CHAIN";
}

std::string cms_command(const std::string &file, const std::string &encoding) {
    return "openssl cms -cmsout -noout -certsout CHAIN -inform " + encoding + " -in " + file;
}

// Each of several texts may be padded by itself.
line_fault explain_base64(std::string text, const std::string &file) {
    const kept_errors muted;
    std::string bytes;
    std::erase_if(text, [](unsigned char byte) { return std::isspace(byte) != 0; });
    for (size_t at = 0, end = 0; at < text.size(); at = end) {
        end = std::min(text.find_first_not_of('=', text.find('=', at)), text.size());
        auto length = static_cast<uint32_t>(end - at);
        const heap_ptr<uint8_t> block(tesra_base64_decode(&text[at], length, &length));
        bytes.append(reinterpret_cast<char *>(block.get()), block == nullptr ? 0 : length);
    }
    const size_t certificates = count_der(bytes);
    const std::string decode = "base64 -di " + file;
    if (bytes.starts_with("-----BEGIN ")) {
        return {0, "PEM in Base64", decode + " >CHAIN"};
    }
    if (certificates == 0) {
        return {0, "no PEM block in it", "file(1) may tell what it is."};
    }
    return {0, "Base64 of " + counted(certificates, "certificate") + " without BEGIN and END lines",
            certificates == 1 ? decode + " | openssl x509 -inform DER -out CHAIN"
                              : "Put them around the Base64 of each."};
}

line_fault explain_form(std::string_view text, const std::string &file) {
    const size_t certificates = count_der(text);
    const size_t utf16 = text.find(std::string_view("B\0E\0G\0I\0N", 9));
    if (text.empty()) {
        return {0, "empty, where a chain holds one certificate or more", ""};
    }
    if (certificates > 0) {
        return {0, counted(certificates, "certificate") + " in DER, not PEM", store_command(file)};
    }
    if (is_der<PKCS12, PKCS12_free>(d2i_PKCS12, text)) {
        return {0, "PKCS#12", store_command(file)};
    }
    if (is_der<CMS_ContentInfo, CMS_ContentInfo_free>(d2i_CMS_ContentInfo, text)) {
        return {0, "PKCS#7 in DER", cms_command(file, "DER")};
    }
    if (utf16 != text.npos) {
        const std::string name = utf16 % 2 == 0 ? "UTF-16LE" : "UTF-16BE";
        return {0, name, "iconv -f " + name + " -t UTF-8 " + file + " >CHAIN"};
    }
    return explain_base64(std::string(text), file);
}

// Of a file whose PEM blocks, if it has any, are all of kinds that the library passes over.
line_fault explain_no_certificate(const input &chain, const std::vector<finding> &findings) {
    const std::string file = shell_word(chain.path);
    size_t counts[4] = {};
    for (const finding &seen : findings) {
        ++counts[seen.holds];
    }
    const size_t holders = findings.size() - counts[finding::nothing];
    if (findings.empty()) {
        return explain_form(chain.bytes, file);
    }
    if (holders == 0) {
        return {0, "no certificate in it, only " + excerpt(findings[0].kind),
                "Take the file that holds the certificate."};
    }
    return {0, counted(holders, "block") + " with certificates that the library passes over",
            holders == counts[finding::trusted] ? store_command(file)
            : counts[finding::cms] == 0         ? "Write CERTIFICATE in their BEGIN and END lines."
            : holders == 1                      ? cms_command(file, "PEM")
                                                : "Convert each by itself."};
}

// Why the library refuses the chain, and the finding that says so, if there is one.
line_fault explain_refused(const input &chain, const std::vector<finding> &all,
                           const finding *&cause) {
    const auto first = [&](auto is_so) { return std::find_if(all.begin(), all.end(), is_so); };
    const auto stop = first([](const finding &seen) { return !seen.is_read; });
    const auto stray = first([](const finding &seen) { return seen.kind.empty(); });
    const auto last = std::find_if(all.rbegin(), all.rend(),
                                   [](const finding &seen) { return seen.position >= 0; });
    if (stop != all.end()) {
        cause = &*stop;
        return {stop->fault.line,
                stop->fault.text + " (" + excerpt(stop->kind) + " of line " +
                    std::to_string(stop->first_line) + "); the library reads no further",
                stop->fault.remedy};
    }
    if (last == all.rend() && stray == all.end()) {
        return explain_no_certificate(chain, all);
    }
    if (last == all.rbegin() && last->end == chain.bytes.size()) {
        return {0, "refused", "--log 2 tells why."};
    }
    if (last == all.rbegin()) {
        const std::string_view rest = std::string_view(chain.bytes).substr(last->end);
        return {last->last_line + 1,
                counted(rest.size(), "byte") + " (" + in_quotes(rest) + ')' + fails,
                holds_base64(rest) || count_der(rest) > 0 ? "Put them into BEGIN and END lines."
                : rest.size() == 1                        ? "Remove it."
                                                          : "Remove them."};
    }
    cause = last == all.rend() ? &*stray : &*last.base();
    if (cause->kind.empty()) {
        return cause->fault;
    }
    return {cause->first_line, excerpt(cause->kind) + fails,
            cause->holds != finding::nothing
                ? "Convert it, or write CERTIFICATE in its BEGIN and END lines."
                : "Move it in front of a certificate, or elsewhere."};
}

std::string other_faults(const std::vector<finding> &findings, const finding *cause) {
    std::string text;
    size_t count = 0;
    for (const finding &seen : findings) {
        if (&seen != cause && !seen.fault.text.empty() && ++count <= 3) {
            text += (count == 1 ? "Line " : "; line ") + std::to_string(seen.fault.line) + ": " +
                    seen.fault.text;
        }
    }
    return text + (count > 3 ? "; and " + counted(count - 3, "more fault") : "");
}

} // namespace

std::string diagnosis::in_one_line() const {
    const char *const before = remedy.find("CHAIN") != remedy.npos ? ". Convert it: " : ". ";
    return verdict + (remedy.empty() ? "" : before + remedy) +
           (others.empty()   ? ""
            : remedy.empty() ? ". "
                             : " ") +
           others;
}

diagnosis diagnose(const input &chain, uint32_t certificates) {
    diagnosis found = {read_chain(chain), "", "", ""};
    const finding *cause = nullptr;
    const line_fault what =
        certificates > 0
            ? line_fault{0, counted(certificates, "certificate") + ", ends cleanly", ""}
            : explain_refused(chain, found.findings, cause);
    found.verdict =
        chain.name + ':' + (what.line > 0 ? std::to_string(what.line) + ':' : "") + ' ' + what.text;
    found.remedy = what.remedy;
    found.others = what.line > 0 || certificates > 0 ? other_faults(found.findings, cause) : "";
    return found;
}
