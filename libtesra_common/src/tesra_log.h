/*
 * The two forms of the library's reports.
 *
 * TESRA_LOG(level, format, ...) sends a report to the platform's log; TESRA_LOG_ERROR(format, ...)
 * sends an error to the platform's log and to the trace file. `format` is a string literal that
 * ends in a line break. Pass a fixed text as the argument of "%s\n".
 *
 * They are macros because both sinks receive the report's own file and line. TESRA_LOG_ERROR
 * evaluates its arguments twice.
 *
 * POSIX basename may write into its argument, so each call has its own copy of the path.
 */
#ifndef TESRA_LOG_H
#define TESRA_LOG_H

#include <libgen.h>
#include <stdint.h>

#include "platform_log.h"
#include "tesra_common.h"

enum tesra_level : uint8_t {
    TESRA_LEVEL_ERROR = 2,
    TESRA_LEVEL_WARNING = 3,
    TESRA_LEVEL_INFO = 4,
    TESRA_LEVEL_DEBUG = 11,
};

// The component that identifies this library in the platform's log.
enum : int { TESRA_COMPONENT = 292 };

#define TESRA_LOG(level, format, ...)                                                              \
    do {                                                                                           \
        char tesra_path[] = __FILE__;                                                              \
        platform_log_write((level), TESRA_COMPONENT, "%s:%u:" format, basename(tesra_path),        \
                           uint32_t{__LINE__} __VA_OPT__(, ) __VA_ARGS__);                         \
    } while (0)

#define TESRA_LOG_ERROR(format, ...)                                                               \
    do {                                                                                           \
        TESRA_LOG(TESRA_LEVEL_ERROR, format __VA_OPT__(, ) __VA_ARGS__);                           \
        char tesra_path[] = __FILE__;                                                              \
        tesra_trace(TESRA_LEVEL_ERROR, basename(tesra_path), __LINE__,                             \
                    format __VA_OPT__(, ) __VA_ARGS__);                                            \
    } while (0)

#endif
