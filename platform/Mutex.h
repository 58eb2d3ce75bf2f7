// The mutex of the library, the same on every platform. Each platform has its own Lock for it.
#pragma once

#include <mutex>

#include "platform/LockRank.h"
#include "platform/ThreadSafety.h"

namespace platform {

/// A non-recursive mutex with a rank and a name. Its native mutex is never destroyed, since threads
/// of the library may still wait on it when the process ends or the library is unloaded. So a Mutex
/// has to be a static or a member of one; another one would leak on some systems.
class TAGPORT_CAPABILITY Mutex {
  public:
    explicit Mutex(const LockRank& rank) : m_rank(rank), m_native() {}
    // Not defaulted: the native mutex's destructor must not run.
    ~Mutex() {}  // NOLINT(modernize-use-equals-default)
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    const LockRank& rank() const { return m_rank; }

    /// For a host that locks it itself, out of sight of the checks of platform::Lock, which all
    /// other code uses. See platform/emulation/Sync.h for a run on the scheduled clock.
    std::mutex& native() { return m_native; }

    /// States that the mutex is held where clang's analysis cannot see it.
    void AssertHeld() const TAGPORT_ASSERT_HELD() {}

  private:
    LockRank m_rank;
    union {
        std::mutex m_native;
    };
};

}  // namespace platform
