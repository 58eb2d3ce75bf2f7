// The free-running clock: real threads and real time. A thread that changes something wakes exactly
// the threads whose predicate holds then.
#include <sys/prctl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>
#include <utility>

#include "platform/emulation/KernelState.h"

namespace emulation {

namespace {

using Clock = std::chrono::steady_clock;

thread_local Thread* t_current = nullptr;
thread_local unsigned t_depth = 0;  // how often this thread has taken the kernel lock

/// Removes a thread that the layer did not start from the table when the thread ends.
struct ForeignThread {
    Thread* thread = nullptr;
    pid_t process = getpid();  // a forked child ends without the layer
    ForeignThread() = default;
    ForeignThread(const ForeignThread&) = delete;
    ForeignThread& operator=(const ForeignThread&) = delete;
    ~ForeignThread() {
        if (thread != nullptr && process == getpid()) {
            const KernelLock lock;
            // The host's own thread ends with the process, and its buffers may not exist any more.
            if (thread->id != kHostThread) {
                CancelRequests(
                    [this](const PendingRequest& one) { return one.thread() == thread->id; });
            }
            t_current = nullptr;
            RemoveThread(*thread);
        }
    }
};
thread_local ForeignThread t_foreign;
thread_local bool t_foreignUsed = false;  // once: t_foreign may have been destroyed since

/// The system may let a thread sleep longer than it asked for, by 50 microseconds if nothing else
/// is set, and a write of an image pauses thirty times. The threads that this one starts inherit
/// it.
void WakeOnTime() {
    constexpr unsigned long kNanoseconds = 1;
    prctl(PR_SET_TIMERSLACK, kNanoseconds);
}

class FreeRunning final : public Scheduler {
  public:
    FreeRunning() { m_device.name = "device"; }
    bool IsScheduled() const override { return false; }
    Micros Now() const override {
        return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - m_start)
            .count();
    }
    std::uint64_t Random() override { return m_random.Next(); }

    Thread& Current() override {
        if (t_current == nullptr) {
            const KernelLock lock;
            t_current = AddThread().get();
            WakeOnTime();
            if (!t_foreignUsed) {
                t_foreignUsed = true;
                t_foreign.thread = t_current;
            }
        }
        return *t_current;
    }

    void Enter() override {
        if (t_depth == 0) {
            m_mutex.lock();
        }
        ++t_depth;
    }

    void Leave() override {
        if (t_depth == 1) {
            WakeReady();  // with the lock still held: a predicate may call the layer
        }
        if (--t_depth == 0) {
            m_mutex.unlock();
        }
    }

    void Changed() override { m_changed = true; }

    void AllowSwitch(bool giveWay) override {
        if (giveWay) {
            std::this_thread::yield();
        }
    }
    void AllowSwitchIfChanged() override {}

    bool Wait(const Predicate& predicate, Micros deadline, const WaitReason& reason) override {
        Thread& self = Current();
        if (t_depth != 1) {
            AbortWith(self.name + " waits inside the device lock");
        }
        if (predicate()) {
            return true;
        }
        self.reason = reason;
        self.since = Now();
        self.deadline = deadline;
        self.predicate = &predicate;
        // A predicate of WaitFor may look at which threads wait.
        m_changed = m_changed || TheKernel().lockWatchers.load(std::memory_order_relaxed) > 0;
        WakeReady();
        std::unique_lock<std::mutex> lock(m_mutex, std::adopt_lock);
        bool held = false;
        while (!(held = predicate()) && Now() < deadline) {
            if (RunTimerDueSoon(lock)) {
                continue;
            }
            if (deadline == kNever) {
                self.wake.wait(lock);
            } else {
                self.wake.wait_until(lock, At(deadline));
            }
        }
        lock.release();  // stays locked; the caller unlocks it
        self.predicate = nullptr;
        return held;
    }

    void TimerAdded() override {
        if (!m_timerThreadRuns) {
            m_timerThreadRuns = true;
            std::thread([this] { RunTimers(); }).detach();
        }
        m_timerWake.notify_one();
    }

    void Launch(const std::shared_ptr<Thread>& thread, std::function<void()> body) override {
        std::thread([thread, body = std::move(body)] {
            t_current = thread.get();
            body();
        }).detach();
    }

    void EndCurrent() override { t_current = nullptr; }

  private:
    Clock::time_point At(Micros time) const { return m_start + std::chrono::microseconds(time); }

    void WakeReady() {
        if (!m_changed) {
            return;
        }
        m_changed = false;
        const auto& threads = TheKernel().threads;
        for (std::size_t i = 0; i < threads.size(); ++i) {  // a predicate may add the caller to it
            Thread* const thread = threads[i].get();
            if (thread->predicate != nullptr && (*thread->predicate)()) {
                thread->wake.notify_one();
            }
        }
    }

    void RunTimer() {
        Thread* const self = std::exchange(t_current, &m_device);
        TheKernel().timers.Take()();
        t_current = self;
        m_changed = true;
        WakeReady();
    }

    /// A thread that is about to block runs a timer itself if it is due now or soon. To wake the
    /// timer thread and then this one for each transfer would take longer than the transfer.
    bool RunTimerDueSoon(std::unique_lock<std::mutex>& lock) {
        const Micros next = TheKernel().timers.Next();
        const Micros now = Now();
        if (next == kNever || next > now + kDueSoon) {
            return false;
        }
        if (next <= now) {
            RunTimer();
        } else {
            lock.unlock();
            std::this_thread::yield();
            lock.lock();
        }
        return true;
    }

    void RunTimers() {
        std::unique_lock<std::mutex> lock(m_mutex);
        t_depth = 1;
        TimerQueue& timers = TheKernel().timers;
        for (;;) {
            const Micros next = timers.Next();
            if (next == kNever) {
                m_timerWake.wait(lock);
            } else if (Now() < next) {
                m_timerWake.wait_until(lock, At(next));
            } else {
                RunTimer();
            }
        }
    }

    static constexpr Micros kDueSoon = 50;  // less than it takes to block and wake a thread

    const Clock::time_point m_start = Clock::now();
    std::mutex m_mutex;  // the kernel lock
    bool m_changed = false;
    bool m_timerThreadRuns = false;
    std::condition_variable m_timerWake;
    Thread m_device;  // runs timers; it never waits, so it is not in the table of threads
    SplitMix64 m_random{std::random_device()()};
};

}  // namespace

std::unique_ptr<Scheduler> MakeFreeRunning() {
    return std::make_unique<FreeRunning>();
}

}  // namespace emulation
