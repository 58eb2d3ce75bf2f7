// What the simulated devices use of platform/emulation/Kernel.h, on Windows: the device lock,
// timers on the real clock, and waits. One thread runs all timers.
#include "testdrivers/RelayDevices.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

namespace emulation {

namespace {

struct Clock {
    std::recursive_mutex mutex;
    std::condition_variable_any changed;
    std::multimap<Micros, std::function<void()>> timers;  // of equal times the oldest first
    bool runs = false;                                    // the thread of the timers
    Micros lateness = 0;                                  // of the latest timer so far
};

// Never destroyed: threads may wait in it until the process ends.
Clock& TheClock() {
    static Clock& clock = *new Clock;
    return clock;
}

std::chrono::steady_clock::time_point PointOf(Micros time) {
    return std::chrono::steady_clock::time_point(std::chrono::microseconds(time));
}

void RunTimers() {
    Clock& clock = TheClock();
    std::unique_lock<std::recursive_mutex> lock(clock.mutex);
    while (true) {
        const auto first = clock.timers.begin();
        if (first == clock.timers.end()) {
            clock.changed.wait(lock);
            continue;
        }
        if (first->first > Now()) {
            clock.changed.wait_until(lock, PointOf(first->first));
            continue;
        }
        clock.lateness = std::max(clock.lateness, Now() - first->first);
        const std::function<void()> action = std::move(first->second);
        clock.timers.erase(first);
        action();
        clock.changed.notify_all();
    }
}

}  // namespace

/// Since the system's start, so that every process has the same time.
Micros Now() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

ThreadId CurrentThread() {
    return GetCurrentThreadId();
}

DeviceLock::DeviceLock() {
    TheClock().mutex.lock();
}

DeviceLock::~DeviceLock() {
    TheClock().mutex.unlock();
}

void After(Micros delay, std::function<void()> action) {
    Clock& clock = TheClock();
    const DeviceLock lock;
    clock.timers.emplace(Now() + delay, std::move(action));
    clock.changed.notify_all();
    if (!std::exchange(clock.runs, true)) {
        std::thread(RunTimers).detach();
    }
}

Micros LongestLateness() {
    const DeviceLock lock;
    return TheClock().lateness;
}

bool WaitFor(const std::function<bool()>& predicate, Micros timeout, const char* /*what*/) {
    constexpr Micros kVeryLong = 365 * 24 * 3600 * kSecond;
    Clock& clock = TheClock();
    std::unique_lock<std::recursive_mutex> lock(clock.mutex);
    return clock.changed.wait_until(
        lock, PointOf(Now() + (timeout == kForever ? kVeryLong : timeout)), predicate);
}

}  // namespace emulation
