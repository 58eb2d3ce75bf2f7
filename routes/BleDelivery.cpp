#include "routes/BleDelivery.h"

#include "diagnostics/Log.h"
#include "events/Listener.h"
#include "platform/NeverDestroyed.h"
#include "routes/BleLink.h"
#include "routes/RouteState.h"

namespace {

// Of this thread: calls of the client that it is inside, and whether it is delivering.
thread_local unsigned g_clientCalls = 0;
thread_local bool g_delivers = false;

void Deliver(int event) {
    static Deliverer deliverer;
    if (event == kEventEntered) {
        LogWarnFun("NFC_SELECT_IN_FIELD 1st report");
    }
    deliverer.Deliver(event, g_btRandNumber.value.Get(), kRouteBle);
    if (event == kEventLeft) {
        LogLeaveDelivered(g_btRandNumber.value.Get());
    }
}

}  // namespace

BleDelivery& BleDelivery::Get() {
    static platform::NeverDestroyed<BleDelivery> delivery;
    return delivery.value;
}

BleDelivery::ClientCall::ClientCall() {
    ++g_clientCalls;
}

BleDelivery::ClientCall::~ClientCall() {
    --g_clientCalls;
}

void BleDelivery::SetSink(const BtDataNotify* sink) {
    const platform::Lock lock(m_mutex);
    m_sink = sink;
    m_waiting.clear();
}

void BleDelivery::Silence() {
    platform::Lock lock(m_mutex);
    m_sink = nullptr;
    m_waiting.clear();
    m_idle.Wait(lock, [this] {
        m_mutex.AssertHeld();
        return !m_isDelivering || g_delivers;
    });
}

bool BleDelivery::Counts(const BtDataNotify* sink) {
    const platform::Lock lock(m_mutex);
    return m_sink == sink;
}

void BleDelivery::Add(const BtDataNotify* sink, int event) {
    {
        const platform::Lock lock(m_mutex);
        if (m_sink != sink) {
            return;
        }
        m_waiting.push_back(event);
    }
    Drain();
}

void BleDelivery::Drain() {
    if (g_clientCalls > 0) {
        return;
    }
    for (;;) {
        int event = 0;
        {
            const platform::Lock lock(m_mutex);
            if (m_isDelivering || m_waiting.empty()) {
                return;  // whoever is delivering looks again
            }
            event = m_waiting.front();
            m_waiting.erase(m_waiting.begin());
            m_isDelivering = true;
        }
        g_delivers = true;
        Deliver(event);
        g_delivers = false;
        const platform::Lock lock(m_mutex);
        m_isDelivering = false;
        m_idle.NotifyAll();
    }
}
