/*
 * The platform's diagnostic log, as libtesra_common uses it.
 *
 * The platform's own library is closed. This header declares its entry point; platform_log.cpp
 * stands in for the library where it is missing.
 */
#ifndef PLATFORM_LOG_H
#define PLATFORM_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

/**
 * platform_log_write sends one report to the platform's diagnostic log.
 *
 * The stand-in passes each report to syslog(3), after its component: level 2 and below as an error,
 * 3 as a warning, 4 to 10 as information, 11 and above as debugging. Control characters, and bytes
 * that are not UTF-8, appear as \xNN. If the environment variable PLATFORM_LOG_STDERR holds a
 * number, reports up to that level also go to standard error, each as one line in one write; a
 * closed pipe there loses them, but raises no SIGPIPE. While the syslog daemon hangs, or nobody
 * reads a pipe at standard error, the call blocks.
 *
 * @param level      importance of the report: 2 error, 3 warning, 4 information, 11 debug
 * @param component  number of the program part that reports
 * @param format     printf(3) format of the text; the line break at its end is optional
 * @return 0; or -1 if a part of the text cannot be formatted, such as a %ls that the locale cannot
 *         convert: the text ends there. errno is preserved.
 *
 * Thread-safety: MT-Safe env locale.
 */
int platform_log_write(int level, int component, const char *format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 3, 4), visibility("default")))
#endif
    ;

#ifdef __cplusplus
}
#endif

#endif
