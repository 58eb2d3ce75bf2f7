// The control side of the hosted layer: choosing the clock, putting devices behind paths, watching
// what happens. Used by simulated devices, by tests and by the lab; never by the library.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "platform/hosted/Driver.h"
#include "platform/hosted/Win32.h"

namespace hosted {

/// Time since the process began, or since the scheduled clock was chosen.
using Micros = std::int64_t;
constexpr Micros kMillisecond = 1000;
constexpr Micros kSecond = 1000 * kMillisecond;
constexpr Micros kForever = -1;

// ---------------------------------------------------------------------------------------------
// The clock and its threads

struct ScheduledOptions {
    std::uint64_t seed = 1;

    /// The most steps (calls into the layer) while the clock stands still. A run that takes more
    /// spins without progress and is ended.
    std::uint64_t maxStepsPerInstant = 100'000;

    /// The most steps of the whole run, for runs that must come to an end. The default is no bound.
    std::uint64_t maxSteps = std::numeric_limits<std::uint64_t>::max();

    /// The most real time without a call into the layer, after which the run is ended: the thread
    /// that runs is then blocked outside the layer, perhaps in a mutex whose holder cannot run
    /// before it. The time that the whole process is stopped does not count. Zero for no limit: a
    /// program whose output may wait for its reader.
    Micros maxSilence = 20 * kSecond;

    /// How late a thread may be let run although it could: now and then the clock goes on to the
    /// next deadline, when that is no further away than this, while others could still run.
    /// Zero keeps every deadline exact.
    Micros maxLateness = 0;

    /// Zero draws evenly among the threads that can run. Otherwise threads get random priorities
    /// which change at this many random steps, which brings up rare orders.
    unsigned priorityChangePoints = 0;
    std::uint64_t expectedSteps = 10'000;  ///< the steps among which the change points are drawn
};

// Forks. A child of fork() has only the thread that called fork(): the other threads of the layer
// and what they would unlock are gone. So a child of a process that has used the layer dies with
// a message at its first call. Tests fork first, in a process that has done no more than put
// devices behind paths, and let each child choose its clock. Output that the parent has buffered
// and not flushed is written by both.

/// Switches the process to the scheduled clock, at time 0. The calling thread becomes the first
/// thread, "host". To be called before any other operation of the layer; there is no way back.
void UseScheduledClock(const ScheduledOptions& options);

bool IsScheduled();
Micros Now();
ThreadId CurrentThread();
std::uint64_t StepsTaken();  ///< scheduled clock only

/// Names the calling thread in reports. "host" and "thread N" until then.
void NameThread(const std::string& name);
std::string ThreadName(ThreadId thread);

/// Blocks until `predicate` holds or the time is over; true when it held. The predicate runs under
/// the device lock, on any thread, as often as the layer likes, and must not change anything. It is
/// looked at again whenever something happens in the layer (an event, a completion, a timer, a
/// lock, the end of a thread).
bool WaitFor(const std::function<bool()>& predicate, Micros timeout, const char* what);

/// Lets another thread run, under the scheduled clock.
void Yield();

/// The random stream of the run (scheduled: from the seed, so that a seed repeats the run).
std::uint64_t Random();

// ---------------------------------------------------------------------------------------------
// The device side

/// Held while a driver runs; anyone else who looks into a simulated device takes it. Recursive.
class DeviceLock {
  public:
    DeviceLock();
    ~DeviceLock();
    DeviceLock(const DeviceLock&) = delete;
    DeviceLock& operator=(const DeviceLock&) = delete;
};

/// Runs `action` under the device lock, as thread 0 ("device"), once `delay` has passed. On the
/// scheduled clock timers that are due run, in order, before any thread runs on.
void After(Micros delay, std::function<void()> action);

/// Puts a device behind `path`, in place of what stood there. Open handles keep their device.
void AddDevice(const std::wstring& path, std::shared_ptr<Driver> driver);
void RemoveDevice(const std::wstring& path);

/// A human interface device as the enumeration shows it.
struct HidInterface {
    std::wstring path;
    std::uint16_t usagePage = 0;
    std::uint16_t usage = 0;
    std::uint16_t vendorId = 0;
    std::uint16_t productId = 0;
    bool detailFails = false;  ///< the second SetupDiGetDeviceInterfaceDetailW fails
    bool preparsedDataFails = false;
    bool capsFail = false;
    bool attributesFail = false;
};

/// Adds an interface behind those already there. A null driver gives a path that cannot be opened.
void AddHidInterface(const HidInterface& interface, std::shared_ptr<Driver> driver);
void RemoveHidInterfaces();

/// The wide form in which the Win32 operations give and take the path of a file, with every byte
/// kept: see GetCurrentDirectoryW in Win32.h.
std::wstring WidePath(const std::string& path);

/// The directory that GetCurrentDirectoryW gives; empty for the process's own.
void SetCurrentDirectoryForTests(const std::wstring& directory);

// ---------------------------------------------------------------------------------------------
// Watching, counting, failing

enum class Call {
    kCreateEvent,
    kCreateThread,
    kSetEvent,
    kResetEvent,
    kWait,
    kSleep,
    kCloseHandle,
    kCreateFile,
    kReadFile,
    kWriteFile,
    kDeviceIoControl,
    kGetOverlappedResult,
    kCancelIoEx,
    kEnumerate,  // the SetupDi operations
    kHid,        // the HidD and HidP operations
    kConfiguration,
};
const char* Name(Call call);

/// Called under the device lock at the start of every Win32 operation. A result other than zero
/// makes the operation fail at once with that code and do nothing else, but that a transfer which
/// fails at once leaves STATUS_PENDING in its OVERLAPPED as always; what cannot fail (Sleep)
/// ignores it. The hook must not call back into the layer, apart from Now and CurrentThread.
using CallHook = std::function<DWORD(Call call, ThreadId thread)>;
void SetCallHook(CallHook hook);

struct TraceEvent {
    enum class Kind {
        kOpen,         // text = path, error when refused
        kClose,        // text = path
        kStart,        // request
        kDone,         // request, error, bytes moved (read, control) or taken (write)
        kCancel,       // request
        kSleep,        // milliseconds
        kThreadStart,  // thread = the new one; routine, argument as given to CreateThread
        kThreadEnd,
        kLock,  // text = the rank's name; the lock has been taken
    };
    Kind kind = Kind::kOpen;
    Micros time = 0;
    ThreadId thread = 0;
    std::string text;
    RequestPtr request;
    DWORD error = 0;
    std::vector<std::uint8_t> bytes;
    std::size_t count = 0;
    DWORD milliseconds = 0;
    LPTHREAD_START_ROUTINE routine = nullptr;
    LPVOID argument = nullptr;
};

/// Called under the device lock as things happen. Must not call back into the layer, apart from
/// Now and CurrentThread.
using Tracer = std::function<void(const TraceEvent& event)>;
void SetTracer(Tracer tracer);

struct LiveCounts {
    std::size_t handles = 0;   ///< events, threads, devices, enumerations, preparsed data
    std::size_t threads = 0;   ///< started by CreateThread and not ended
    std::size_t requests = 0;  ///< started and not ended
};
LiveCounts Live();

/// One line a thread: its name, what it waits for and since when, what it holds.
std::string DescribeThreads();

/// Called, on some thread, when the scheduled run can make no progress: all threads wait and no
/// deadline or timer is left, or a bound of ScheduledOptions is passed. Without a handler, or when
/// it returns, the report goes to standard error and the process ends at once with kStallExit.
constexpr int kStallExit = 86;
void SetStallHandler(std::function<void(const std::string& report)> handler);

}  // namespace hosted
