// The state of the emulation: the choice of the clock, timers, the table of threads, the scope
// of a Win32 operation, and the reports of which thread waits for what.
#include "platform/emulation/KernelState.h"

#include <pthread.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>

namespace emulation {

namespace {

// This process was forked from one that had used the layer. The threads of the parent do not exist
// here, and the locks that they held are never unlocked, so every call is refused.
bool g_isForked = false;

std::string Seconds(Micros time) {
    char text[40];
    std::snprintf(text, sizeof text, "%" PRId64 ".%06" PRId64 " s", time / kSecond, time % kSecond);
    return text;
}

std::string DescribeReason(const WaitReason& reason) {
    std::string text = reason.what;
    if (reason.handle != nullptr) {
        char number[24];
        std::snprintf(number, sizeof number, " 0x%" PRIxPTR, NumberOf(reason.handle));
        text += number;
    }
    if (reason.lock != nullptr) {
        text += " \"" + std::string(reason.lock->name) + "\"";
        const Thread* const owner = OwnerOf(reason.mutex);
        if (owner != nullptr) {
            text += " held by " + owner->name;
        } else if (reason.mutex != nullptr && IsLocked(*reason.mutex)) {
            text += " held outside the layer";
        }
    }
    return text;
}

std::string DescribeThread(Thread& thread) {
    std::string text = thread.name + ": ";
    const std::lock_guard<std::mutex> guard(thread.heldGuard);
    if (thread.predicate != nullptr) {
        text += "waits for " + DescribeReason(thread.reason) + " since " + Seconds(thread.since);
        if (thread.deadline != kNever) {
            text += ", until " + Seconds(thread.deadline);
        }
    } else if (thread.blockedOn != nullptr) {
        text += "waits for " + std::string("lock \"") + thread.blockedOn->name + "\"";
    } else {
        text += "can run";
    }
    for (const HeldLock& lock : thread.held) {
        text += std::string(", holds \"") + lock.rank->name + "\"";
    }
    return text + "\n";
}

}  // namespace

void AbortWith(const std::string& message) {
    std::fprintf(stderr, "tagport-emulation: %s\n", message.c_str());
    std::fflush(stderr);
    std::abort();
}

Kernel& TheKernel() {
    static Kernel& kernel = []() -> Kernel& {
        pthread_atfork(nullptr, nullptr, [] { g_isForked = g_isForked || IsUsed(); });
        return *new Kernel;  // owned by the process, which ends without freeing it
    }();
    if (g_isForked) {
        AbortWith(
            "this process was forked from one that had used the layer, and cannot use it itself");
    }
    return kernel;
}

Operation::Operation(Call call) {
    Kernel& kernel = TheKernel();
    kernel.scheduler->AllowSwitch(false);
    kernel.scheduler->Enter();
    if (kernel.hook) {
        const DWORD error = kernel.hook(call, CurrentThread());
        if (error != ERROR_SUCCESS) {
            SetLastError(error);
            m_refused = true;
        }
    }
}

Operation::~Operation() {
    Scheduler& scheduler = TheScheduler();
    scheduler.Leave();
    scheduler.AllowSwitch(false);
}

void UseScheduledClock(const ScheduledOptions& options) {
    if (IsUsed()) {
        AbortWith("UseScheduledClock must come before any other operation of the layer");
    }
    TheKernel().scheduler = MakeScheduled(options);
}

bool IsUsed() {
    const Kernel& kernel = TheKernel();
    return kernel.scheduler->IsScheduled() || !kernel.threads.empty() ||
           kernel.timers.Next() != kNever;
}

bool IsScheduled() {
    return TheScheduler().IsScheduled();
}
Micros Now() {
    return TheScheduler().Now();
}

ThreadId CurrentThread() {
    return TheScheduler().Current().id;
}

void NameThread(const std::string& name) {
    Thread& self = TheScheduler().Current();
    const KernelLock lock;
    self.name = name;
}

bool WaitFor(const std::function<bool()>& predicate, Micros timeout, const char* what) {
    Kernel& kernel = TheKernel();
    kernel.scheduler->AllowSwitch(false);
    kernel.lockWatchers.fetch_add(1, std::memory_order_relaxed);
    bool held = false;
    {
        const KernelLock lock;
        held = kernel.scheduler->Wait(Predicate(predicate), DeadlineAfter(timeout), {what});
    }
    kernel.lockWatchers.fetch_sub(1, std::memory_order_relaxed);
    return held;
}

void Yield() {
    TheScheduler().AllowSwitch(true);
}

std::uint64_t Random() {
    const KernelLock lock;
    return TheScheduler().Random();
}

DeviceLock::DeviceLock() {
    TheScheduler().Enter();
}

DeviceLock::~DeviceLock() {
    Scheduler& scheduler = TheScheduler();
    scheduler.Leave();
    scheduler.AllowSwitchIfChanged();
}

void After(Micros delay, std::function<void()> action) {
    const KernelLock lock;
    Kernel& kernel = TheKernel();
    const Micros time = DeadlineAfter(std::max<Micros>(delay, 0));
    const bool first = time < kernel.timers.Next();
    kernel.timers.Add(time, std::move(action));
    if (first) {
        kernel.scheduler->TimerAdded();
    }
}

Micros DeadlineAfterMilliseconds(DWORD milliseconds) {
    return DeadlineAfter(milliseconds == INFINITE ? kForever : Micros{milliseconds} * kMillisecond);
}

Micros DeadlineAfter(Micros timeout) {
    const Micros now = Now();
    return timeout < 0 || timeout >= kNever - now ? kNever : now + timeout;
}

const Thread* OwnerOf(const std::mutex* mutex) {
    const auto owner = TheKernel().mutexOwners.find(mutex);
    return owner == TheKernel().mutexOwners.end() ? nullptr : owner->second;
}

bool TryLock(std::mutex& mutex) {
    return pthread_mutex_trylock(mutex.native_handle()) == 0;
}

bool IsLocked(std::mutex& mutex) {
    if (!TryLock(mutex)) {
        return true;
    }
    mutex.unlock();
    return false;
}

std::shared_ptr<Thread> AddThread() {
    Kernel& kernel = TheKernel();
    auto thread = std::make_shared<Thread>();
    thread->id = ++kernel.lastThread;
    thread->name = thread->id == kHostThread ? "host" : "thread " + std::to_string(thread->id);
    kernel.threads.push_back(thread);
    return thread;
}

void RemoveThread(const Thread& thread) {
    auto& threads = TheKernel().threads;
    threads.erase(std::remove_if(threads.begin(), threads.end(),
                                 [&](const auto& known) { return known.get() == &thread; }),
                  threads.end());
}

std::string DescribeThreads() {
    const KernelLock lock;
    std::string text;
    for (const auto& thread : TheKernel().threads) {
        text += DescribeThread(*thread);
    }
    return text;
}

LiveCounts Live() {
    const KernelLock lock;
    const Kernel& kernel = TheKernel();
    return {kernel.handles.size(), kernel.startedThreads, kernel.pending.size()};
}

void SetStallHandler(std::function<void(const std::string& report)> handler) {
    const KernelLock lock;
    TheKernel().stallHandler = std::move(handler);
}

}  // namespace emulation
