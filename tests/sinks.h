// The library's sinks, clock and memory, taken over by a program that links sinks.cpp: the dynamic
// linker binds the library's calls of platform_log_write, fopen, gettimeofday and the allocators to
// the program first. Everything here belongs to the calling thread.
#pragma once

#include <sys/time.h>

#include <cstdint>
#include <string>

// The reports since the last call, each "<level> <text>" without its line break, joined by "|". A
// pointer shows as PTR. An error stands here once, if it reached the platform log first and then
// the trace file with the same file, line and text; if not, "(platform log only)" follows it. What
// reaches the trace file alone has "trace " in front.
std::string reported();

struct sinks {
    timeval now;       // the wall clock, which stands still
    bool unwritable;   // the trace file cannot be opened
    std::string line;  // the last one of the trace file, whole
    uintptr_t pointer; // the last one reported
};
extern thread_local sinks taken;

// Only where TESRA_TAKE_MEMORY is defined: a sanitizer needs the allocators for itself.
struct memory {
    long first_refused; // of the allocations asked for while they are watched
    long last_refused;  // 0: none is refused
    long asked;
    long c_blocks; // allocated less released, by the C library and by libcrypto
    long libcrypto_blocks;
};
extern thread_local memory heap;

// Watches the allocations until it ends, or does not.
struct watching {
    explicit watching(bool on);
    ~watching();
    bool was_on;
};
