#include "transfer/PendingRequest.h"

namespace {

// A signal can be missed: that of a device is reset by every request that is started on it.
constexpr DWORD kLookAgainMs = 50;

// A spurious wake-up, or a wait that fails, must not make a busy loop.
constexpr DWORD kSpuriousPauseMs = 1;

}  // namespace

void CancelAndAwait(HANDLE device, OVERLAPPED& overlapped, DWORD& moved,
                    const std::function<void()>& cancel) {
    const HANDLE signalled = overlapped.hEvent != nullptr ? overlapped.hEvent : device;
    bool spurious = false;
    while (!HasOverlappedIoCompleted(&overlapped)) {
        cancel();
        if (HasOverlappedIoCompleted(&overlapped)) {
            break;
        }
        if (spurious) {
            Sleep(kSpuriousPauseMs);
        }
        spurious = WaitForSingleObject(signalled, kLookAgainMs) != WAIT_TIMEOUT;
    }
    GetOverlappedResult(device, &overlapped, &moved, FALSE);
}

PendingRequest::Result PendingRequest::Look() {
    // Before the call: ERROR_IO_INCOMPLETE may also be the code that a request has ended with.
    const bool hadEnded = HasOverlappedIoCompleted(&m_overlapped);
    DWORD moved = 0;
    if (GetOverlappedResult(m_device, &m_overlapped, &moved, FALSE) != FALSE) {
        m_isPending = false;
        return Result::kSucceeded;
    }
    if (!hadEnded && GetLastError() == ERROR_IO_INCOMPLETE) {
        return Result::kPending;
    }
    // A look that failed says nothing about the request: it may still write to its record.
    m_isPending = !HasOverlappedIoCompleted(&m_overlapped);
    return Result::kFailed;
}

bool PendingRequest::EndNow() {
    if (!m_isPending) {
        return false;
    }
    DWORD moved = 0;
    CancelAndAwait(m_device, m_overlapped, moved,
                   [this] { OpenDevice::Get().Cancel(m_device, m_overlapped); });
    return Look() == Result::kSucceeded;
}
