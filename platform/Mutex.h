// The mutex of the library. Shared by both sides of the door; each side has its own guard for it.
#pragma once

#include <mutex>

#include "platform/LockRank.h"
#include "platform/ThreadSafety.h"

namespace platform {

/// A plain, non-recursive mutex that knows its rank and its name. Its native mutex is never
/// destroyed: threads of the library may still wait on it when the process ends or the library is
/// unloaded. So a Mutex is a static or a member of one; anything else would leak on some systems.
class TAGPORT_CAPABILITY Mutex {
  public:
    explicit Mutex(const LockRank& rank) : m_rank(rank), m_native() {}
    // The point of the class: the native mutex's destructor must not run.
    ~Mutex() {}  // NOLINT(modernize-use-equals-default)
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    const LockRank& rank() const { return m_rank; }

    /// For a host that locks it itself; everything else uses platform::Lock.
    std::mutex& native() { return m_native; }

    /// Says to clang's analysis, where it cannot see it, that the mutex is held.
    void AssertHeld() const TAGPORT_ASSERT_HELD() {}

  private:
    LockRank m_rank;
    union {
        std::mutex m_native;
    };
};

}  // namespace platform
