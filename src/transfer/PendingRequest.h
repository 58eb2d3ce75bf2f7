// The end of a pending request, and one request of an event loop from its start to its end.
#pragma once

#include <functional>

#include "platform/Check.h"
#include "transfer/OpenDevice.h"

/// Ends a request that may be pending: calls `cancel()` and waits, again and again until the
/// request has ended, since a cancellation can be refused. Sets `moved`, in bytes. Wake-ups can be
/// spurious (a stop signals the same event), and a GetOverlappedResult that fails says nothing
/// about the request, so the end is read from the OVERLAPPED only.
void CancelAndAwait(HANDLE device, OVERLAPPED& overlapped, DWORD& moved,
                    const std::function<void()>& cancel);

/// A request on a private OVERLAPPED. The kernel writes into the record (and into the buffer of a
/// read) when the request ends, so a pending request is cancelled and awaited before the record
/// goes away.
///
/// Used by one thread. Its only lock is the short one of OpenDevice.
class PendingRequest {
  public:
    enum class Start {
        kPending,  ///< or ended with success already
        kFailed,   ///< see StartError
        kRefused,  ///< `allowed` returned false; nothing was started
    };
    enum class Result { kPending, kSucceeded, kFailed };

    explicit PendingRequest(OVERLAPPED& overlapped) : m_overlapped(overlapped) {}
    ~PendingRequest() {
        EndNow();
        TAGPORT_CHECK(!m_isPending);
    }
    PendingRequest(const PendingRequest&) = delete;
    PendingRequest& operator=(const PendingRequest&) = delete;

    /// Starts a request on the open device. `allowed()` is called first, while nobody can close the
    /// device or open another one. `start(device)` returns what ReadFile or DeviceIoControl
    /// returned. A request that ends at once counts as started only where `mayEndAtOnce` is true.
    /// `failed()` is called before the device lock is released, so the device is still the one that
    /// refused.
    template <class Question, class Starter, class Failure>
    Start Begin(bool mayEndAtOnce, Question allowed, Starter start, Failure failed) {
        return OpenDevice::Get().Use([&](HANDLE device) {
            if (!allowed()) {
                return Start::kRefused;
            }
            TAGPORT_CHECK(platform::HoldsLock(kHandleLock));
            m_device = device;
            const BOOL ended = start(device);
            m_startError = GetLastError();
            m_isPending = ended != FALSE ? mayEndAtOnce : m_startError == ERROR_IO_PENDING;
            if (m_isPending) {
                return Start::kPending;
            }
            failed();
            return Start::kFailed;
        });
    }

    /// The last error as the start left it.
    DWORD StartError() const { return m_startError; }

    /// Looks at the result without waiting. For kPending and kFailed GetLastError has the code. A
    /// request that has ended without success has failed, whatever its code.
    Result Look();

    /// Cancels the request if it is pending, and waits for its end. True when it had succeeded
    /// before the cancellation reached it: what it brought must not be lost. False for a request
    /// whose result Look has returned already.
    bool EndNow();

  private:
    HANDLE m_device = nullptr;
    OVERLAPPED& m_overlapped;
    DWORD m_startError = ERROR_SUCCESS;
    bool m_isPending = false;
};
