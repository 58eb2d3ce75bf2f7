// Locks of the hosted layer. Every lock of the library goes through these two, so the layer knows
// who holds and who waits for what, checks the order of locks, and can let another thread run at
// each lock and unlock.
#pragma once

#include <condition_variable>
#include <cstdint>

#include "platform/Mutex.h"

namespace platform {

/// Off Windows the library is linked so that it stays in memory once it is there.
inline void KeepLoaded() {}

/// Holds a mutex for a scope. Aborts the process with the two names when the rank of `mutex` is
/// not above every rank that the thread holds.
class TAGPORT_SCOPED_LOCK Lock {
  public:
    explicit Lock(Mutex& mutex) TAGPORT_ACQUIRE(mutex);
    ~Lock() TAGPORT_RELEASE();
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

  private:
    friend class ConditionVariable;
    void Acquire();
    void Release();

    Mutex& m_mutex;
};

/// A condition variable that is used with a Lock.
class ConditionVariable {
  public:
    /// Releases the lock while waiting; returns with it held and `predicate()` true.
    template <class Predicate>
    void Wait(Lock& lock, Predicate predicate) {
        while (!predicate()) {
            WaitOnce(lock);
        }
    }
    void NotifyAll();

  private:
    void WaitOnce(Lock& lock);

    std::condition_variable m_condition;
    std::uint64_t m_generation =
        0;  // number of NotifyAll calls so far; the scheduled wait reads it
};

}  // namespace platform
