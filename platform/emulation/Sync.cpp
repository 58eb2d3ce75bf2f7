// The locks of the library. The layer checks their order, and on the scheduled clock another thread
// may run at each lock and unlock.
#include "platform/emulation/Sync.h"

#include <algorithm>

#include "platform/emulation/KernelState.h"

namespace platform {

namespace {

using emulation::HeldLock;
using emulation::Kernel;
using emulation::KernelLock;
using emulation::Thread;

std::string Describe(const LockRank& rank) {
    return "\"" + std::string(rank.name) + "\" (level " + std::to_string(rank.level) + ")";
}

/// Only the thread itself changes `held`, so it may read it without the guard.
void CheckOrder(const Thread& self, const LockRank& rank) {
    for (const HeldLock& lock : self.held) {
        if (lock.rank->level >= rank.level) {
            emulation::AbortWith("lock order broken: " + self.name + " takes " + Describe(rank) +
                                 " while it holds " + Describe(*lock.rank));
        }
    }
}

void SetBlocked(Thread& self, const LockRank* rank) {
    const std::lock_guard<std::mutex> guard(self.heldGuard);
    self.blockedOn = rank;
}

void AddHeld(Thread& self, std::mutex& mutex, const LockRank& rank) {
    const std::lock_guard<std::mutex> guard(self.heldGuard);
    self.held.push_back({&mutex, &rank});
}

void RemoveHeld(Thread& self, const std::mutex& mutex) {
    const std::lock_guard<std::mutex> guard(self.heldGuard);
    self.held.erase(std::find_if(self.held.begin(), self.held.end(),
                                 [&](const HeldLock& lock) { return lock.mutex == &mutex; }));
}

void TraceLock(const LockRank& rank) {
    emulation::Trace(emulation::TraceEvent::Kind::kLock,
                     [&](emulation::TraceEvent& event) { event.text = rank.name; });
}

/// Waits, on the scheduled clock, until the mutex is free, and locks it. It never blocks in the
/// mutex itself: the holder could not run then, since the calling thread has the turn.
void LockScheduled(Thread& self, std::mutex& mutex, const LockRank& rank) {
    Kernel& kernel = emulation::TheKernel();
    const KernelLock lock;
    Thread*& owner = kernel.mutexOwners[&mutex];
    while (owner != nullptr || !emulation::TryLock(mutex)) {
        const auto free = [&] { return owner == nullptr && !emulation::IsLocked(mutex); };
        kernel.scheduler->Wait(emulation::Predicate(free), emulation::kNever,
                               {"lock", nullptr, &rank, &mutex});
    }
    owner = &self;
    kernel.scheduler->Changed();
    TraceLock(rank);
}

void MarkFree(const std::mutex& mutex) {
    const KernelLock lock;
    emulation::TheKernel().mutexOwners[&mutex] = nullptr;
    emulation::TheScheduler().Changed();
}

/// Free-running clock: reports a lock or an unlock to the lock watchers. Without watchers, the
/// usual case, it does not take the kernel lock: ThreadSanitizer would take its order for a
/// protection and miss data that the library's own locks do not protect.
void ReportToLockWatchers(const LockRank* taken) {
    if (emulation::TheKernel().lockWatchers.load(std::memory_order_relaxed) > 0) {
        const KernelLock lock;
        if (taken != nullptr) {
            TraceLock(*taken);
        }
        emulation::TheScheduler().Changed();
    }
}

}  // namespace

Lock::Lock(Mutex& mutex) : m_mutex(mutex) {
    Acquire();
}

Lock::~Lock() {
    Release();
}

void Lock::Acquire() {
    emulation::Scheduler& scheduler = emulation::TheScheduler();
    Thread& self = scheduler.Current();
    std::mutex& native = m_mutex.native();
    const LockRank& rank = m_mutex.rank();
    CheckOrder(self, rank);
    if (scheduler.IsScheduled()) {
        scheduler.AllowSwitch(false);
        LockScheduled(self, native, rank);
        AddHeld(self, native, rank);
        return;
    }
    if (!native.try_lock()) {
        SetBlocked(self, &rank);
        native.lock();
        SetBlocked(self, nullptr);
    }
    AddHeld(self, native, rank);
    ReportToLockWatchers(&rank);
}

void Lock::Release() {
    emulation::Scheduler& scheduler = emulation::TheScheduler();
    std::mutex& native = m_mutex.native();
    RemoveHeld(scheduler.Current(), native);
    native.unlock();
    if (scheduler.IsScheduled()) {
        MarkFree(native);
        scheduler.AllowSwitch(false);
    } else {
        ReportToLockWatchers(nullptr);
    }
}

bool HoldsLock(const LockRank& rank) {
    const std::vector<HeldLock>& held = emulation::TheScheduler().Current().held;
    return std::any_of(held.begin(), held.end(),
                       [&](const HeldLock& lock) { return lock.rank->level == rank.level; });
}

void ConditionVariable::NotifyAll() {
    emulation::Scheduler& scheduler = emulation::TheScheduler();
    if (!scheduler.IsScheduled()) {
        m_condition.notify_all();
        return;
    }
    scheduler.AllowSwitch(false);
    {
        const KernelLock lock;
        ++m_generation;
        scheduler.Changed();
    }
    scheduler.AllowSwitch(false);
}

void ConditionVariable::WaitOnce(Lock& lock) {
    emulation::Scheduler& scheduler = emulation::TheScheduler();
    Thread& self = scheduler.Current();
    std::mutex& native = lock.m_mutex.native();
    const LockRank& rank = lock.m_mutex.rank();
    RemoveHeld(self, native);
    if (!scheduler.IsScheduled()) {
        std::unique_lock<std::mutex> held(native, std::adopt_lock);
        m_condition.wait(held);
        held.release();  // stays locked; the Lock unlocks it
        CheckOrder(self, rank);
        AddHeld(self, native, rank);
        return;
    }
    {
        // No other thread may run between unlocking and waiting: its notification would be lost.
        native.unlock();
        MarkFree(native);
        const KernelLock kernel;
        const std::uint64_t before = m_generation;
        const auto notified = [&] { return m_generation != before; };
        scheduler.Wait(emulation::Predicate(notified), emulation::kNever,
                       {"a notification under lock", nullptr, &rank});
    }
    lock.Acquire();
}

}  // namespace platform
