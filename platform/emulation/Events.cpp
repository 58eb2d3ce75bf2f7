// Events. Signal decides whom an event releases.
#include "platform/emulation/KernelState.h"

using emulation::Call;
using emulation::EventObject;
using emulation::Operation;
using emulation::Signal;

namespace {

BOOL Change(Call call, HANDLE event, void (Signal::*change)()) {
    const Operation operation(call);
    const auto object = operation.Find<EventObject>(event);
    if (object == nullptr) {
        return FALSE;
    }
    (object->signal.*change)();
    emulation::TheScheduler().Changed();
    return TRUE;
}

}  // namespace

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
        std::make_shared<EventObject>(Signal(manualReset != FALSE, initialState != FALSE)));
}

BOOL SetEvent(HANDLE event) {
    return Change(Call::kSetEvent, event, &Signal::Set);
}

BOOL ResetEvent(HANDLE event) {
    return Change(Call::kResetEvent, event, &Signal::Reset);
}
