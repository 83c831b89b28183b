#include "verdict.h"

#include "messages.h"

#include <algorithm>

namespace {

fault explain_no_certificate(std::string_view text, const block_list &list) {
    if (text.empty()) {
        return {faults::empty};
    }
    if (!list.strays.empty()) {
        return list.strays[0];
    }
    if (list.blocks.empty()) {
        return {faults::no_block};
    }
    for (const block &seen : list.blocks) {
        if (seen.problem.exists()) {
            return seen.problem;
        }
    }
    return {faults::no_certificate, 0, "", excerpt(list.blocks[0].kind)};
}

// Why no certificate may be the last one: what follows it.
fault explain_rest(std::string_view text, const block_list &list, const block &last) {
    if (last.end == text.size()) {
        return {faults::refused};
    }
    const block *const next = &last + 1;
    const bool has_block = next < list.blocks.data() + list.blocks.size();
    for (const fault &stray : list.strays) {
        if (stray.line > last.last_line && (!has_block || stray.line < next->first_line)) {
            return stray;
        }
    }
    if (has_block) {
        return {faults::block_after, next->first_line, "", excerpt(next->kind)};
    }
    const std::string_view rest = text.substr(last.end);
    return {faults::text_after, last.last_line + 1, "",
            counted(rest.size(), "byte") + " (" + in_quotes(rest) + ')'};
}

fault explain_refusal(std::string_view text, const block_list &list) {
    const block *last = nullptr;
    for (const block &seen : list.blocks) {
        if (!seen.is_read) {
            return seen.problem;
        }
        if (seen.is_certificate) {
            last = &seen;
        }
    }
    return last == nullptr ? explain_no_certificate(text, list) : explain_rest(text, list, *last);
}

// Such as "line 1" and "lines 1, 14, 30"; of many, the first.
std::string lines_of(const std::vector<salvaged> &certificates) {
    std::string text;
    size_t count = 0;
    for (const salvaged &each : certificates) {
        if (!each.is_counted && ++count <= 8) {
            text += (count > 1 ? ", " : "") + std::to_string(each.line);
        }
    }
    return (count > 1 ? "lines " : "line ") + text + (count > 8 ? ", ..." : "");
}

} // namespace

verdict judge_chain(const input &chain) {
    verdict found = {read_blocks(chain.bytes), count_certificates(chain.bytes), {}, {}};
    found.recoverable = salvage_certificates(chain.bytes, found.list.blocks, found.count > 0);
    if (found.count > 0) {
        found.text = counted(found.count, "certificate") + ", ends cleanly";
    } else {
        found.cause = explain_refusal(chain.bytes, found.list);
        found.text = "refused: ";
        if (found.cause.line > 0) {
            found.text += "line " + std::to_string(found.cause.line) + ": ";
        }
        found.text += found.cause.sentence();
    }
    const std::vector<salvaged> &all = found.recoverable.certificates;
    if (all.size() > found.count) {
        found.text += "; tesra recover finds ";
        found.text += found.count > 0 ? std::to_string(all.size() - found.count) + " more"
                                      : counted(all.size(), "certificate");
        found.text += ", at " + lines_of(all);
    }
    return found;
}
