// Locks of the Windows build: those of the standard library, under the names that the emulation
// uses as well.
#pragma once

#include <condition_variable>
#include <mutex>

#include "platform/Mutex.h"

namespace platform {

/// Holds a mutex for a scope. The rank is for the emulation's checks.
class TAGPORT_SCOPED_LOCK Lock {
  public:
    explicit Lock(Mutex& mutex) TAGPORT_ACQUIRE(mutex) : m_lock(mutex.native()) {}
    ~Lock() TAGPORT_RELEASE() = default;
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

  private:
    friend class ConditionVariable;
    std::unique_lock<std::mutex> m_lock;
};

/// Unknown here: true.
inline bool HoldsLock(const LockRank& /*rank*/) {
    return true;
}

/// A condition variable that is used with a Lock.
class ConditionVariable {
  public:
    /// Releases the lock while waiting; returns with it held and `predicate()` true.
    template <class Predicate>
    void Wait(Lock& lock, Predicate predicate) {
        m_condition.wait(lock.m_lock, predicate);
    }
    void NotifyAll() { m_condition.notify_all(); }

  private:
    std::condition_variable m_condition;
};

}  // namespace platform
