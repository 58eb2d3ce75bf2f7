// CreateThread, the end of a thread, and Sleep.
#include <system_error>

#include "platform/hosted/KernelState.h"

namespace hosted {

namespace {

void EndThread(const Thread& thread, ThreadObject& object) {
    {
        const KernelLock lock;
        CancelRequestsOfThread(thread.id);
        if (Tracing()) {
            TraceEvent event;
            event.kind = TraceEvent::Kind::kThreadEnd;
            event.thread = thread.id;
            Trace(std::move(event));
        }
        RemoveThread(thread);
        --TheKernel().startedThreads;
        object.signal.Set();
        TheScheduler().Changed();
    }
    TheScheduler().EndCurrent();
}

}  // namespace

}  // namespace hosted

using hosted::Call;
using hosted::Operation;
using hosted::ThreadObject;
using hosted::TraceEvent;

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
    hosted::TheScheduler().Current();  // the caller gets its number before the new thread does
    const std::shared_ptr<hosted::Thread> thread = hosted::AddThread();
    const auto object = std::make_shared<ThreadObject>();
    // Whatever allocates comes before the thread runs: after a failure its argument is freed.
    const HANDLE handle = hosted::AddHandle(object);
    TraceEvent event;
    event.kind = TraceEvent::Kind::kThreadStart;
    event.thread = thread->id;
    event.routine = start;
    event.argument = argument;
    try {
        hosted::TheScheduler().Launch(thread, [thread, object, start, argument] {
            start(argument);
            hosted::EndThread(*thread, *object);
        });
    } catch (const std::exception&) {
        hosted::RemoveThread(*thread);
        hosted::RemoveHandle(handle);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    ++hosted::TheKernel().startedThreads;
    if (hosted::Tracing()) {
        hosted::Trace(std::move(event));
    }
    if (threadId != nullptr) {
        *threadId = thread->id;
    }
    return handle;
}

void Sleep(DWORD milliseconds) {
    hosted::Scheduler& scheduler = hosted::TheScheduler();
    const Operation operation(Call::kSleep);
    if (hosted::Tracing()) {
        TraceEvent event;
        event.kind = TraceEvent::Kind::kSleep;
        event.milliseconds = milliseconds;
        hosted::Trace(std::move(event));
    }
    hosted::WaitReason reason;
    reason.what = "the end of a sleep";
    const auto never = [] { return false; };
    scheduler.Wait(hosted::Predicate(never),
                   hosted::DeadlineAfter(hosted::FromMilliseconds(milliseconds)), reason);
}
