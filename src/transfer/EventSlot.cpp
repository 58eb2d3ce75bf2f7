#include "transfer/EventSlot.h"

#include "platform/Check.h"

// Below, a lease that is released is always declared before the lock, so that its handle is closed
// after the lock has been released.

void EventSlot::AddKeeper() {
    platform::Lock lock(m_mutex);
    ++m_keepers;
}

void EventSlot::RemoveKeeper() {
    Lease released;
    platform::Lock lock(m_mutex);
    TAGPORT_CHECK(m_keepers > 0);
    if (--m_keepers == 0 && m_closeLater) {
        m_current.swap(released);
    }
}

bool EventSlot::Create(bool manualReset) {
    // The owner first: running out of memory must not leak a handle.
    const auto event = std::make_shared<Event>();
    event->m_handle =
        UniqueHandle(CreateEventW(nullptr, manualReset ? TRUE : FALSE, FALSE, nullptr));
    if (!event->m_handle) {
        return false;
    }
    Lease replaced = event;
    platform::Lock lock(m_mutex);
    m_closeLater = false;
    m_current.swap(replaced);
    return true;
}

void EventSlot::Close() {
    Lease released;
    platform::Lock lock(m_mutex);
    if (m_keepers > 0) {
        m_closeLater = true;
        return;
    }
    m_current.swap(released);
}

EventSlot::Lease EventSlot::Get() const {
    platform::Lock lock(m_mutex);
    return m_current;
}

void EventSlot::Signal() const {
    const Lease lease = Get();
    if (lease) {
        SetEvent(lease->handle());
    }
}
