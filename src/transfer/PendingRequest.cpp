#include "transfer/PendingRequest.h"

#include "transfer/TransferState.h"

bool PendingRequest::Succeeded() {
    DWORD moved = 0;
    const bool succeeded = GetOverlappedResult(m_device, &m_overlapped, &moved, FALSE) != FALSE;
    // A look that failed says nothing about the request: it may still write to its record.
    if (succeeded ||
        (GetLastError() != ERROR_IO_INCOMPLETE && HasOverlappedIoCompleted(&m_overlapped))) {
        m_underWay = false;
    }
    return succeeded;
}

bool PendingRequest::EndNow() {
    if (!m_underWay) {
        return false;
    }
    DWORD moved = 0;
    CancelAndAwait(m_device, m_overlapped, moved,
                   [this] { OpenDevice::Get().Cancel(m_device, m_overlapped); });
    return Succeeded();
}
