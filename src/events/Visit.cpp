#include "events/Visit.h"

#include <algorithm>

#include "chip/NfcDeviceContext.h"
#include "diagnostics/Log.h"
#include "events/DriverKind.h"
#include "events/DriverThreads.h"
#include "events/Listener.h"
#include "events/NumberStore.h"
#include "platform/Check.h"
#include "platform/NeverDestroyed.h"

std::atomic<bool> g_interruptFirst{true};
std::atomic<std::int32_t> g_fieldCount{0};
std::atomic<unsigned> g_deferNotified{0};

namespace {

// Used with the visit's lock. A first report notifies it with g_deferMutex held as well.
platform::NeverDestroyed<platform::ConditionVariable> g_deferCond;

// Reports the phone to the host. False when there is no listener.
bool DeliverEnter() {
    static Deliverer deliverer;
    const int route = DriverRoute();
    if (route != kRouteNone) {
        return deliverer.Deliver(kEventEntered, g_tagRandNumber.value.Get(), route);
    }
    if (staticCallback == nullptr) {
        LogErrorFun("NFC staticCallback is null");
        return false;
    }
    LogWarnFun("unknown NFC device in field");
    return true;
}

}  // namespace

Visit& Visit::Get() {
    static platform::NeverDestroyed<Visit> visit;
    return visit.value;
}

void Visit::Arm() {
    const platform::Lock lock(m_mutex);
    g_interruptFirst = true;
}

void Visit::CountInterrupt() {
    if (Count()) {
        LogWarnFun("NFC_SELECT_IN_FIELD no report");
    } else {
        Open();
    }
}

// Under the lock, so that Close compares either before or after the interrupt has been counted.
bool Visit::Count() {
    const platform::Lock lock(m_mutex);
    if (g_interruptFirst) {
        return false;
    }
    TAGPORT_CHECK(m_open > 0);
    ++g_fieldCount;
    return true;
}

bool Visit::Enter() {
    if (!g_interruptFirst) {
        return false;
    }
    Open();
    return true;
}

bool Visit::Leave() {
    const platform::Lock lock(m_mutex);
    if (g_interruptFirst) {
        return false;
    }
    TAGPORT_CHECK(m_open > 0);
    g_fieldCount = kFieldLeaveReported;
    return true;
}

// Without a listener nothing changes, so the next interrupt tries again.
void Visit::Open() {
    {
        const platform::Lock lock(m_mutex);
        ++m_open;
    }
    // From here on the thread that reports the leave does not end. Where a stop has ended it
    // already, nobody could report the leave, and the visit must not be opened.
    const bool canClose = !DeferCallLife().HasEnded();
    if (canClose) {
        LogWarnFun("NFC_SELECT_IN_FIELD 1st report");
    }
    if (!canClose || !DeliverEnter()) {
        const platform::Lock lock(m_mutex);
        TAGPORT_CHECK(m_open > g_deferNotified);
        --m_open;
        return;
    }
    {
        const platform::Lock lock(m_mutex);
        TAGPORT_CHECK(m_open > g_deferNotified);
        g_fieldCount = kFieldVisitOpened;
        g_interruptFirst = false;
    }
    notifyDeferCallThread();
}

void Visit::Notify() {
    const platform::Lock lock(m_mutex);
    ++g_deferNotified;
    TAGPORT_CHECK(g_deferNotified <= m_open);
    g_deferCond.value.NotifyAll();
}

void Visit::Wake() {
    const platform::Lock lock(m_mutex);
    g_deferCond.value.NotifyAll();
}

bool Visit::TakeUp(const std::function<bool()>& isCurrent) {
    platform::Lock lock(m_mutex);
    g_deferCond.value.Wait(lock, [&] { return g_deferNotified > 0 || !isCurrent(); });
    if (!isCurrent()) {
        return false;
    }
    TAGPORT_CHECK(g_deferNotified > 0 && g_deferNotified <= m_open);
    --g_deferNotified;
    if (m_isContinued && !GetNfcDeviceContext().Traits().reportsStatus) {
        g_fieldCount = std::max(g_fieldCount.load(), kFieldShortVisit);
    }
    m_isContinued = false;
    return true;
}

void Visit::Close(std::int32_t lastCount) {
    const platform::Lock lock(m_mutex);
    TAGPORT_CHECK(m_open > g_deferNotified);
    --m_open;
    m_isContinued = m_open > 0 || g_fieldCount != lastCount;
    if (m_open == 0) {
        g_interruptFirst = true;
    }
}
