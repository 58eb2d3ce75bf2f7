// Handles: numbers that are given out once and never again, so that an old value can only be
// refused. Also CloseHandle and the wait on any object.
//
// A handle closed while a thread waits on it: the wait goes on, on the object itself, and ends when
// the object is signalled through another reference (a pending request of that event, the end of
// that thread), when the time is over, or, for a device, when closing it fails its requests.
#include "platform/hosted/KernelState.h"

namespace {

thread_local DWORD t_lastError = ERROR_SUCCESS;

}  // namespace

DWORD GetLastError() {
    return t_lastError;
}
void SetLastError(DWORD code) {
    t_lastError = code;
}

namespace hosted {

namespace {

constexpr ULONG_PTR kHandleStep = 4;  // the two low bits of a handle are free on Windows

const char* WaitName(Object::Kind kind) {
    switch (kind) {
        case Object::Kind::kEvent:
            return "event";
        case Object::Kind::kThread:
            return "thread";
        default:
            return "device";
    }
}

bool IsKernelObject(const Object& object) {
    return object.kind == Object::Kind::kEvent || object.kind == Object::Kind::kThread ||
           object.kind == Object::Kind::kFile;
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
    WaitReason reason;
    reason.what = WaitName(object->kind);
    reason.handle = handle;
    const auto released = [&waiter] { return waiter.released; };
    if (TheScheduler().Wait(Predicate(released), DeadlineAfter(FromMilliseconds(milliseconds)),
                            reason)) {
        return WAIT_OBJECT_0;
    }
    object->signal.Remove(waiter);
    return WAIT_TIMEOUT;
}

}  // namespace hosted

using hosted::Call;
using hosted::Entry;

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    const Entry entry(Call::kWait);
    if (entry.Refused()) {
        return WAIT_FAILED;
    }
    const std::shared_ptr<hosted::Object> object = hosted::FindObject(handle);
    if (object == nullptr || !hosted::IsKernelObject(*object)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    return hosted::WaitOn(object, handle, milliseconds);
}

BOOL CloseHandle(HANDLE handle) {
    const Entry entry(Call::kCloseHandle);
    if (entry.Refused()) {
        return FALSE;
    }
    const std::shared_ptr<hosted::Object> object = hosted::FindObject(handle);
    if (object == nullptr || !hosted::IsKernelObject(*object)) {
        return hosted::FailWith(ERROR_INVALID_HANDLE);
    }
    hosted::RemoveHandle(handle);
    if (object->kind == hosted::Object::Kind::kFile) {
        hosted::CloseFile(static_cast<hosted::FileObject&>(*object));
    }
    return TRUE;
}
