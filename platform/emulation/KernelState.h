// The state of the emulation, of which there is one, and the access to it. Private to
// platform/emulation.
#pragma once

#include <atomic>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>

#include "platform/emulation/Objects.h"
#include "platform/emulation/Scheduler.h"

namespace emulation {

/// The actions of the device side that are still to come, by time and then by order of insertion.
class TimerQueue {
  public:
    void Add(Micros time, std::function<void()> action) {
        m_timers.emplace(time, std::move(action));
    }
    Micros Next() const { return m_timers.empty() ? kNever : m_timers.begin()->first; }
    /// Removes the first action and returns it.
    std::function<void()> Take() { return std::move(m_timers.extract(m_timers.begin()).mapped()); }

  private:
    std::multimap<Micros, std::function<void()>> m_timers;  // keeps the order of equal times
};

/// Everything but `scheduler` and the atomics is read and changed under the kernel lock.
struct Kernel {
    std::unique_ptr<Scheduler> scheduler = MakeFreeRunning();
    std::vector<std::shared_ptr<Thread>> threads;
    ThreadId lastThread = 0;
    std::size_t startedThreads = 0;  // by CreateThread, not ended

    std::unordered_map<ULONG_PTR, std::shared_ptr<Object>> handles;
    ULONG_PTR nextHandle = 0x7A600000;  // it looks like neither a pointer nor a small number

    TimerQueue timers;

    std::unordered_map<std::wstring, std::shared_ptr<DeviceNode>> devices;  // by folded path
    std::vector<std::shared_ptr<PendingRequest>> pending;
    std::vector<std::shared_ptr<const HidInterface>> hidInterfaces;
    std::wstring currentDirectory;  // empty: the process's own

    std::unordered_map<const std::mutex*, Thread*> mutexOwners;  // scheduled clock only

    CallHook hook;
    Tracer tracer;
    std::function<void(const std::string&)> stallHandler;
    // The number of tracers and of waits of WaitFor: while there is one, every lock is reported.
    // Each lock on the free-running clock reads it without the kernel lock.
    std::atomic<int> lockWatchers{0};
};

/// Never destroyed: threads may still wait in it when the process ends.
Kernel& TheKernel();

inline Scheduler& TheScheduler() {
    return *TheKernel().scheduler;
}

class KernelLock {
  public:
    KernelLock() { TheScheduler().Enter(); }
    ~KernelLock() { TheScheduler().Leave(); }
    KernelLock(const KernelLock&) = delete;
    KernelLock& operator=(const KernelLock&) = delete;
};

ULONG_PTR NumberOf(const void* handle);
HANDLE AddHandle(std::shared_ptr<Object> object);
std::shared_ptr<Object> FindObject(const void* handle);
void RemoveHandle(const void* handle);

/// The scope of one Win32 operation: another thread may run at its start and at its end, the kernel
/// lock is held in between, and the call hook may refuse it.
class Operation {
  public:
    explicit Operation(Call call);
    ~Operation();
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

    /// The hook refused the operation; the last error is set.
    bool Refused() const { return m_refused; }
    /// The object of this handle and kind. Null, and the last error is set, for any other handle
    /// and in a refused operation.
    template <class Kind>
    std::shared_ptr<Kind> Find(const void* handle) const {
        auto object = m_refused ? nullptr : std::dynamic_pointer_cast<Kind>(FindObject(handle));
        if (object == nullptr && !m_refused) {
            SetLastError(ERROR_INVALID_HANDLE);
        }
        return object;
    }

  private:
    bool m_refused = false;
};

/// Sets the last error and returns FALSE, for the caller to return.
inline BOOL FailWith(DWORD error) {
    SetLastError(error);
    return FALSE;
}

/// Waits as WaitForSingleObject does. The caller holds the kernel lock once, by an Operation.
DWORD WaitOn(const std::shared_ptr<Object>& object, HANDLE handle, DWORD milliseconds);

Micros DeadlineAfter(Micros timeout);
Micros DeadlineAfterMilliseconds(DWORD milliseconds);

/// The thread that holds the mutex through the layer, on the scheduled clock, or null.
const Thread* OwnerOf(const std::mutex* mutex);
/// As std::mutex::try_lock, but may also be called by the thread that holds the mutex.
bool TryLock(std::mutex& mutex);
/// Whether any thread holds the mutex, through the layer or natively.
bool IsLocked(std::mutex& mutex);

/// Adds a record to the table; the name is made from the number.
std::shared_ptr<Thread> AddThread();
void RemoveThread(const Thread& thread);

/// Cancels the pending requests for which `which` holds. False: there are none.
bool CancelRequests(const std::function<bool(const PendingRequest& request)>& which);
void CloseFile(FileObject& file);

/// There is a tracer.
inline bool Tracing() {
    return static_cast<bool>(TheKernel().tracer);
}
/// Passes an event to the tracer, if there is one. `fill` adds what the kind of event has.
template <class Fill>
void Trace(TraceEvent::Kind kind, Fill fill) {
    if (Tracing()) {
        TraceEvent event;
        event.kind = kind;
        event.time = Now();
        event.thread = CurrentThread();
        fill(event);
        TheKernel().tracer(event);
    }
}

std::wstring FoldCase(const std::wstring& text);
std::wstring FromUtf8(std::string_view bytes);
/// The path in the form that the operating system takes. The inverse of WidePath.
std::string NativePath(std::wstring_view path);
std::string ToUtf8(const wchar_t* text, std::size_t length);

}  // namespace emulation
