#include "routes/BleDelivery.h"

#include <algorithm>

#include "diagnostics/Log.h"
#include "events/Listener.h"
#include "platform/NeverDestroyed.h"
#include "routes/BtDataNotify.h"
#include "routes/Keyboards.h"

namespace {

// Of this thread: calls of the client that it is inside, and whether it is delivering.
thread_local unsigned g_clientCalls = 0;
thread_local bool g_delivers = false;

const void* ThisThread() {
    return &g_clientCalls;
}

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
    m_changed.NotifyAll();
}

void BleDelivery::DetachSink() {
    SetSink(nullptr);
    platform::Lock lock(m_mutex);
    m_changed.Wait(lock, [this] {
        m_mutex.AssertHeld();
        return !m_isDelivering || g_delivers;
    });
}

bool BleDelivery::IsCurrentSink(const BtDataNotify* sink) {
    const platform::Lock lock(m_mutex);
    return m_sink == sink;
}

void BleDelivery::Add(const BtDataNotify* sink, int event) {
    {
        const platform::Lock lock(m_mutex);
        if (m_sink != sink || m_count == kMostPending) {
            return;
        }
        m_pending[m_count++] = {event, ThisThread(), g_clientCalls > 0 || g_delivers};
    }
    DeliverPending();
}

bool BleDelivery::HasOwn() const {
    return std::any_of(m_pending.begin(), m_pending.begin() + m_count,
                       [](const Pending& pending) { return pending.thread == ThisThread(); });
}

// For an event that came outside a call its own thread waits.
bool BleDelivery::MayDeliverNext() const {
    return !m_isDelivering && (m_pending[0].isInsideCall || m_pending[0].thread == ThisThread());
}

void BleDelivery::DeliverPending() {
    if (g_clientCalls > 0 || g_delivers) {
        return;
    }
    for (;;) {
        int event = 0;
        {
            platform::Lock lock(m_mutex);
            m_changed.Wait(lock, [this] {
                m_mutex.AssertHeld();
                return !HasOwn() || MayDeliverNext();
            });
            if (!HasOwn()) {
                return;
            }
            event = m_pending[0].event;
            --m_count;
            std::copy_n(m_pending.begin() + 1, m_count, m_pending.begin());
            m_isDelivering = true;
        }
        g_delivers = true;
        Deliver(event);
        g_delivers = false;
        const platform::Lock lock(m_mutex);
        m_isDelivering = false;
        m_changed.NotifyAll();
    }
}
