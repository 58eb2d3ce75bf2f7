// The control side of the emulation: the choice of the clock, the devices and their paths, and
// the observation of calls. For simulated devices, tests and the lab; the library never uses it.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "platform/emulation/Driver.h"
#include "platform/emulation/DriverTypes.h"

namespace emulation {

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

    /// How late a thread may run. Now and then the clock moves on to the next deadline although a
    /// thread could run, if that thread becomes no later than this. Zero keeps every deadline
    /// exact.
    Micros maxLateness = 0;

    /// Zero draws evenly among the threads that can run. Otherwise threads get random priorities,
    /// which change at this many random steps; that leads to rarer orders.
    unsigned priorityChangePoints = 0;
    std::uint64_t expectedSteps = 10'000;  ///< the steps among which the change points are drawn
};

// Forks. A child of fork() has only the thread that called fork(): the other threads of the layer
// and what they would unlock are gone. So a child of a process that has used the layer dies with
// a message at its first call. Tests fork first, in a process that has done no more than put
// devices at paths, and let each child choose its clock. Output that the parent has buffered
// and not flushed is written by both.

/// Switches the process to the scheduled clock, at time 0. The calling thread becomes the first
/// thread, "host". It must be called before any other operation of the layer. There is no way back
/// to the free-running clock.
void UseScheduledClock(const ScheduledOptions& options);

/// True when it is too late for UseScheduledClock: a clock has been chosen, or a thread has used
/// the layer in a way that needs one.
bool IsUsed();

bool IsScheduled();
Micros Now();
ThreadId CurrentThread();

/// Names the calling thread in reports. "host" and "thread N" until then.
void NameThread(const std::string& name);

/// Blocks until `predicate` holds or the time is over; true if it held. The predicate runs under
/// the device lock, on any thread, any number of times, and must not change anything. The layer
/// checks it whenever something happens in the layer (an event, a completion, a timer, a lock, the
/// end of a thread).
bool WaitFor(const std::function<bool()>& predicate, Micros timeout, const char* what);

/// Lets another thread run, under the scheduled clock.
void Yield();

/// A number of the run's random stream. On the scheduled clock the seed decides the stream.
std::uint64_t Random();

// ---------------------------------------------------------------------------------------------
// The device side

/// The lock that is held while a driver runs. Other code that looks into a simulated device takes
/// it. Recursive.
class DeviceLock {
  public:
    DeviceLock();
    ~DeviceLock();
    DeviceLock(const DeviceLock&) = delete;
    DeviceLock& operator=(const DeviceLock&) = delete;
};

/// Runs `action` under the device lock, as thread 0 ("device"), after `delay`. On the scheduled
/// clock the timers that are due run in order before any thread continues.
void After(Micros delay, std::function<void()> action);

/// Puts a device at `path`, instead of the former one if there is one. Open handles keep their
/// device.
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

/// Adds an interface after the others. With a null driver its path cannot be opened.
void AddHidInterface(const HidInterface& interface, std::shared_ptr<Driver> driver);
void RemoveHidInterfaces();

/// The wide form in which the Win32 operations return and take the path of a file, with every byte
/// kept: see GetCurrentDirectoryW in Win32.h.
std::wstring WidePath(const std::string& path);

/// Sets the directory that GetCurrentDirectoryW returns. Empty: that of the process.
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

/// Called under the device lock at the start of every Win32 operation. With a result other than
/// zero the operation fails at once with that code and does nothing else; only a transfer still
/// puts STATUS_PENDING into its OVERLAPPED, as every transfer that fails at once. Sleep, which
/// cannot fail, ignores the result. The hook must not call the layer, apart from Now and
/// CurrentThread.
using CallHook = std::function<DWORD(Call call, ThreadId thread)>;
void SetCallHook(CallHook hook);

struct TraceEvent {
    enum class Kind {
        kOpen,         // text = path, error if refused
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

/// Called under the device lock for each event. Must not call the layer, apart from Now and
/// CurrentThread.
using Tracer = std::function<void(const TraceEvent& event)>;
void SetTracer(Tracer tracer);

struct LiveCounts {
    std::size_t handles = 0;   ///< events, threads, devices, enumerations, preparsed data
    std::size_t threads = 0;   ///< started by CreateThread and not ended
    std::size_t requests = 0;  ///< started and not ended
};
LiveCounts Live();

/// One line for each thread: its name, what it waits for and since when, the locks that it holds.
std::string DescribeThreads();

/// Called, on some thread, when the scheduled run can make no progress: all threads wait and no
/// deadline or timer is left, or a bound of ScheduledOptions is passed. Without a handler, or when
/// it returns, the report goes to standard error and the process ends at once with kStallExit.
constexpr int kStallExit = 86;
void SetStallHandler(std::function<void(const std::string& report)> handler);

}  // namespace emulation
