// The table of handles, CloseHandle, and the wait on any object. A waiting thread refers to the
// object and not to the handle, so the handle may be closed meanwhile.
#include "platform/emulation/KernelState.h"

namespace {

thread_local DWORD t_lastError = ERROR_SUCCESS;

}  // namespace

DWORD GetLastError() {
    return t_lastError;
}
void SetLastError(DWORD code) {
    t_lastError = code;
}

namespace emulation {

namespace {

constexpr ULONG_PTR kHandleStep = 4;  // the two low bits of a handle are free on Windows

// Never destroyed: a thread may wait for it when the process ends.
const std::shared_ptr<ProcessObject>& OwnProcess() {
    static const auto& process = *new auto(std::make_shared<ProcessObject>());
    return process;
}

// An event, a thread or a file; null for any other handle.
std::shared_ptr<Object> FindKernelObject(HANDLE handle) {
    auto object = FindObject(handle);
    return object != nullptr && object->WaitName() != nullptr ? object : nullptr;
}

}  // namespace

ULONG_PTR NumberOf(const void* handle) {
    return reinterpret_cast<ULONG_PTR>(handle);
}

HANDLE AddHandle(std::shared_ptr<Object> object) {
    Kernel& kernel = TheKernel();
    const ULONG_PTR number = kernel.nextHandle;
    kernel.nextHandle += kHandleStep;
    kernel.handles.emplace(number, std::move(object));
    return reinterpret_cast<HANDLE>(number);  // NOLINT(performance-no-int-to-ptr)
}

std::shared_ptr<Object> FindObject(const void* handle) {
    const auto found = TheKernel().handles.find(NumberOf(handle));
    return found == TheKernel().handles.end() ? nullptr : found->second;
}

void RemoveHandle(const void* handle) {
    TheKernel().handles.erase(NumberOf(handle));
}

DWORD WaitOn(const std::shared_ptr<Object>& object, HANDLE handle, DWORD milliseconds) {
    if (object->signal.TryTake()) {
        return WAIT_OBJECT_0;
    }
    if (milliseconds == 0) {
        return WAIT_TIMEOUT;
    }
    Waiter waiter;
    object->signal.Add(waiter);
    if (TheScheduler().Wait(Predicate([&waiter] { return waiter.released; }),
                            DeadlineAfterMilliseconds(milliseconds),
                            {object->WaitName(), handle})) {
        return WAIT_OBJECT_0;
    }
    object->signal.Remove(waiter);
    return WAIT_TIMEOUT;
}

}  // namespace emulation

using emulation::Call;
using emulation::Operation;

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    const Operation operation(Call::kWait);
    if (operation.Refused()) {
        return WAIT_FAILED;
    }
    if (handle == INVALID_HANDLE_VALUE) {
        return emulation::WaitOn(emulation::OwnProcess(), handle, milliseconds);
    }
    const auto object = emulation::FindKernelObject(handle);
    if (object == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    return emulation::WaitOn(object, handle, milliseconds);
}

BOOL CloseHandle(HANDLE handle) {
    const Operation operation(Call::kCloseHandle);
    if (operation.Refused()) {
        return FALSE;
    }
    if (handle == INVALID_HANDLE_VALUE) {
        return TRUE;
    }
    const auto object = emulation::FindKernelObject(handle);
    if (object == nullptr) {
        return emulation::FailWith(ERROR_INVALID_HANDLE);
    }
    emulation::RemoveHandle(handle);
    if (auto* const file = dynamic_cast<emulation::FileObject*>(object.get())) {
        emulation::CloseFile(*file);
    }
    return TRUE;
}
