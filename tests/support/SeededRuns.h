// Seeds of scheduled runs: where they start, and a body run under many of them.
#pragma once

#include <sys/mman.h>

#include <cstdint>
#include <functional>
#include <new>

#include "platform/emulation/Kernel.h"
#include "tests/support/Threads.h"

namespace testing_support {

/// The seed of this run: the environment's TAGPORT_SEED, or 1.
std::uint64_t Seed();

/// Puts the process on a scheduled clock with Seed(), unless it is on a scheduled one already. A
/// base of whatever tests use the emulation with.
struct OneSeed {
    OneSeed();
    static inline bool staysOnRealClock = false;  ///< true: the process stays as it is
};

/// A plain value that child processes write and their parent reads. Stays until the process ends.
template <class Plain>
Plain& Shared() {
    return *new (mmap(nullptr, sizeof(Plain), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                      -1, 0)) Plain;
}

/// Runs `body` in a child process, on the clock that is chosen, or not, in there, and gives what
/// waitpid gives: zero when it ended and no check failed.
int RunInChild(const std::function<void()>& body);

/// True when memory that nobody points to any more is still allocated; told on standard error.
/// Without AddressSanitizer nobody knows, and it is false. Children leave without asking.
bool HasLeaked();

/// Runs `body` once for each of `count` seeds from Seed() on, each time in a child process on a
/// scheduled clock of its own. A failure of the child, a stall and a crash included, fails the test
/// with the seed. The calling process must not have used the layer. `options.seed` is ignored.
void ForEachSeed(unsigned count, const std::function<void()>& body,
                 const emulation::ScheduledOptions& options = {});

}  // namespace testing_support
