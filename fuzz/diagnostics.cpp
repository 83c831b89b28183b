// Dumps and trace lines: any flags, level, label and bytes. The input is the flags, the level, the
// label up to a NUL, and the bytes.

#include "sinks.h"

#include <tesra_common.h>

#include <algorithm>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) {
        return 0;
    }
    const auto *rest = reinterpret_cast<const char *>(data) + 2;
    const std::string label(rest, strnlen(rest, size - 2));
    const size_t header = std::min(label.size() + 3, size);
    const auto length = static_cast<uint32_t>(size - header);

    tesra_trace(data[1], label.c_str(), length, "%.*s\n", static_cast<int>(length), data + header);
    const std::string line = traced();
    check(line.size() >= 1 && line.size() <= 511, "a trace line has at most 511 characters");

    tesra_dump(data[0], label.c_str(), data + header, length);
    const std::string lines = traced();
    const bool expected = length > 0 && (data[0] & TESRA_DUMP_TRACE) != 0;
    const uint32_t dump_lines = expected ? (length + 15) / 16 : 0;
    check(label.find('\n') != std::string::npos || // its own line breaks count too
              std::count(lines.begin(), lines.end(), '\n') == dump_lines,
          "a dump has a line for each sixteen bytes");
    check(lines.size() <= dump_lines * size_t{511}, "a dump line fits a trace line");
    return 0;
}
