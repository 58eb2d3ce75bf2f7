// The loop that the interrupt thread and the keyboard read thread share: one request pending at the
// open device, handled when it ends, again and again.
#pragma once

#include "events/ThreadLife.h"
#include "platform/platform.h"

/// What one kind of thread does with its requests. All functions are called on that thread, with no
/// lock of the library held except where they say so.
class EventRequest {
  public:
    EventRequest() = default;
    virtual ~EventRequest() = default;
    EventRequest(const EventRequest&) = delete;
    EventRequest& operator=(const EventRequest&) = delete;

    /// Whether a request may end with success at once. Otherwise that counts as a failed start.
    virtual bool MayEndAtOnce() const = 0;

    /// Starts the request; gives what ReadFile or DeviceIoControl gave. Called under a short lock:
    /// it must not block.
    virtual BOOL Send(HANDLE device, OVERLAPPED& overlapped) = 0;

    /// The request has ended with success.
    virtual void Handle() = 0;

    // One line of the log each.
    virtual void LogNoEvent(DWORD error) = 0;
    virtual void LogNotSent(DWORD error) = 0;
    virtual void LogWaiting() = 0;
    virtual void LogWaitFailed(DWORD error) = 0;
    virtual void LogReturn() = 0;
};

/// The body of the thread procedure: serves until the life says that the thread must end. Gives the
/// thread's exit code.
///
/// A request that ends between the wake-up of a stop and its own cancellation is not lost: where a
/// start follows the stop, the thread handles it before it goes on.
DWORD RunRequestLoop(ThreadLife& life, EventRequest& request);
