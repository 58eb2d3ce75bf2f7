// The deferred call thread: woken by a first report, watches the count of interrupts, and delivers
// the leave. It is never woken to stop: a stop finds it waiting and leaves it there.
#include "chip/NfcDeviceContext.h"
#include "diagnostics/Log.h"
#include "events/DriverKind.h"
#include "events/DriverThreads.h"
#include "events/Listener.h"
#include "events/NumberStore.h"
#include "events/Visit.h"
#include "platform/platform.h"
#include "transfer/LockOrder.h"

namespace {

constexpr DWORD kPollMs = 350;
constexpr int kLastPoll = 20;  // of a chip that reports leaves, counted from 0

// Held by the thread for a whole visit.
platform::Mutex g_deferMutex{kDeferLock};

// A phone whose leave the chip does not report is given up after the last poll. Returns the count
// of the last look.
std::int32_t WatchReportedLeave() {
    for (int poll = 0;; ++poll) {
        Sleep(kPollMs);
        const std::int32_t count = g_fieldCount;
        if (count == kFieldLeaveReported || poll >= kLastPoll) {
            return count;
        }
        LogWarnFun("NFC_phone still in field");
    }
}

// The only sign of a leave is that interrupts stop coming. Returns the count of the last look.
std::int32_t WatchInterrupts() {
    for (;;) {
        const std::int32_t before = g_fieldCount;
        Sleep(kPollMs);
        const std::int32_t after = g_fieldCount;
        if (after < kFieldShortVisit || after == before) {
            return after;
        }
        LogWarnFun("NFC_phone still in field");
    }
}

void DeliverLeave() {
    static Deliverer deliverer;
    const int route = DriverRoute();
    if (route == kRouteNone) {
        LogWarnFun("unknown NFC device DeferCall");
        return;
    }
    deliverer.Deliver(kEventLeft, g_tagRandNumber.value.Get(), route);
}

// Waits for a visit and watches it to its end.
void ServeOneVisit(const ThreadLife::Run& run) {
    {
        const platform::Lock lock(g_deferMutex);
        LogWarnFun("NFC_begin wait notify");
    }
    if (!Visit::Get().TakeUp([&run] { return DeferCallLife().IsCurrent(run); })) {
        return;  // another thread has taken over and takes up the visit
    }
    const platform::Lock lock(g_deferMutex);
    const std::int32_t lastCount =
        GetNfcDeviceContext().Traits().reportsStatus ? WatchReportedLeave() : WatchInterrupts();
    LogWarnFun("[NFC] RF field has left");
    DeliverLeave();
    Visit::Get().Close(lastCount);
    LogLeaveDelivered(g_tagRandNumber.value.Get());
}

}  // namespace

void notifyDeferCallThread() {
    const platform::Lock lock(g_deferMutex);
    Visit::Get().Notify();
    LogWarnFun("NFC_notifyDeferCallThread");
}

DWORD WINAPI DeferCallThread(LPVOID /*argument*/) {
    ThreadLife& life = DeferCallLife();
    ThreadLife::Run run = life.Enter();
    for (;;) {
        while (life.ShouldRun(run) || life.IsHeld(run)) {
            ServeOneVisit(run);
        }
        if (life.TryEnd(run)) {
            LogWarnFun("NFC_DeferCallThread return");
            return 0;
        }
    }
}
