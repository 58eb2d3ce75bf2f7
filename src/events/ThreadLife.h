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

/// Of each kind at most one thread serves at a time. All decisions are taken under one short lock,
/// so a thread that is about to end is never taken for one that serves.
///
/// A life is in one of these states:
///
///   State      Thread handle  Meaning
///   absent     null           no thread
///   serving    set            the thread does its work
///   ending     set            a reason to end came, and no start after it
///   broken     set            the thread could not begin and has ended
///
/// A reason to end is a stop, the closing of the device, or a request that failed. A reason lasts
/// until a start: setting the run flag alone, as the creation of a manager does, undoes nothing.
///
///   Call            absent            serving           ending            broken
///   EnsureStarted   new: serving      serving           serving           new: serving
///   Stop            absent            ending            ending            broken
///   DeviceCloses    absent            ending            ending            broken
///   Abandon         -                 absent (1)        absent (1)        absent
///   Fails (2)                         ending            no change (3)
///   TryEnd (2)                        goes on           absent: ends
///
///   (1) The thread goes on by itself for a while. It is no longer the current one and ends.
///   (2) Called by the thread itself.
///   (3) A start after the earlier reason stays valid: the thread goes on.
///
/// While somebody keeps the thread running (KeepRunning), TryEnd lets it go on in every state.
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

    /// Where the thread's handle, its run flag, its event and its request record are published, for
    /// a debugger and under their given names. The last two are null for a thread that waits for no
    /// request. The life alone writes the handle, the event and the record.
    struct Published {
        std::atomic<HANDLE>& handle;
        std::atomic<bool>& running;
        std::atomic<HANDLE>* event;
        OVERLAPPED* overlapped;
    };

    explicit ThreadLife(Published published) : m_published(published) {}

    // Host side.

    /// Sets the run flag. A stop stays a stop.
    void Allow();

    /// A start is about to come: undoes every earlier reason to end.
    void AnnounceStart();

    /// AnnounceStart, and starts a thread unless one is there. Default stack size, no argument.
    /// kFailed with GetLastError.
    Start EnsureStarted(LPTHREAD_START_ROUTINE procedure);

    /// Clears the run flag and, with kYes, wakes the loop. Waits for nobody.
    void Stop(Wake wake);

    /// The device has been closed, so the request of the thread fails. A start after this call
    /// makes the thread go on with the next device.
    void DeviceCloses();

    /// Lets go of a thread that must not serve any longer: closes the handle and wakes the loop.
    void Abandon();

    /// Asks the thread not to end before a matching LetEnd. False when it has ended or could
    /// not be started: what needs it must then not begin.
    bool KeepRunning();
    void LetEnd();

    // Thread side.

    Run Enter();

    /// Makes the thread's event and its request record. False, with GetLastError, when there is no
    /// event to be had: the thread then ends and its handle stays until the next start.
    bool Arm(Run& run, OVERLAPPED& overlapped);

    /// A pass of the loop begins.
    void BeginPass(Run& run);

    /// Whether this is the run that the handle belongs to.
    bool IsCurrent(const Run& run);

    /// Whether the loop is to go on: it is the current one, may run, and no stop is in force.
    bool Serves(const Run& run);

    /// Whether the current run is to go on in spite of a stop.
    bool MustGoOn(const Run& run);

    /// The request of this pass failed by itself. A reason to end, unless one has come since the
    /// pass began.
    void Fails(const Run& run);

    /// The loop has been left. True: handle and event are closed, and the thread must return.
    /// False: a start came after the last reason to end, or somebody holds the life, and the thread
    /// goes on with the same event.
    bool TryEnd(Run& run);

  private:
    void AddReason() TAGPORT_REQUIRES(m_mutex);
    void CloseThreadHandle() TAGPORT_REQUIRES(m_mutex);
    void WakeLoop() TAGPORT_REQUIRES(m_mutex);
    bool Current(const Run& run) const TAGPORT_REQUIRES(m_mutex);
    bool MayServe(const Run& run) const TAGPORT_REQUIRES(m_mutex);

    platform::Mutex m_mutex{kThreadLifeLock};
    Published m_published;
    std::uint64_t m_created TAGPORT_GUARDED_BY(m_mutex) = 0;  // threads created
    std::uint64_t m_entered TAGPORT_GUARDED_BY(m_mutex) = 0;  // threads that have entered
    std::uint64_t m_current TAGPORT_GUARDED_BY(m_mutex) = 0;  // number of the current run, 0: none
    std::uint64_t m_reasons TAGPORT_GUARDED_BY(m_mutex) = 0;  // reasons to end so far
    bool m_startFollows TAGPORT_GUARDED_BY(m_mutex) = false;  // a start came after the last reason
    bool m_stopped TAGPORT_GUARDED_BY(m_mutex) =
        false;  // a stop came or the thread ended, and no start since
    bool m_broken TAGPORT_GUARDED_BY(m_mutex) = false;
    unsigned m_keepers TAGPORT_GUARDED_BY(m_mutex) = 0;  // KeepRunning less LetEnd
};
