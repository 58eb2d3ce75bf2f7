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

const char* Name(Call call) {
    // In the order of Call.
    constexpr const char* kNames[] = {"CreateEventW",
                                      "CreateThread",
                                      "SetEvent",
                                      "ResetEvent",
                                      "WaitForSingleObject",
                                      "Sleep",
                                      "CloseHandle",
                                      "CreateFileW",
                                      "ReadFile",
                                      "WriteFile",
                                      "DeviceIoControl",
                                      "GetOverlappedResult",
                                      "CancelIoEx",
                                      "SetupDi",
                                      "HidD",
                                      "configuration"};
    return kNames[static_cast<std::size_t>(call)];
}

}  // namespace emulation
