// What the one transfer that can be under way at a time works on.
#pragma once

#include <functional>

#include "platform/NeverDestroyed.h"
#include "platform/platform.h"
#include "transfer/EventSlot.h"

/// The request record of all command objects; offsets stay 0. Used only under the device mutex.
extern OVERLAPPED g_ioOverlapped;

/// Manual-reset event of g_ioOverlapped. Made by each device start, closed by a failed one and by
/// the end of a manager's proxy.
extern platform::NeverDestroyed<EventSlot> g_ioEvent;

/// Ends a request that may be pending: calls `cancel()` and waits, again and again until the
/// request has ended, since a cancellation can be refused. Gives the bytes that it moved. Only the
/// request's record shows the end. The event may be signalled by others (a stop, a second stop), so
/// one wake-up proves nothing, and a GetOverlappedResult that fails says nothing about the request.
void CancelAndAwait(HANDLE device, OVERLAPPED& overlapped, DWORD& moved,
                    const std::function<void()>& cancel);
