// The deferred call thread: woken by a first report, watches the count of interrupts, and delivers
// the leave. It is never woken to stop: a stop finds it waiting and leaves it there.
#include <mutex>

#include "chip/NfcDeviceContext.h"
#include "diagnostics/Log.h"
#include "events/DeferCall.h"
#include "events/EventState.h"
#include "events/EventThread.h"
#include "events/Listener.h"
#include "platform/NeverDestroyed.h"
#include "platform/platform.h"
#include "transfer/LockOrder.h"

namespace {

constexpr DWORD kPollMs = 350;
constexpr int kLastSpb4Poll = 20;        // counted from 0
constexpr std::int32_t kShortVisit = 4;  // fewer interrupts than this end a visit at once

// Held by the thread for a whole visit; guards g_deferNotified.
platform::Mutex g_deferMutex{kDeferLock};
platform::NeverDestroyed<platform::ConditionVariable> g_deferCond;

// Visits that have been opened and not been taken up by the thread yet. Added to by the interrupt
// thread, taken from one by one as visits are taken up. Were it a flag, or cleared when the thread
// begins to wait, a notification would be lost: a WriteMessage during a visit lets two first
// reports come before the thread looks, and each of them is owed its leave.
unsigned g_deferNotified = 0;

ShownNumber g_shownOnLeave;

bool IsSpb4() {
    return g_isI2cDriver && GetNfcDeviceContext().linkType == NfcLinkSpb4;
}

// The chip reports the leave itself; a phone that it forgets is given up after the last poll.
void WatchSpb4() {
    for (int poll = 0;; ++poll) {
        Sleep(kPollMs);
        if (g_fieldCount == kFieldLeaveReported || poll >= kLastSpb4Poll) {
            return;
        }
        LogWarnFun("NFC_phone still in field");
    }
}

// The only sign of a leave is that interrupts stop coming.
void WatchSpb2() {
    for (;;) {
        const std::int32_t before = g_fieldCount;
        Sleep(kPollMs);
        const std::int32_t after = g_fieldCount;
        if (after < kShortVisit || after == before) {
            return;
        }
        LogWarnFun("NFC_phone still in field");
    }
}

void DeliverLeave() {
    if (g_isI2cDriver) {
        DeliverEvent(kEventLeft, g_tagRandNumber.value, kRouteI2c, g_shownOnLeave);
    } else if (g_isUsbDriver) {
        DeliverEvent(kEventLeft, g_tagRandNumber.value, kRouteUsb, g_shownOnLeave);
    } else {
        LogWarnFun("unknown NFC device DeferCall");
    }
}

// Waits for a visit and sees it to its end, under g_deferMutex all the time.
void ServeOneVisit(const EventThread::Ticket& ticket) {
    platform::Lock lock(g_deferMutex);
    LogWarnFun("NFC_begin wait notify");
    g_deferCond.value.Wait(
        lock, [&ticket] { return g_deferNotified > 0 || !g_deferThread.HasSeat(ticket); });
    if (!g_deferThread.HasSeat(ticket)) {
        return;  // another thread has taken over and takes up the visit
    }
    --g_deferNotified;
    if (IsSpb4()) {
        WatchSpb4();
    } else {
        WatchSpb2();
    }
    LogWarnFun("[NFC] RF field has left");
    DeliverLeave();
    g_interruptFirst = true;
    LogLeaveDelivered(g_tagRandNumber.value);
    g_deferThread.Release();
}

}  // namespace

FirstReport::FirstReport() : m_allowed(g_deferThread.Hold()) {}

FirstReport::~FirstReport() {
    if (m_allowed && !m_handedOver) {
        g_deferThread.Release();
    }
}

void FirstReport::HandOver() {
    m_handedOver = true;
    notifyDeferCallThread();
}

void notifyDeferCallThread() {
    platform::Lock lock(g_deferMutex);
    ++g_deferNotified;
    g_deferCond.value.NotifyAll();
    LogWarnFun("NFC_notifyDeferCallThread");
}

DWORD WINAPI DeferCallThread(LPVOID /*argument*/) {
    EventThread::Ticket ticket = g_deferThread.Enter();
    for (;;) {
        while (g_deferThread.Serving(ticket) || g_deferThread.Held(ticket)) {
            g_deferThread.BeginPass(ticket);
            ServeOneVisit(ticket);
        }
        if (g_deferThread.TryEnd(ticket)) {
            LogWarnFun("NFC_DeferCallThread return");
            return 0;
        }
    }
}
