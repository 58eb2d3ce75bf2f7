#include "events/RequestLoop.h"

#include "diagnostics/Log.h"
#include "transfer/PendingRequest.h"

namespace {

enum class Pass {
    kDone,       ///< go on
    kLeave,      ///< leave the loop
    kLeaveLate,  ///< the same, and the request ended with success before it was cancelled
};

Pass RunPass(ThreadLife& life, ThreadLife::Run& run, EventRequest& request,
             OVERLAPPED& overlapped) {
    life.BeginPass(run);
    PendingRequest pending(overlapped);
    switch (pending.Begin(
        request.MayEndAtOnce(), [&] { return life.ShouldRun(run); },
        [&](HANDLE device) { return request.Send(device, overlapped); },
        [&] { life.NoteFailure(run); })) {
        case PendingRequest::Start::kRefused:
            return Pass::kLeave;
        case PendingRequest::Start::kFailed:
            request.LogNotSent(pending.StartError());
            return Pass::kLeave;
        case PendingRequest::Start::kPending:
            break;
    }
    request.LogWaiting();
    // Starting the request has reset the event, and with it a stop that was signalled since the
    // life was asked. Such a stop goes the same way as one that comes during the wait.
    if (life.ShouldRun(run) && WaitForSingleObject(overlapped.hEvent, INFINITE) != WAIT_OBJECT_0) {
        request.LogWaitFailed(GetLastError());
        if (pending.EndNow()) {
            request.Handle();
        }
        return Pass::kDone;
    }
    const PendingRequest::Result result = pending.Look();
    const DWORD error = GetLastError();
    if (result == PendingRequest::Result::kSucceeded) {
        request.Handle();
        return Pass::kDone;
    }
    if (result == PendingRequest::Result::kFailed) {
        life.NoteFailure(run);
    }
    LogErrorFun("NFC Interrupt get Overlapped result %u", static_cast<unsigned>(error));
    return pending.EndNow() ? Pass::kLeaveLate : Pass::kLeave;
}

// Returns true when the last request ended with success and has not been handled.
bool RunPasses(ThreadLife& life, ThreadLife::Run& run, EventRequest& request,
               OVERLAPPED& overlapped) {
    Pass pass = Pass::kDone;
    while (pass == Pass::kDone) {
        pass = RunPass(life, run, request, overlapped);
    }
    return pass == Pass::kLeaveLate;
}

}  // namespace

DWORD RunRequestLoop(ThreadLife& life, EventRequest& request) {
    ThreadLife::Run run = life.Enter();
    OVERLAPPED overlapped{};
    if (!life.Arm(run, overlapped)) {
        request.LogNoEvent(GetLastError());
        return kThreadFailed;
    }
    for (;;) {
        const bool isLate = RunPasses(life, run, request, overlapped);
        request.LogReturn();
        if (life.TryEnd(run)) {
            return 0;
        }
        if (isLate) {
            request.Handle();
        }
    }
}
