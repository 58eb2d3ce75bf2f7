// The interface of the two clocks of the emulation: the record of a thread, the lock over all
// objects (the kernel lock), and the one way to block, until a predicate holds or a deadline
// passes. Private to platform/emulation.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/LockRank.h"
#include "platform/emulation/Kernel.h"

namespace emulation {

constexpr Micros kNever = std::numeric_limits<Micros>::max();

/// The number of the device side, which runs timers and is not a thread of CreateThread.
constexpr ThreadId kDeviceThread = 0;
constexpr ThreadId kHostThread = 1;

/// Refers to a callable, which must outlive it. A std::function would allocate at every wait.
class Predicate {
  public:
    template <class Callable>
    explicit Predicate(const Callable& callable)
        : m_callable(&callable), m_call([](const void* target) {
              return static_cast<bool>((*static_cast<const Callable*>(target))());
          }) {}
    bool operator()() const { return m_call(m_callable); }

  private:
    const void* m_callable;
    bool (*m_call)(const void*);
};

/// What a thread waits for, for reports.
struct WaitReason {
    const char* what = "";
    HANDLE handle = nullptr;                   // shown if not null
    const platform::LockRank* lock = nullptr;  // shown if not null, with the holder of `mutex`
    std::mutex* mutex = nullptr;
};

struct HeldLock {
    std::mutex* mutex = nullptr;
    const platform::LockRank* rank = nullptr;
};

struct Thread {
    ThreadId id = kDeviceThread;
    std::string name;

    // The wait, under the kernel lock. The predicate is null while the thread runs or could run.
    const Predicate* predicate = nullptr;
    Micros deadline = kNever;
    Micros since = 0;
    WaitReason reason;

    // Scheduled clock only.
    bool ready = false;  // at the last look the predicate held or the deadline had passed
    Micros runnableSince = 0;
    std::uint64_t priority = 0;  // the highest runs, when priorities are in use

    // The mutexes that the thread holds, outermost first, and the one it is blocked on. They have a
    // lock of their own: the kernel lock would put threads that only lock mutexes into an order
    // that ThreadSanitizer takes for a protection.
    std::mutex heldGuard;
    std::vector<HeldLock> held;
    const platform::LockRank* blockedOn = nullptr;

    // Wakes the thread: with the kernel lock (free-running) or with turnMutex (scheduled).
    std::condition_variable wake;
    std::mutex turnMutex;
    bool hasTurn = false;
};

class Scheduler {
  public:
    virtual ~Scheduler() = default;

    virtual bool IsScheduled() const = 0;
    virtual Micros Now() const = 0;
    virtual std::uint64_t Random() = 0;  ///< under the kernel lock

    /// The calling thread's record. For an unknown thread the free-running clock makes one; the
    /// scheduled clock aborts.
    virtual Thread& Current() = 0;

    /// Take and release the kernel lock. Recursive.
    virtual void Enter() = 0;
    virtual void Leave() = 0;

    /// With the lock held: something has changed, so a predicate may hold now.
    virtual void Changed() = 0;

    /// Another thread may run here; with `giveWay` another one does if there is one that can. Does
    /// nothing while the calling thread holds the kernel lock.
    virtual void AllowSwitch(bool giveWay) = 0;
    virtual void AllowSwitchIfChanged() = 0;

    /// With the lock held exactly once: releases it, blocks, takes it again. True if the predicate
    /// holds, even if the deadline has passed.
    virtual bool Wait(const Predicate& predicate, Micros deadline, const WaitReason& reason) = 0;

    /// With the lock held: the queue of timers has a new first element.
    virtual void TimerAdded() = 0;

    /// Starts a thread of the system for the record, which is in the table already. `body`
    /// ends with Retire. Throws std::system_error if the system has none left.
    virtual void Launch(const std::shared_ptr<Thread>& thread, std::function<void()> body) = 0;

    /// The last call of a thread, after it has left the table.
    virtual void EndCurrent() = 0;
};

std::unique_ptr<Scheduler> MakeFreeRunning();
std::unique_ptr<Scheduler> MakeScheduled(const ScheduledOptions& options);

/// Ends the process with a message: the program uses the layer in a wrong way.
[[noreturn]] void AbortWith(const std::string& message);

/// A small generator with the same numbers on every machine.
class SplitMix64 {
  public:
    explicit SplitMix64(std::uint64_t seed) : m_state(seed) {}
    std::uint64_t Next() {
        m_state += 0x9E3779B97F4A7C15U;
        std::uint64_t mixed = m_state;
        mixed = (mixed ^ (mixed >> 30U)) * 0xBF58476D1CE4E5B9U;
        mixed = (mixed ^ (mixed >> 27U)) * 0x94D049BB133111EBU;
        return mixed ^ (mixed >> 31U);
    }
    /// A number below `bound`, which is small.
    std::uint64_t Below(std::uint64_t bound) { return ((Next() >> 32U) * bound) >> 32U; }

  private:
    std::uint64_t m_state;
};

}  // namespace emulation
