// Takes the library's sinks and the calls that it makes into the test's hands.
//
// The functions defined in harness.cpp stand in for those of the C library, of libcrypto and of the
// platform log: the dynamic linker binds the library's calls to the executable first. This needs
// default visibility, or the library silently goes on calling the real ones.
#pragma once

#include <sys/time.h>
#include <tesra_common.h>

#include <memory>
#include <string>

// What was reported since the last call, joined by " | ": of each report the level and the text,
// with each conversion of the format shown before what it gave ("2 Invalid cert at index %d=3").
// A report whose format is "%s\n" shows as its text alone, a pointer as PTR, and the line break
// that ends every report not at all.
//
// Each error must have reached both sinks, the platform log first, with the same text, file and
// line; everything else the platform log alone. A line that went to the trace file alone has
// "trace " in front.
std::string reported();
// The trace file's text since the last call.
std::string traced();

// Makes the library's nth call of a function fail, the first call being 1; 0 means every call.
// A function that yields a number yields `result`. The call must happen before the guard ends.
class failing {
  public:
    explicit failing(const std::string &function, int nth = 1, int result = -1);
    ~failing();
    failing(const failing &) = delete;
    failing &operator=(const failing &) = delete;
};

// While true, releases of certificates, BIOs and serial numbers' texts are among the reports.
extern bool watch_releases;
// Unless zero, the wall clock that the library reads.
extern timeval fixed_time;
// The pointer that the library reported last.
extern const void *last_pointer;

// A copy of `bytes` that ends right before a page that cannot be read.
std::shared_ptr<char> guarded(const std::string &bytes);
