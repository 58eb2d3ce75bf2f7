// The process-wide state of the one transfer that can be under way at a time.
#pragma once

#include <atomic>
#include <mutex>

#include "platform/platform.h"
#include "transfer/EventSlot.h"

/// The open peripheral, opened for overlapped I/O; null means none. Written by the device start
/// (peripheral) under its content lock, closed under the device mutex as well; read by every
/// transfer and by the event threads.
extern std::atomic<HANDLE> DeviceHandle;

/// Held while a loop reads DeviceHandle and starts its request, and while the handle is taken away
/// and closed: a handle's number may be given to another device the moment it is closed. Transfers
/// have the device mutex for this.
extern platform::Mutex g_deviceHandleMutex;

/// The request record of all command objects; offsets stay 0. Used only under the device mutex.
extern OVERLAPPED g_ioOverlapped;

/// Manual-reset event of g_ioOverlapped. Made by each device start, let go of by a failed one and
/// by the end of a manager's proxy.
extern platform::NeverDestroyed<EventSlot> g_ioEvent;

/// Returns once a cancelled request has ended, with the bytes it moved. The event may be signalled
/// by others (a stop, a second stop), so one wake-up proves nothing; and the waiting form of
/// GetOverlappedResult takes it for the end.
void AwaitEnd(HANDLE device, OVERLAPPED& overlapped, DWORD& moved);
