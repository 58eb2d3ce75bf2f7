// What the one transfer that can be under way at a time works on.
#pragma once

#include "platform/NeverDestroyed.h"
#include "platform/platform.h"
#include "transfer/EventSlot.h"

/// The request record of all command objects; offsets stay 0. Used only under the device mutex.
extern OVERLAPPED g_ioOverlapped;

/// Manual-reset event of g_ioOverlapped. Made by each device start, closed by a failed one and by
/// the end of a manager's proxy.
extern platform::NeverDestroyed<EventSlot> g_ioEvent;

/// Returns after a cancelled request has ended, with the bytes it moved. The event may be signalled
/// by others (a stop, a second stop), so one wake-up proves nothing, and the waiting form of
/// GetOverlappedResult would take it for the end.
void AwaitEnd(HANDLE device, OVERLAPPED& overlapped, DWORD& moved);
