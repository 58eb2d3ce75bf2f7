// The keyboard read thread and its published variables.
#pragma once

#include <atomic>

#include "events/ThreadLife.h"
#include "platform/platform.h"

inline constexpr int kRouteHid = 3;

/// Run flag of the keyboard read thread. Set by every creation of a manager, every write and every
/// start of a HID keyboard, cleared by the end of a manager's proxy and by a failed device start,
/// read by the loop.
extern std::atomic<bool> g_readHidRunning;

/// Thread handle, null when there is none. Written by the thread's ThreadLife.
extern std::atomic<HANDLE> g_hReadHidThread;

/// Auto-reset event that wakes the thread to stop it, and the request record that its private one
/// is copied from. Written by the thread's ThreadLife.
extern std::atomic<HANDLE> g_readHidEvent;
extern OVERLAPPED g_readHidOverlapped;

ThreadLife& KeyboardReadLife();

/// The thread procedure.
DWORD WINAPI ReadKeyboardDataThread(LPVOID argument);
