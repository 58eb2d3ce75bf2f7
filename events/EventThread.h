// Life of the library's event threads: starting, stopping, ending, with no thread ever joined.
//
// Of each kind one thread serves at a time. A thread that is on its way out cannot be taken for a
// live one: a start that finds a thread there is noted, and the thread, before it ends, looks
// whether it has been wanted since its last pass began; then it serves on. All of it is decided
// under one short lock, which is never held over a transfer, a listener call, or a wait that takes
// time.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/platform.h"

// Run flags. Set by every manager's creation and every WriteMessage (and the second by a HID
// start), cleared by the end of a manager's proxy and by a failed device start, read by the loops.
extern std::atomic<bool> g_interruptRunning;  // interrupt thread and deferred call thread
extern std::atomic<bool> g_readHidRunning;    // keyboard read thread

// Thread handles, null when there is none. Written under the life lock.
extern std::atomic<HANDLE> m_staticNotificationThread;  // interrupt thread
extern std::atomic<HANDLE> m_staticCallThread;          // deferred call thread
extern std::atomic<HANDLE> g_hReadHidThread;            // keyboard read thread

// Auto-reset events that wake a loop to stop it; made and closed by the thread itself, signalled
// by whoever stops it. Written under the life lock.
extern std::atomic<HANDLE> g_interruptEvent;
extern std::atomic<HANDLE> g_readHidEvent;

// What each loop's private request record is copied from. Under the life lock.
extern OVERLAPPED g_interruptOverlapped;
extern OVERLAPPED g_readHidOverlapped;

/// Exit code of a thread that could not begin.
inline constexpr DWORD kThreadFailed = 0xFFFFFFFF;

class EventThread {
  public:
    enum class Start { kStarted, kAlreadyExists, kFailed };

    /// What a thread knows of itself. Lives on the thread's stack.
    struct Ticket {
        std::uint64_t seat = 0;    // which of the threads that entered so far this is
        std::uint64_t wanted = 0;  // starts seen when the last pass began
        HANDLE event = nullptr;    // owned from Arm to TryEnd
    };

    /// `event` and `overlapped` are null for the deferred call thread, which waits for no request.
    constexpr EventThread(std::atomic<HANDLE>& handle, std::atomic<bool>& running,
                          std::atomic<HANDLE>* event, OVERLAPPED* overlapped)
        : m_handle(handle), m_running(running), m_event(event), m_overlapped(overlapped) {}

    // Host side.

    /// Starts a thread unless one is there. Default stack size, no argument.
    Start EnsureStarted(LPTHREAD_START_ROUTINE procedure);

    /// Clears the run flag and wakes the loop. Waits for nobody.
    void Stop();

    /// Asks the thread not to end before a matching Release. False when it has ended behind a stop;
    /// what was to be held for it must then not begin.
    bool Hold();
    void Release();

    /// Lets go of a thread that must not serve any longer: closes and zeroes the handle and wakes
    /// the loop. The thread ends by itself.
    void GiveUp();

    // Thread side.

    Ticket Enter();

    /// Makes the thread's event and its request record. False, with GetLastError, when there is no
    /// event to be had: the thread then ends and keeps its handle, which the next start replaces.
    bool Arm(Ticket& ticket, OVERLAPPED& overlapped);

    /// A pass begins now: starts from here on ask for another one.
    void BeginPass(Ticket& ticket);

    /// Whether this thread is still the one that serves.
    bool HasSeat(const Ticket& ticket) const;

    /// Whether the loop is to go on: HasSeat, and the run flag is set.
    bool Serving(const Ticket& ticket) const;

    /// Whether this thread is to serve on behind a stop: HasSeat, and something is held.
    bool Held(const Ticket& ticket) const;

    /// The loop has been left. True: handle and event are closed and zeroed, and the thread must
    /// return. False: it has been wanted since its last pass began, or is held, and serves on.
    bool TryEnd(Ticket& ticket);

  private:
    void CloseThreadHandle();
    void CloseEvent(Ticket& ticket);

    std::atomic<HANDLE>& m_handle;
    std::atomic<bool>& m_running;
    std::atomic<HANDLE>* m_event;
    OVERLAPPED* m_overlapped;
    std::uint64_t m_started = 0;           // threads started so far
    std::uint64_t m_entered = 0;           // threads that have entered so far
    std::atomic<std::uint64_t> m_seat{0};  // the one that serves
    std::uint64_t m_wanted = 0;            // calls of EnsureStarted so far
    std::atomic<unsigned> m_holds{0};      // Hold less Release; written under the life lock
    bool m_failed = false;                 // the thread behind the handle could not begin
};

extern EventThread g_interruptThread;
extern EventThread g_deferThread;
extern EventThread g_keyboardThread;

// The thread procedures.
DWORD WINAPI InterruptThread(LPVOID argument);
DWORD WINAPI DeferCallThread(LPVOID argument);
DWORD WINAPI ReadKeyboardDataThread(LPVOID argument);
