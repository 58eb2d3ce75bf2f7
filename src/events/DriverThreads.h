// The two threads for a kernel driver's interrupts: the interrupt thread opens visits, the deferred
// call thread closes them. Starting and stopping them together.
#pragma once

#include <atomic>

#include "events/ThreadLife.h"
#include "platform/platform.h"

/// Run flag of both threads. Set by every creation of a manager and every write; cleared by the end
/// of a manager's proxy, by a failed device start and by one that opens a keyboard instead; read
/// by the loops.
extern std::atomic<bool> g_interruptRunning;

// Thread handles, null when there is none. Written by the thread's ThreadLife.
extern std::atomic<HANDLE> m_staticNotificationThread;  // interrupt thread
extern std::atomic<HANDLE> m_staticCallThread;          // deferred call thread

/// Auto-reset event that wakes the interrupt thread to stop it, and the request record that the
/// thread's private one is copied from. Written by the thread's ThreadLife.
extern std::atomic<HANDLE> g_interruptEvent;
extern OVERLAPPED g_interruptOverlapped;

ThreadLife& InterruptLife();
ThreadLife& DeferCallLife();

/// Starts what is not there. True when both threads exist. When one could not be started, the other
/// is abandoned and ends by itself.
bool StartDriverThreads();

/// Clears the run flag and wakes the interrupt thread. The deferred call thread is not woken: it
/// stays blocked, or ends after the visits that are open. Waits for nobody.
void StopDriverThreads();

/// Wakes the deferred call thread at the first report of a visit. Blocks while an earlier visit is
/// watched. Called with no lock held.
void notifyDeferCallThread();

// The thread procedures.
DWORD WINAPI InterruptThread(LPVOID argument);
DWORD WINAPI DeferCallThread(LPVOID argument);
