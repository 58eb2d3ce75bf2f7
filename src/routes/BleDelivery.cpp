#include "routes/BleDelivery.h"

#include <algorithm>

#include "diagnostics/Log.h"
#include "events/Listener.h"
#include "platform/NeverDestroyed.h"
#include "routes/BtDataNotify.h"
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
    m_count = 0;
}

void BleDelivery::Silence() {
    platform::Lock lock(m_mutex);
    m_sink = nullptr;
    m_count = 0;
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
        platform::Lock lock(m_mutex);
        if (g_clientCalls == 0 && !g_delivers) {
            m_idle.Wait(lock, [this] {
                m_mutex.AssertHeld();
                return !m_isDelivering || m_handedOver < kMostHandedOver;
            });
        }
        if (m_sink != sink || m_count == kMostWaiting) {
            return;
        }
        m_waiting[m_count++] = static_cast<std::uint8_t>(event);
        m_handedOver += m_isDelivering ? 1 : 0;
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
            if (m_isDelivering) {
                return;  // the thread that delivers, or this thread's own caller, looks again
            }
            if (m_count == 0) {
                m_handedOver = 0;
                m_idle.NotifyAll();
                return;
            }
            event = m_waiting[0];
            --m_count;
            std::copy_n(m_waiting.begin() + 1, m_count, m_waiting.begin());
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
