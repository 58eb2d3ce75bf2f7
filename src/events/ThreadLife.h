// The life of one kind of event thread: starting, stopping and ending, with no thread ever joined.
// Knows nothing of what the thread does.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/platform.h"
#include "transfer/LockOrder.h"
#include "transfer/UniqueHandle.h"

/// Exit code of a thread that could not begin.
inline constexpr DWORD kThreadFailed = 0xFFFFFFFF;

/// Of each kind at most one thread runs at a time. All decisions are taken under one short lock, so
/// a thread that is about to end is never taken for one that runs.
///
/// A life is in one of these states:
///
///   State      Thread handle  Meaning
///   absent     null           no thread
///   running    set            the thread does its work
///   ending     set            it was asked to end, and no start came after that
///   broken     set            the thread could not begin and has ended
///
/// Stop, OnDeviceClosed and NoteFailure ask the thread to end. Only EnsureStarted and AnnounceStart
/// cancel that. Setting the run flag (SetRunFlag) does not.
///
///   Call             absent            running           ending            broken
///   EnsureStarted    new: running      running           running           new: running
///   Stop             absent            ending            ending            broken
///   OnDeviceClosed   absent            ending            ending            broken
///   Abandon          -                 absent (1)        absent (1)        absent
///   NoteFailure (2)                    ending            no change (3)
///   TryEnd (2)                         goes on           absent: ends
///
///   (1) The thread goes on by itself for a while. It is no longer the current one and ends.
///   (2) Called by the thread itself.
///   (3) A start after the earlier reason stays valid: the thread goes on.
///
/// While the current thread is held (`isHeld`), TryEnd lets it go on in every state.
///
/// Locks: the functions take the life's own short lock. It is never held over a transfer, a wait
/// that takes time, a line of the log or a listener call.
class ThreadLife {
  public:
    enum class Start { kStarted, kAlreadyExists, kFailed };
    enum class Wake { kNo, kYes };

    /// One run of the thread procedure, from Enter to TryEnd. Lives on the thread's stack.
    struct Run {
        std::uint64_t number = 0;       // counted over all runs of this life
        std::uint64_t reasonsSeen = 0;  // m_reasons when the last pass began
        UniqueHandle event;
    };

    /// The process-wide variables in which a debugger finds the thread's handle, run flag, event
    /// and request record. The last two are null for a thread that waits for no request. The life
    /// alone writes the handle, the event and the record.
    struct Published {
        std::atomic<HANDLE>& handle;
        std::atomic<bool>& running;
        std::atomic<HANDLE>* event;
        OVERLAPPED* overlapped;
    };

    /// `isHeld()` returns true while the thread must not end in spite of a stop. It is called under
    /// the life's lock and takes none itself.
    explicit ThreadLife(
        Published published, bool (*isHeld)() = [] { return false; })
        : m_published(published), m_isHeld(isHeld) {}

    // Host side.

    /// Sets the run flag. A stop stays a stop.
    void SetRunFlag();

    /// A start follows: cancels every earlier reason to end.
    void AnnounceStart();

    /// AnnounceStart, and starts a thread unless one is there. Default stack size, no argument.
    /// kFailed with GetLastError.
    Start EnsureStarted(LPTHREAD_START_ROUTINE procedure);

    /// Clears the run flag and, with kYes, wakes the loop. Waits for nobody.
    void Stop(Wake wake);

    /// The device has been closed, so the request of the thread fails. A start after this call
    /// makes the thread go on with the next device.
    void OnDeviceClosed();

    /// Gives up a thread that must not run any longer: closes the handle and wakes the loop.
    void Abandon();

    /// Whether the thread has ended or could not be started, and no start has come since. Unless it
    /// is abandoned, a thread of which this is false does not end while `isHeld()` returns true.
    bool HasEnded();

    // Thread side.

    Run Enter();

    /// Makes the thread's event and its request record. False, with GetLastError, when there is no
    /// event to be had: the thread then ends and its handle stays until the next start.
    bool Arm(Run& run, OVERLAPPED& overlapped);

    /// A pass of the loop begins.
    void BeginPass(Run& run);

    /// Whether this is the run that the handle belongs to.
    bool IsCurrent(const Run& run);

    /// Whether the loop is to go on: it is the current one, the run flag is set, and no stop is in
    /// force.
    bool ShouldRun(const Run& run);

    /// Whether this is the current run and must go on in spite of a stop.
    bool IsHeld(const Run& run);

    /// The request of this pass failed by itself. A reason to end, unless one has come since the
    /// pass began.
    void NoteFailure(const Run& run);

    /// The loop has been left. True: handle and event are closed, and the thread must return.
    /// False: a start came after the last reason to end, or the thread is held, and it goes on with
    /// the same event.
    bool TryEnd(Run& run);

  private:
    void AddReason() TAGPORT_REQUIRES(m_mutex);
    void CloseThreadHandle() TAGPORT_REQUIRES(m_mutex);
    void WakeLoop() TAGPORT_REQUIRES(m_mutex);
    bool Current(const Run& run) const TAGPORT_REQUIRES(m_mutex);
    bool MayRun(const Run& run) const TAGPORT_REQUIRES(m_mutex);

    platform::Mutex m_mutex{kThreadLifeLock};
    Published m_published;
    bool (*m_isHeld)();
    std::uint64_t m_created TAGPORT_GUARDED_BY(m_mutex) = 0;  // threads created
    std::uint64_t m_entered TAGPORT_GUARDED_BY(m_mutex) = 0;  // threads that have entered
    std::uint64_t m_current TAGPORT_GUARDED_BY(m_mutex) = 0;  // number of the current run, 0: none
    std::uint64_t m_reasons TAGPORT_GUARDED_BY(m_mutex) = 0;  // reasons to end so far
    bool m_startFollows TAGPORT_GUARDED_BY(m_mutex) = false;  // a start came after the last reason
    bool m_stopped TAGPORT_GUARDED_BY(m_mutex) =
        false;  // a stop came or the thread ended, and no start since
    bool m_broken TAGPORT_GUARDED_BY(m_mutex) = false;
};
