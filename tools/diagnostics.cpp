#include "commands.h"

#include "messages.h"
#include "reports.h"

#include <tesra_common.h>

#include <algorithm>
#include <cstdio>

// The library cuts a line of more than 126 bytes. A full one ends in 16 bytes of three characters.
int dump(const command_line &given) {
    return for_each_file(given, [&](const input &data, json &) {
        if (data.bytes.empty()) {
            throw refusal(data.name + ": nothing to show");
        }
        const auto head = static_cast<size_t>(snprintf(nullptr, 0, " %04X: ", data.length() - 1));
        const size_t room = 126 - head - 3 * std::min<size_t>(data.bytes.size(), 16);
        if (given.label.size() > room) {
            throw wrong_usage("--label: at most " + counted(room, "byte") +
                              " leave the lines whole");
        }
        given.has('t') ? write_trace_file() : print_dumps();
        tesra_dump(given.has('t') ? TESRA_DUMP_TRACE : TESRA_DUMP_LOG, given.label.c_str(),
                   data.data(), data.length());
    });
}

// A line of the trace file has at most 511 bytes, its header included.
int trace(const command_line &given) {
    if (given.words.empty() || given.words[0].size() > 400 ||
        given.words[0].find('\n') != std::string::npos) {
        throw wrong_usage("MESSAGE: must be one line of at most 400 bytes");
    }
    write_trace_file();
    tesra_trace(4, "tesra", __LINE__, "%s\n", given.words[0].c_str());
    return 0;
}
