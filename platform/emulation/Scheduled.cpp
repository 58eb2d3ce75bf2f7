// The scheduled clock. One thread runs at a time, the next one is drawn by a seeded generator, and
// time passes only when no thread can run, or when a thread is made late on purpose.
//
// The thread that runs has the turn, and all other threads are blocked. Only that thread reads and
// changes the state below, so the state needs no lock.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "platform/emulation/KernelState.h"

namespace emulation {

namespace {

// One draw in so many moves the clock on although a thread could run.
constexpr std::uint64_t kLateOneIn = 50;

// Devices draw from a stream of their own. So a device that draws one number more does not change
// the order of the threads.
constexpr std::uint64_t kDeviceStream = 0xD1CEB01DFACADE5AU;

// Priorities at the start of a thread are above this, those after a change point below it.
constexpr std::uint64_t kLowPriorities = 1U << 30U;

thread_local Thread* t_current = nullptr;

class Scheduled final : public Scheduler {
  public:
    explicit Scheduled(const ScheduledOptions& options)
        : m_options(options),
          m_draws(options.seed),
          m_random(options.seed ^ kDeviceStream),
          m_lowest(kLowPriorities) {
        m_device.name = "device";
        for (unsigned i = 0; i < options.priorityChangePoints; ++i) {
            m_changePoints.push_back(1 + m_draws.Below(options.expectedSteps));
        }
        std::sort(m_changePoints.rbegin(), m_changePoints.rend());
        // The calling thread becomes the first thread.
        t_current = AddThread().get();
        t_current->priority = StartPriority();
        m_running = t_current;
        if (m_options.maxSilence > 0) {
            std::thread([this] { WatchForSilence(); }).detach();
        }
    }

    bool IsScheduled() const override { return true; }
    Micros Now() const override { return m_now; }
    std::uint64_t Random() override { return m_random.Next(); }

    Thread& Current() override {
        if (t_current == nullptr) {
            AbortWith(
                "a thread that neither CreateThread nor tagport::StartThread has started called "
                "the library or the simulator on the scheduled clock");
        }
        return *t_current;
    }

    void Enter() override {
        Current();
        ++m_depth;
    }
    void Leave() override {
        --m_depth;
        ShowActivity();
    }
    void Changed() override { m_changed = true; }

    void AllowSwitch(bool giveWay) override {
        Thread& self = Current();
        if (m_depth > 0) {
            return;
        }
        CountStep(self);
        self.runnableSince = m_now;
        if (giveWay && !m_options.priorityChangePoints) {
            SwitchTo(self, ChooseNext(&self));
            return;
        }
        if (giveWay) {
            self.priority = --m_lowest;
        }
        SwitchTo(self, ChooseNext(nullptr));
    }

    void AllowSwitchIfChanged() override {
        if (m_changed) {
            AllowSwitch(false);
        }
    }

    bool Wait(const Predicate& predicate, Micros deadline, const WaitReason& reason) override {
        Thread& self = Current();
        if (m_depth != 1) {
            AbortWith(self.name + " waits inside the device lock");
        }
        m_depth = 0;
        self.reason = reason;
        self.since = m_now;
        self.deadline = deadline;
        bool held = false;
        do {
            CountStep(self);
            self.predicate = &predicate;
            self.ready = false;
            m_changed = true;  // the new predicate has not been looked at
            SwitchTo(self, ChooseNext(nullptr));
            self.predicate = nullptr;
            held = predicate();
        } while (!held && m_now < deadline);
        m_depth = 1;
        return held;
    }

    void TimerAdded() override {}

    void Launch(const std::shared_ptr<Thread>& thread, std::function<void()> body) override {
        thread->priority = StartPriority();
        thread->runnableSince = m_now;
        std::thread([this, thread, body = std::move(body)] {
            t_current = thread.get();
            AwaitTurn(*thread);
            body();
        }).detach();
    }

    void EndCurrent() override {
        t_current = nullptr;
        PassTurn(ChooseNext(nullptr));
    }

  private:
    /// For a scope the running thread works for the device side: it holds the lock, and
    /// CurrentThread returns the device thread. It may be a thread that has just left the table.
    class DeviceSide {
      public:
        explicit DeviceSide(Scheduled& scheduled) : m_scheduled(scheduled), m_thread(t_current) {
            t_current = &scheduled.m_device;
            ++scheduled.m_depth;
        }
        ~DeviceSide() {
            --m_scheduled.m_depth;
            t_current = m_thread;
        }
        DeviceSide(const DeviceSide&) = delete;
        DeviceSide& operator=(const DeviceSide&) = delete;

      private:
        Scheduled& m_scheduled;
        Thread* m_thread;
    };

    std::uint64_t StartPriority() { return kLowPriorities + (m_draws.Next() >> 2U); }

    void CountStep(Thread& self) {
        ++m_steps;
        if (m_steps > m_options.maxSteps) {
            Stall("the run has taken all the steps that it may take");
        }
        if (m_steps - m_stepsAtInstant > m_options.maxStepsPerInstant) {
            Stall("the clock has stood still for more steps than it may");
        }
        while (!m_changePoints.empty() && m_changePoints.back() <= m_steps) {
            m_changePoints.pop_back();
            self.priority = --m_lowest;
        }
    }

    /// The thread that runs next. `avoid`, when not null, runs only if no other thread can.
    Thread& ChooseNext(const Thread* avoid) {
        bool mayBeLate = m_options.maxLateness > 0;
        for (;;) {
            RunDueTimers();
            LookAtPredicates();
            m_candidates.clear();
            Micros longest = m_now;  // since this time one of the candidates could run
            for (const auto& thread : TheKernel().threads) {
                if (thread->predicate == nullptr || thread->ready) {
                    m_candidates.push_back(thread.get());
                    longest = std::min(longest, thread->runnableSince);
                }
            }
            if (m_candidates.empty()) {
                if (!AdvanceClock(kNever)) {
                    Stall("no thread can run and nothing is due");
                }
                continue;
            }
            if (mayBeLate) {
                mayBeLate = false;
                if (m_draws.Below(kLateOneIn) == 0 &&
                    AdvanceClock(longest + m_options.maxLateness)) {
                    continue;
                }
            }
            return ChooseCandidate(avoid);
        }
    }

    Thread& ChooseCandidate(const Thread* avoid) {
        if (m_options.priorityChangePoints > 0) {
            return **std::max_element(
                m_candidates.begin(), m_candidates.end(),
                [](const Thread* a, const Thread* b) { return a->priority < b->priority; });
        }
        if (avoid != nullptr && m_candidates.size() > 1) {
            m_candidates.erase(std::remove(m_candidates.begin(), m_candidates.end(), avoid),
                               m_candidates.end());
        }
        const std::size_t count = m_candidates.size();
        return *m_candidates[count == 1 ? 0 : m_draws.Below(count)];
    }

    /// Runs the timers that are due, before any thread runs. The predicates are looked at after it.
    void RunDueTimers() {
        Kernel& kernel = TheKernel();
        while (kernel.timers.Next() <= m_now) {
            const std::function<void()> action = kernel.timers.Take();
            const DeviceSide deviceSide(*this);
            action();
            m_changed = true;
        }
    }

    void LookAtPredicates() {
        if (!m_changed && !m_nativeWaits) {
            return;
        }
        m_changed = false;
        m_nativeWaits = false;
        const DeviceSide deviceSide(*this);
        for (const auto& thread : TheKernel().threads) {
            if (thread->predicate != nullptr) {
                const bool ready = thread->deadline <= m_now || (*thread->predicate)();
                if (ready && !thread->ready) {
                    thread->runnableSince = m_now;
                }
                thread->ready = ready;
                // Nobody reports the unlocking of a mutex that is held outside the layer.
                m_nativeWaits = m_nativeWaits || (!ready && thread->reason.mutex != nullptr &&
                                                  OwnerOf(thread->reason.mutex) == nullptr);
            }
        }
    }

    /// Moves the clock to the nearest deadline or timer; false when there is none up to `limit`.
    bool AdvanceClock(Micros limit) {
        Micros nearest = TheKernel().timers.Next();
        for (const auto& thread : TheKernel().threads) {
            if (thread->predicate != nullptr && !thread->ready) {
                nearest = std::min(nearest, thread->deadline);
            }
        }
        if (nearest == kNever || nearest > limit) {
            return false;
        }
        if (m_now != nearest) {
            m_stepsAtInstant = m_steps;
        }
        m_now = nearest;
        m_changed = true;
        return true;
    }

    void SwitchTo(Thread& self, Thread& next) {
        if (&self != &next) {
            PassTurn(next);
            AwaitTurn(self);
        } else {
            ShowActivity();
        }
    }

    /// Notifies with the mutex held: after the unlock the thread may end and delete its record.
    static void PassTurn(Thread& thread) {
        const std::lock_guard<std::mutex> guard(thread.turnMutex);
        thread.hasTurn = true;
        thread.wake.notify_one();
    }

    void AwaitTurn(Thread& self) {
        std::unique_lock<std::mutex> guard(self.turnMutex);
        self.wake.wait(guard, [&] { return self.hasTurn; });
        self.hasTurn = false;
        m_running = &self;
        ShowActivity();
    }

    /// Called by the running thread after it has changed anything that a report shows.
    void ShowActivity() {
        m_activity.store(m_activity.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    }

    /// The watch on the running thread, on a thread of its own. The time is taken in slices, so
    /// that neither a stopped process nor a machine that is too busy looks like a blocked thread.
    [[noreturn]] void WatchForSilence() {
        constexpr unsigned kSlices = 20;
        t_current = &m_device;
        std::uint64_t seen = 0;
        unsigned silent = 0;
        while (silent < kSlices) {
            std::this_thread::sleep_for(std::chrono::microseconds(m_options.maxSilence) / kSlices);
            const std::uint64_t now = m_activity.load(std::memory_order_acquire);
            silent = now == seen ? silent + 1 : 0;
            seen = now;
        }
        const std::string why = m_running->name +
                                " has the turn and has called neither library nor simulator for " +
                                std::to_string(m_options.maxSilence / kMillisecond) +
                                " ms of real time; tagport::Advance makes a pause";
        Stall(why.c_str());
    }

    [[noreturn]] void Stall(const char* why) {
        const DeviceSide deviceSide(*this);  // no other thread runs any more
        std::string report = "stalled at ";
        report += std::to_string(m_now) + " us, step " + std::to_string(m_steps) + ", seed " +
                  std::to_string(m_options.seed) + ": " + why + "\n" + DescribeThreads();
        if (TheKernel().stallHandler) {
            TheKernel().stallHandler(report);
        }
        std::fprintf(stderr, "tagport-emulation: %s", report.c_str());
        std::fflush(stderr);
        std::_Exit(kStallExit);
    }

    const ScheduledOptions m_options;
    SplitMix64 m_draws;
    SplitMix64 m_random;
    std::uint64_t m_lowest;                     // the lowest priority in use so far
    std::vector<std::uint64_t> m_changePoints;  // counts of steps, the next one last
    std::vector<Thread*> m_candidates;          // kept for its memory
    Thread m_device{};                          // runs timers and predicates; not in the table
    Micros m_now = 0;
    std::uint64_t m_steps = 0;
    std::uint64_t m_stepsAtInstant = 0;  // m_steps when the clock last moved
    bool m_nativeWaits = false;  // a thread waits for a mutex that is held outside the layer
    Thread* m_running = nullptr;
    std::atomic<std::uint64_t> m_activity{0};  // grows with every call; orders WatchForSilence
    unsigned m_depth = 0;                      // of the running thread
    bool m_changed = false;                    // since the predicates were looked at
};

}  // namespace

std::unique_ptr<Scheduler> MakeScheduled(const ScheduledOptions& options) {
    return std::make_unique<Scheduled>(options);
}

}  // namespace emulation
