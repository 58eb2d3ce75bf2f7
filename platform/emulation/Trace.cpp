// The call hook, the tracer, and the names of calls.
#include "platform/emulation/KernelState.h"

namespace emulation {

void SetCallHook(CallHook hook) {
    const KernelLock lock;
    TheKernel().hook = std::move(hook);
}

void SetTracer(Tracer tracer) {
    const KernelLock lock;
    Kernel& kernel = TheKernel();
    const int change = static_cast<int>(static_cast<bool>(tracer)) - static_cast<int>(Tracing());
    kernel.lockWatchers.fetch_add(change, std::memory_order_relaxed);
    kernel.tracer = std::move(tracer);
}

void Trace(TraceEvent event) {
    event.time = Now();
    if (event.kind != TraceEvent::Kind::kThreadStart &&
        event.kind != TraceEvent::Kind::kThreadEnd) {
        event.thread = CurrentThread();
    }
    TheKernel().tracer(event);
}

const char* Name(Call call) {
    switch (call) {
        case Call::kCreateEvent:
            return "CreateEventW";
        case Call::kCreateThread:
            return "CreateThread";
        case Call::kSetEvent:
            return "SetEvent";
        case Call::kResetEvent:
            return "ResetEvent";
        case Call::kWait:
            return "WaitForSingleObject";
        case Call::kSleep:
            return "Sleep";
        case Call::kCloseHandle:
            return "CloseHandle";
        case Call::kCreateFile:
            return "CreateFileW";
        case Call::kReadFile:
            return "ReadFile";
        case Call::kWriteFile:
            return "WriteFile";
        case Call::kDeviceIoControl:
            return "DeviceIoControl";
        case Call::kGetOverlappedResult:
            return "GetOverlappedResult";
        case Call::kCancelIoEx:
            return "CancelIoEx";
        case Call::kEnumerate:
            return "SetupDi";
        case Call::kHid:
            return "HidD";
        case Call::kConfiguration:
            return "configuration";
    }
    return "unknown";
}

}  // namespace emulation
