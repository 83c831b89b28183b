/*
 * The platform's diagnostic log, as far as libtesra_common uses it.
 *
 * The platform's own library is closed. This header declares its entry point, and platform_log.cpp
 * stands in for it on machines that do not have it.
 */
#ifndef PLATFORM_LOG_H
#define PLATFORM_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

/**
 * platform_log_write sends one report to the platform's diagnostic log.
 *
 * The stand-in hands each report to syslog(3) with the component in front of the text: level 2 and
 * below as an error, 3 as a warning, 4 to 10 as information, 11 and above as debugging. Control
 * characters in the text are shown as \xNN. If the environment variable PLATFORM_LOG_STDERR holds a
 * number, reports up to that level also go to standard error, each as one line in one write.
 *
 * @param level      importance of the report: 2 error, 3 warning, 4 information, 11 debug
 * @param component  number of the program part that reports
 * @param format     printf(3) format of the text; the line break at its end is optional
 * @return 0, or -1 if the text cannot be formatted. errno is left as it was.
 *
 * Safe to call from several threads at once.
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
