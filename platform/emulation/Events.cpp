// Events. Signal decides whom an event releases.
#include "platform/emulation/KernelState.h"

using emulation::Call;
using emulation::EventObject;
using emulation::Operation;

HANDLE CreateEventW(SECURITY_ATTRIBUTES* /*security*/, BOOL manualReset, BOOL initialState,
                    const WCHAR* name) {
    const Operation operation(Call::kCreateEvent);
    if (operation.Refused()) {
        return nullptr;
    }
    if (name != nullptr) {  // named events, which processes share, are not implemented
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return emulation::AddHandle(
        std::make_shared<EventObject>(manualReset != FALSE, initialState != FALSE));
}

BOOL SetEvent(HANDLE event) {
    const Operation operation(Call::kSetEvent);
    const auto object = operation.Refused() ? nullptr : emulation::Find<EventObject>(event);
    if (object == nullptr) {
        return FALSE;
    }
    object->signal.Set();
    emulation::TheScheduler().Changed();
    return TRUE;
}

BOOL ResetEvent(HANDLE event) {
    const Operation operation(Call::kResetEvent);
    const auto object = operation.Refused() ? nullptr : emulation::Find<EventObject>(event);
    if (object == nullptr) {
        return FALSE;
    }
    object->signal.Reset();
    emulation::TheScheduler().Changed();
    return TRUE;
}
