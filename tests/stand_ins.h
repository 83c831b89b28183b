// Stand-ins for the library's sinks, clock and heap, in a program that links stand_ins.cpp: the
// dynamic linker binds the library's calls of platform_log_write, fopen, gettimeofday and the
// allocators to the program first. Everything here belongs to the calling thread.
#pragma once

#include <sys/time.h>

#include <cstdint>
#include <string>

// The reports since the last call, each "<level> <text>" and a line break. A pointer shows as PTR.
// An error stands here once, if it reached the platform log first and then the trace file with the
// same file, line and text; if not, a line "(platform log only)" follows it. What reaches the trace
// file alone has "trace " in front.
std::string reported();

struct stand_ins {
    timeval clock; // stands still
    bool trace_file_unwritable;
    std::string trace_line; // the last one, whole
    uintptr_t pointer;      // the last one reported
};
extern thread_local stand_ins stand_in;

// Counts only while a heap_watch says so, and where TESRA_HEAP_STAND_IN is defined: a sanitizer
// needs the allocators for itself.
struct heap_use {
    long first_refused, last_refused; // of the allocations asked for; 0: none
    long asked;
    long c_blocks, libcrypto_blocks; // allocated less released, by the C library and by libcrypto
    long nulls_released;
    bool counted;
};
extern constinit thread_local heap_use heap;

// Turns counting on or off for a scope. Defined out of line, since the compiler assumes that free
// reads no variable.
struct heap_watch {
    explicit heap_watch(bool counted);
    ~heap_watch();
    bool outer;
};
