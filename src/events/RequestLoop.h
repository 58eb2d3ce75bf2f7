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

    /// Starts the request; returns what ReadFile or DeviceIoControl returned. Called under a short
    /// lock: it must not block.
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

/// The body of the thread procedure: runs until the life says that the thread must end. Returns the
/// thread's exit code.
///
/// If a request completes after a stop woke the loop but before it was cancelled, and a start
/// follows, the request is still handled.
DWORD RunRequestLoop(ThreadLife& life, EventRequest& request);
