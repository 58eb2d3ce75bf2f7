// Events. Setting one releases who waits at that moment, see Signal.
#include "platform/hosted/KernelState.h"

using hosted::Call;
using hosted::Entry;
using hosted::EventObject;

HANDLE CreateEventW(SECURITY_ATTRIBUTES* /*security*/, BOOL manualReset, BOOL initialState,
                    const WCHAR* name) {
    const Entry entry(Call::kCreateEvent);
    if (entry.Refused()) {
        return nullptr;
    }
    if (name != nullptr) {  // named events reach across processes; there is nobody to share with
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return hosted::AddHandle(
        std::make_shared<EventObject>(manualReset != FALSE, initialState != FALSE));
}

BOOL SetEvent(HANDLE event) {
    const Entry entry(Call::kSetEvent);
    if (entry.Refused()) {
        return FALSE;
    }
    const auto object = hosted::Find<EventObject>(event);
    if (object == nullptr) {
        return FALSE;
    }
    object->signal.Set();
    hosted::TheScheduler().Changed();
    return TRUE;
}

BOOL ResetEvent(HANDLE event) {
    const Entry entry(Call::kResetEvent);
    if (entry.Refused()) {
        return FALSE;
    }
    const auto object = hosted::Find<EventObject>(event);
    if (object == nullptr) {
        return FALSE;
    }
    object->signal.Reset();
    hosted::TheScheduler().Changed();
    return TRUE;
}
