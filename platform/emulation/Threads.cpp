// CreateThread, the end of a thread, and Sleep.
#include <system_error>

#include "platform/emulation/KernelState.h"

namespace emulation {

namespace {

void EndThread(const Thread& thread, ThreadObject& object) {
    {
        const KernelLock lock;
        CancelRequests([&](const PendingRequest& one) { return one.thread() == thread.id; });
        Trace(TraceEvent::Kind::kThreadEnd, [](const TraceEvent& /*event*/) {});
        RemoveThread(thread);
        --TheKernel().startedThreads;
        object.signal.Set();
        TheScheduler().Changed();
    }
    TheScheduler().EndCurrent();
}

}  // namespace

}  // namespace emulation

using emulation::Call;
using emulation::Operation;
using emulation::ThreadObject;
using emulation::TraceEvent;

HANDLE CreateThread(SECURITY_ATTRIBUTES* /*security*/, std::size_t /*stackSize*/,
                    LPTHREAD_START_ROUTINE start, LPVOID argument, DWORD flags, DWORD* threadId) {
    const Operation operation(Call::kCreateThread);
    if (operation.Refused()) {
        return nullptr;
    }
    if (start == nullptr || flags != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    emulation::TheScheduler().Current();  // the caller gets its number before the new thread does
    const std::shared_ptr<emulation::Thread> thread = emulation::AddThread();
    const auto object = std::make_shared<ThreadObject>();
    // Whatever allocates comes before the thread runs: after a failure its argument is freed.
    const HANDLE handle = emulation::AddHandle(object);
    try {
        emulation::TheScheduler().Launch(thread, [thread, object, start, argument] {
            start(argument);
            emulation::EndThread(*thread, *object);
        });
    } catch (const std::exception&) {
        emulation::RemoveThread(*thread);
        emulation::RemoveHandle(handle);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    ++emulation::TheKernel().startedThreads;
    emulation::Trace(TraceEvent::Kind::kThreadStart, [&](TraceEvent& event) {
        event.thread = thread->id;
        event.routine = start;
        event.argument = argument;
    });
    if (threadId != nullptr) {
        *threadId = thread->id;
    }
    return handle;
}

void Sleep(DWORD milliseconds) {
    emulation::Scheduler& scheduler = emulation::TheScheduler();
    const Operation operation(Call::kSleep);
    emulation::Trace(TraceEvent::Kind::kSleep,
                     [&](TraceEvent& event) { event.milliseconds = milliseconds; });
    scheduler.Wait(emulation::Predicate([] { return false; }),
                   emulation::DeadlineAfterMilliseconds(milliseconds), {"the end of a sleep"});
}
