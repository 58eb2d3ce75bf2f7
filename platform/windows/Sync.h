// Locks of the Windows build: the standard library's, behind the names that the hosted layer
// gives its own.
#pragma once

#include <condition_variable>
#include <mutex>

#include "platform/LockRank.h"

namespace platform {

/// Holds a mutex for a scope. The rank is for the hosted layer's checks.
class Lock {
  public:
    Lock(std::mutex& mutex, const LockRank& /*rank*/) : m_lock(mutex) {}
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

  private:
    friend class ConditionVariable;
    std::unique_lock<std::mutex> m_lock;
};

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
