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

// What was reported since the last call, joined by " | ": of each report the level, the conversions
// of its format and its text ("2 %d Invalid cert at index 3"). A text that is the argument of
// "%s\n" shows no conversion, a pointer shows as PTR, and the line break that ends every report not
// at all. X509_free and BIO_free_all stand between the reports by their names.
//
// Each error must have reached both sinks, the platform log first, with the same text, file and
// line; everything else the platform log alone. A line that went to the trace file alone has
// "trace " in front.
std::string reported();
// The trace file's text since the last call of either function.
std::string traced();
// The pointer that the library reported last.
extern uintptr_t last_pointer;
// Unless zero, the wall clock that the library reads.
extern timeval fixed_time;

// Makes the library's nth call of a function fail, the first call being 1. A function that yields a
// number yields `result`. The call must happen before the guard ends. "" is no function.
class failing {
  public:
    explicit failing(std::string function, int nth = 1, int result = -1);
    ~failing();
    failing(const failing &) = delete;
    failing &operator=(const failing &) = delete;

  private:
    std::string name;
};

// The allocations of the whole process, libcrypto's included, while they are counted.
struct allocation_state {
    bool counting;
    long first_failing; // 0: none fails; otherwise the trace file may lose lines, and shows none
    long last_failing;
    long reached; // allocations asked for
    long live;    // blocks allocated less blocks released
};
extern allocation_state allocations;

// Returns what it was. A function, since a compiler that knows malloc and free could think that a
// variable does not matter to them.
bool count_allocations(bool counting);

// What `call` returns, with its allocations counted. Nothing of the test's own counts.
template <class callable>
auto counted(callable call) {
    struct guard {
        ~guard() {
            count_allocations(false);
        }
    } on_return;
    count_allocations(true);
    return call();
}

// `bytes` copied to where a page that cannot be read follows.
std::shared_ptr<char> guarded(const std::string &bytes);
