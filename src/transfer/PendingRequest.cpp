#include "transfer/PendingRequest.h"

#include "transfer/TransferState.h"

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
