#include "transfer/WaitForCommand.h"

#include "diagnostics/Log.h"
#include "platform/Check.h"
#include "transfer/LockOrder.h"
#include "transfer/NfcCommand.h"
#include "transfer/OpenDevice.h"
#include "transfer/PendingRequest.h"

OVERLAPPED g_ioOverlapped{};
platform::NeverDestroyed<EventSlot> g_ioEvent;

namespace {

// How long the device is left alone after a transfer that could not be started.
constexpr DWORD kRefusedSettleMs = 200;

// The result of g_ioOverlapped as it stands, without waiting.
DWORD ResultNow(DWORD& moved) {
    return GetOverlappedResult(DeviceHandle, &g_ioOverlapped, &moved, FALSE) != FALSE
               ? ERROR_SUCCESS
               : GetLastError();
}

// The request's record and the command's buffer are about to be used for something else, so a
// request that has not ended is cancelled and awaited here.
void EndRequest(NfcCommand& command, DWORD& moved) {
    CancelAndAwait(DeviceHandle, g_ioOverlapped, moved, [&command] { command.Cancel(); });
}

DWORD AwaitStarted(NfcCommand& command, HANDLE event) {
    DWORD moved = 0;
    DWORD status = ERROR_SUCCESS;
    const DWORD waited = WaitForSingleObject(event, kTransferTimeoutMs);
    if (waited == WAIT_OBJECT_0) {
        status = ResultNow(moved);
        if (status != ERROR_SUCCESS) {
            LogWarnFun("NFC GetOverlappedResult error: %d", static_cast<int>(status));
        }
        if (!HasOverlappedIoCompleted(&g_ioOverlapped)) {
            EndRequest(command, moved);
        }
    } else {
        status = waited == WAIT_TIMEOUT ? WAIT_TIMEOUT : GetLastError();
        LogErrorFun("NFC WaitForSingleObject return error: %d", static_cast<int>(status));
        EndRequest(command, moved);
    }
    command.Complete(status, moved);
    ResetEvent(event);
    return status;
}

DWORD AwaitRefused(NfcCommand& command, HANDLE event) {
    DWORD moved = 0;
    WaitForSingleObject(DeviceHandle, kRefusedSettleMs);
    const DWORD status = ResultNow(moved);
    if (status != ERROR_SUCCESS) {
        LogWarnFun("NFC_WaitForSingleObject GetOverlapped error: %d", static_cast<int>(status));
        g_ioOverlapped.Internal = static_cast<std::uint32_t>(HRESULT_FROM_WIN32(status));
        g_ioOverlapped.InternalHigh = moved;
        SetEvent(event);
    }
    command.Complete(status, moved);
    return status;
}

}  // namespace

std::uint32_t WaitForCommand(NfcCommand* command) {
    if (command == nullptr) {
        return kNullCommandStatus;
    }
    TAGPORT_CHECK(platform::HoldsLock(kDeviceLock));
    const EventSlot::Lease event = g_ioEvent.value.Get();
    g_ioOverlapped.hEvent = HandleOf(event);
    if (command->Execute()) {
        return AwaitStarted(*command, HandleOf(event));
    }
    return AwaitRefused(*command, HandleOf(event));
}
