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
    void Add(Micros time, std::function<void()> action);
    Micros Next() const { return m_timers.empty() ? kNever : m_timers.front().time; }
    /// Removes the first action and returns it.
    std::function<void()> Take();

  private:
    struct Timer {
        Micros time;
        std::uint64_t order;
        std::function<void()> action;
    };
    static bool Later(const Timer& left, const Timer& right);

    std::vector<Timer> m_timers;  // a heap, the earliest first
    std::uint64_t m_added = 0;
};

/// Everything but `scheduler` and the atomics is read and changed under the kernel lock.
struct Kernel {
    std::unique_ptr<Scheduler> scheduler = MakeFreeRunning();
    std::vector<std::shared_ptr<Thread>> threads;
    ThreadId lastThread = 0;
    std::size_t startedThreads = 0;  // by CreateThread, not ended

    std::unordered_map<ULONG_PTR, std::shared_ptr<Object>> handles;
    ULONG_PTR nextHandle;

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

    Kernel();
};

/// Never destroyed: threads may still wait in it when the process ends.
Kernel& TheKernel();

/// A clock has been chosen, or a thread has used the layer in a way that needs one.
bool IsUsed(const Kernel& kernel);

/// From now on a forked child of a process that has used the layer is refused every call.
void WatchForks();

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

  private:
    bool m_refused = false;
};

/// Sets the last error and returns FALSE, for the caller to return.
inline BOOL FailWith(DWORD error) {
    SetLastError(error);
    return FALSE;
}

ULONG_PTR NumberOf(const void* handle);
HANDLE AddHandle(std::shared_ptr<Object> object);
std::shared_ptr<Object> FindObject(const void* handle);
void RemoveHandle(const void* handle);

/// The object of this handle and kind, or null and ERROR_INVALID_HANDLE.
template <class Kind>
std::shared_ptr<Kind> Find(const void* handle) {
    std::shared_ptr<Object> object = FindObject(handle);
    if (object == nullptr || object->kind != Kind::kKind) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return std::static_pointer_cast<Kind>(std::move(object));
}

/// Waits as WaitForSingleObject does. The caller holds the kernel lock once, by an Operation.
DWORD WaitOn(const std::shared_ptr<Object>& object, HANDLE handle, DWORD milliseconds);

Micros DeadlineAfter(Micros timeout);
Micros FromMilliseconds(DWORD milliseconds);

/// The thread that holds the mutex through the layer, on the scheduled clock, or null.
const Thread* OwnerOf(const std::mutex* mutex);
/// As std::mutex::try_lock, but may also be called by the thread that holds the mutex.
bool TryLock(std::mutex& mutex);
/// Whether any thread holds the mutex, through the layer or natively.
bool IsLocked(std::mutex& mutex);

/// Adds a record to the table; the name is made from the number.
std::shared_ptr<Thread> AddThread();
void RemoveThread(const Thread& thread);

void CancelRequest(const std::shared_ptr<PendingRequest>& request);
void CancelRequestsOfThread(ThreadId thread);
void CloseFile(FileObject& file);

/// There is a tracer.
inline bool Tracing() {
    return static_cast<bool>(TheKernel().tracer);
}
/// Passes the event to the tracer, with time and thread filled in.
void Trace(TraceEvent event);

std::wstring FoldCase(const std::wstring& text);
std::wstring FromUtf8(std::string_view bytes);
/// The path in the form that the operating system takes. The inverse of WidePath.
std::string NativePath(std::wstring_view path);
std::string ToUtf8(const wchar_t* text, std::size_t length);

}  // namespace emulation
