// Sees to it that a request has ended before its record goes away.
#pragma once

#include "chip/TransferState.h"
#include "platform/platform.h"

/// One request of an event loop on its private OVERLAPPED. The kernel writes into the record (and
/// the buffer of a read) when the request ends, so whoever leaves the scope with the request still
/// under way cancels and awaits it here.
class PendingRequest {
  public:
    PendingRequest(HANDLE device, OVERLAPPED& overlapped)
        : m_device(device), m_overlapped(overlapped) {}
    ~PendingRequest() {
        if (m_underWay) {
            DWORD moved = 0;
            CancelIoEx(m_device, &m_overlapped);
            AwaitEnd(m_device, m_overlapped, moved);
        }
    }
    PendingRequest(const PendingRequest&) = delete;
    PendingRequest& operator=(const PendingRequest&) = delete;

    /// The request has been started and not refused.
    void Started() { m_underWay = true; }

    /// Looks at the result without waiting. False, with GetLastError, when the request has failed
    /// or has not ended yet.
    bool Succeeded() {
        DWORD moved = 0;
        const bool succeeded = GetOverlappedResult(m_device, &m_overlapped, &moved, FALSE) != FALSE;
        if (succeeded) {
            m_underWay = false;
        }
        return succeeded;
    }

  private:
    HANDLE m_device;
    OVERLAPPED& m_overlapped;
    bool m_underWay = false;
};
