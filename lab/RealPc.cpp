// The real drivers of a Windows PC.
#include "lab/RealPc.h"

#include <memory>
#include <thread>
#include <utility>

#include <winternl.h>

#include "lab/Failure.h"
#include "lab/System.h"
#include "lab/Terminal.h"
#include "lab/Words.h"
#include "platform/platform.h"

#include <tlhelp32.h>

namespace lab {

namespace {

using Body = std::function<void()>;

DWORD WINAPI RunBody(LPVOID argument) {
    (*std::unique_ptr<Body>(static_cast<Body*>(argument)))();
    return 0;
}

constexpr std::int64_t kPollInterval = 5;  // milliseconds between two evaluations of a predicate
constexpr std::int64_t kThreadEndBound = 5'000;

/// The routine that a thread of this process was started with; null where the system cannot say.
const void* RoutineOf(ThreadKey thread) {
    constexpr auto kStartAddress = static_cast<THREADINFOCLASS>(9);
    void* routine = nullptr;
    const HANDLE handle = OpenThread(THREAD_QUERY_INFORMATION, FALSE, static_cast<DWORD>(thread));
    if (handle != nullptr) {
        NtQueryInformationThread(handle, kStartAddress, &routine, sizeof(routine), nullptr);
        CloseHandle(handle);
    }
    return routine;
}

HMODULE ModuleOf(const void* code) {
    HMODULE module = nullptr;
    GetModuleHandleExW(
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
        static_cast<LPCWSTR>(code), &module);
    return module;
}

/// The threads of this process that run the library.
unsigned LibraryThreads() {
    const HMODULE library = GetModuleHandleW(L"tagport.dll");
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    unsigned count = 0;
    for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
        if (entry.th32OwnerProcessID == GetCurrentProcessId()) {
            const void* routine = RoutineOf(entry.th32ThreadID);
            count += routine != nullptr && ModuleOf(routine) == library ? 1U : 0U;
        }
    }
    CloseHandle(snapshot);
    return count;
}

}  // namespace

void RealPc::WaitForLibraryThreads() {
    WaitFor([] { return LibraryThreads() <= 1; }, kThreadEndBound, "");
}

void RealPc::CreateDevices() {
    m_recorder.NameThread(Thread(), kHostThread);
    if (!SetLogSink(&RealPc::RecordLogLine, this)) {
        PrintError("the PC's own logger takes the log; none of it is shown here");
    }
}

double RealPc::Now() const {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - m_begin)
        .count();
}

double RealPc::TimeOf(std::int64_t micros) const {
    const std::chrono::steady_clock::time_point point{std::chrono::microseconds(micros)};
    return std::chrono::duration<double, std::milli>(point - m_begin).count();
}

ThreadKey RealPc::Thread() const {
    return GetCurrentThreadId();
}

bool RealPc::WaitFor(const std::function<bool()>& predicate, std::int64_t milliseconds,
                     const char* /*what*/) {
    const double end = Now() + static_cast<double>(milliseconds);
    while (!predicate()) {
        if (Now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(kPollInterval));
    }
    return true;
}

// Not std::thread: under Wine 8 with MinGW's threads some of those that are let go at once never
// begin on a busy machine, and the run would wait for its host without end.
void RealPc::StartThread(std::function<void()> body) {
    auto owned = std::make_unique<Body>(std::move(body));
    const HANDLE thread = CreateThread(nullptr, 0, &RunBody, owned.get(), 0, nullptr);
    if (thread == nullptr) {
        throw SystemFailure("a host's thread cannot be started, error " +
                            std::to_string(GetLastError()));
    }
    static_cast<void>(owned.release());  // the thread's now
    CloseHandle(thread);
}

void RealPc::NameThreadByRoutine(ThreadKey thread) {
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        if (!m_threads.insert(thread).second) {
            return;
        }
    }
    if (const void* routine = RoutineOf(thread)) {
        m_recorder.ThreadStarted(thread, routine);
    }
}

void RealPc::RecordLogLine(int level, const std::wstring& line, void* context) {
    auto& self = *static_cast<RealPc*>(context);
    const ThreadKey thread = self.Thread();
    self.NameThreadByRoutine(thread);
    self.m_recorder.AddLogLine(thread, self.Now(), level, line);
}

}  // namespace lab
