// A phone's visit at the chip, from the first report to the leave, on the routes with a kernel
// driver. The keyboards report both ends themselves and have no visits here.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

#include "platform/platform.h"
#include "transfer/LockOrder.h"

/// True: the next interrupt opens a visit. Written by Visit alone.
extern std::atomic<bool> g_interruptFirst;

/// Interrupts of this visit; for a chip that reports leaves 1 during a visit and 2 after the leave.
/// Written by Visit alone, read by the deferred call thread.
extern std::atomic<std::int32_t> g_fieldCount;

/// Visits that the deferred call thread has been notified of and has not taken up yet. A number:
/// as a flag, or cleared when the thread begins to wait, it would lose a notification. A write
/// during a visit lets two first reports come before the thread looks, and each needs its leave.
/// Written by Visit alone.
extern std::atomic<unsigned> g_deferNotified;

/// The visits of the process, and how many of them are open and waiting. The interrupt thread opens
/// them, the deferred call thread closes them, and a host arms the next one with every write and
/// every creation of a manager.
///
/// "Armed" is g_interruptFirst. A visit is open from before its event 3 until after its event 1.
///
///   Armed  Open  Input                       Action                        Armed, open then
///   yes    none  interrupt or enter status   event 3, other thread woken   no, one
///   yes    any   the same, without listener  "staticCallback is null"      no change
///   yes    any   leave status                logged                        no change
///   no     any   interrupt                   count + 1                     no change
///   no     any   enter status                logged                        no change
///   no     any   leave status                count = 2                     no change
///   any    any   write or creation           -                             yes, no change
///   yes    one   interrupt or enter status   event 3; its watch waits for  no, two
///                                            the end of the one before
///   any    one   end of the watch            event 1                       yes, none
///   any    two   end of the first watch      event 1, next watch begins    no change, one
///
/// With further writes more than two can be open; each waits for the one before.
///
/// The end of a visit arms the next one only when no other visit is open. A visit continues the one
/// before it when it was open at the end of that one, or when that one counted interrupts after the
/// last look of its watch. A visit that continues another one is not ended as a short one. So a
/// phone that stays causes at most one further pair of events for each write or creation, and a
/// phone that comes while the listener is in event 1 causes one pair.
///
/// Locks: a short one of its own. The listener is called with no lock held.
class Visit {
  public:
    static Visit& Get();

    /// A write or a creation. Any thread.
    void Arm();

    // On the interrupt thread.

    /// An interrupt that says nothing but that a phone is there.
    void CountInterrupt();

    /// A status that reports the entry of a phone. False, and nothing happens, when it is not the
    /// first report of a visit.
    bool Enter();

    /// A status that reports the leave of a phone. False, and nothing happens, when no visit is
    /// open.
    bool Leave();

    /// Lets the deferred call thread take up one visit more.
    void Notify();

    // On the deferred call thread.

    /// Blocks until a visit waits to be watched, and takes up the one that was opened first. One
    /// that continues the visit before it is not a short one, however few interrupts it has had:
    /// the phone has stayed. Returns false, without a visit, when `isCurrent()` returns false; it
    /// is called at first and at each Notify and Wake, under the visit's lock.
    bool TakeUp(const std::function<bool()>& isCurrent);

    /// The leave of the visit that is watched has been delivered. `lastCount` is the count that the
    /// watch ended with: the next visit continues this one when interrupts have come since.
    void Close(std::int32_t lastCount);

    // Any thread.

    /// Makes every thread in TakeUp call `isCurrent()` again.
    void Wake();

    /// Whether a visit is open: its first report has begun and its leave has not been delivered.
    /// Takes no lock.
    bool IsOpen() const TAGPORT_READS_UNLOCKED { return m_open > 0; }

  private:
    bool Count();
    void Open();

    platform::Mutex m_mutex{kVisitLock};
    std::atomic<unsigned> m_open TAGPORT_GUARDED_BY(m_mutex){0};
    bool m_isContinued TAGPORT_GUARDED_BY(m_mutex) = false;  // by the visit that is taken up next
};

// Values of g_fieldCount that have a meaning.
inline constexpr std::int32_t kFieldVisitOpened = 1;
inline constexpr std::int32_t kFieldLeaveReported = 2;
inline constexpr std::int32_t kFieldShortVisit = 4;  // fewer interrupts end a visit at once
