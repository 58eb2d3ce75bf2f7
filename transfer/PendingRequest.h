// Sees to it that a request has ended before its record goes away.
#pragma once

#include "platform/platform.h"
#include "transfer/TransferState.h"

/// One request of an event loop on its private OVERLAPPED. The kernel writes into the record (and
/// the buffer of a read) when the request ends, so whoever leaves the scope with the request still
/// under way cancels and awaits it here.
class PendingRequest {
  public:
    explicit PendingRequest(OVERLAPPED& overlapped) : m_overlapped(overlapped) {}
    ~PendingRequest() {
        if (m_underWay) {
            DWORD moved = 0;
            CancelIoEx(m_device, &m_overlapped);
            AwaitEnd(m_device, m_overlapped, moved);
        }
    }
    PendingRequest(const PendingRequest&) = delete;
    PendingRequest& operator=(const PendingRequest&) = delete;

    /// Starts a request on the open device: `start` gives what ReadFile or DeviceIoControl gave.
    /// True when it is under way, or (`atOnce`) has ended with success already.
    template <class Starter>
    bool Start(bool atOnce, Starter start) {
        platform::Lock lock(g_deviceHandleMutex);
        m_device = DeviceHandle;
        const BOOL ended = start(m_device);
        m_startError = GetLastError();
        m_underWay = ended != FALSE ? atOnce : m_startError == ERROR_IO_PENDING;
        return m_underWay;
    }

    /// The last error as the start left it.
    DWORD StartError() const { return m_startError; }

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
    HANDLE m_device = nullptr;
    OVERLAPPED& m_overlapped;
    DWORD m_startError = ERROR_SUCCESS;
    bool m_underWay = false;
};
