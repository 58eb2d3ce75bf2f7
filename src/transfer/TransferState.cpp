#include "transfer/TransferState.h"

OVERLAPPED g_ioOverlapped{};
platform::NeverDestroyed<EventSlot> g_ioEvent;

namespace {

// A signal can be missed: that of a device is reset by every request that is started on it.
constexpr DWORD kLookAgainMs = 50;

// A signal that was no end, or a wait that fails, must not make a busy loop.
constexpr DWORD kMisledPauseMs = 1;

}  // namespace

void CancelAndAwait(HANDLE device, OVERLAPPED& overlapped, DWORD& moved,
                    const std::function<void()>& cancel) {
    const HANDLE signalled = overlapped.hEvent != nullptr ? overlapped.hEvent : device;
    bool misled = false;
    while (!HasOverlappedIoCompleted(&overlapped)) {
        cancel();
        if (HasOverlappedIoCompleted(&overlapped)) {
            break;
        }
        if (misled) {
            Sleep(kMisledPauseMs);
        }
        misled = WaitForSingleObject(signalled, kLookAgainMs) != WAIT_TIMEOUT;
    }
    GetOverlappedResult(device, &overlapped, &moved, FALSE);
}
