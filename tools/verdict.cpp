#include "verdict.h"

#include "messages.h"

namespace {

// Why the library does not count the certificates of a chain.
fault explain_refusal(std::string_view text, const block_list &list) {
    const block none;
    const block *last = &none;   // certificate
    const block *next = nullptr; // block after it
    for (const block &seen : list.blocks) {
        if (!seen.is_read) {
            return seen.problem;
        }
        if (seen.is_certificate) {
            last = &seen;
            next = nullptr;
        } else if (next == nullptr || !next->problem.exists()) {
            next = &seen;
        }
    }
    for (const fault &stray : list.strays) {
        if (stray.line > last->last_line) {
            return stray;
        }
    }
    if (next != nullptr && next->problem.exists()) {
        return next->problem;
    }
    const bool is_after = last != &none;
    if (next != nullptr) {
        return {is_after ? faults::block_after : faults::no_certificate, next->first_line,
                excerpt(next->kind)};
    }
    const std::string_view rest = text.substr(last->end);
    if (rest.empty()) {
        return {is_after ? faults::refused : faults::empty};
    }
    if (!is_after) {
        return {faults::no_block};
    }
    return {faults::text_after, last->last_line + 1,
            counted(rest.size(), "byte") + " (" + in_quotes(rest) + ')'};
}

// How many certificates recover finds beside those that the library counts, and where: of many, the
// first.
std::string advise(const std::vector<salvaged> &certificates, uint32_t count) {
    std::string lines;
    size_t more = 0;
    for (const salvaged &each : certificates) {
        if ((count == 0 || !each.is_reached) && ++more <= 8) {
            lines += (more > 1 ? ", " : "") + std::to_string(each.line);
        }
    }
    if (more == 0) {
        return "";
    }
    return "; tesra recover finds " +
           counted(more, count > 0 ? "more certificate" : "certificate") +
           (more > 1 ? ", at lines " : ", at line ") + lines + (more > 8 ? ", ..." : "");
}

} // namespace

verdict judge_chain(std::string_view chain) {
    verdict found = {read_blocks(chain), count_certificates(chain), {}, {}, {}};
    found.recoverable = salvage_certificates(chain, found.list.blocks);
    if (found.count > 0) {
        found.text = counted(found.count, "certificate") + ", ends cleanly";
    } else {
        found.cause = explain_refusal(chain, found.list);
        found.text = "refused: " + found.cause.text();
    }
    found.text += advise(found.recoverable.certificates, found.count);
    return found;
}
