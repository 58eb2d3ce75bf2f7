// Locks of the emulation. The library locks through these two classes alone, so the layer knows
// which thread holds and waits for which lock, checks the order of locks, and can let another
// thread run at each lock and unlock.
//
// A mutex that a host locks itself, through its native mutex, is not known to the layer. On the
// scheduled clock a Lock of it waits in the layer until it is free.
#pragma once

#include <condition_variable>
#include <cstdint>

#include "platform/Mutex.h"

namespace platform {

/// Off Windows the library is linked so that it is never unloaded.
inline void KeepLoaded() {}

/// Holds a mutex for a scope. Aborts the process with the two names when the rank of `mutex` is
/// not higher than every rank that the thread holds.
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

/// Whether this thread holds a mutex of that rank.
bool HoldsLock(const LockRank& rank);

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
