// A check of what the code relies on and neither its types nor its locks show: a counter, a state,
// a lock that the caller must hold.
#pragma once

#ifdef TAGPORT_CHECKS

#include <cstdio>
#include <cstdlib>

namespace platform {

[[noreturn]] inline void CheckFailed(const char* condition, const char* file, int line) {
    std::fprintf(stderr, "%s:%d: TAGPORT_CHECK(%s) failed\n", file, line, condition);
    std::abort();
}

}  // namespace platform

/// Ends the process with the condition's text when the condition is false. On in debug and
/// sanitized builds, and in the copy of the library that the tests, the soak and the fault sweep
/// link. Off elsewhere, where the condition is not evaluated.
#define TAGPORT_CHECK(condition) \
    ((condition) ? static_cast<void>(0) : platform::CheckFailed(#condition, __FILE__, __LINE__))

#else

#define TAGPORT_CHECK(condition) static_cast<void>(sizeof((condition) ? 1 : 0))

#endif
