#include "chip/EventSlot.h"

#include <utility>

#include "chip/LockOrder.h"

EventSlot::Event::~Event() {
    CloseHandle(m_handle);
}

bool EventSlot::Create(bool manualReset) {
    const HANDLE handle = CreateEventW(nullptr, manualReset ? TRUE : FALSE, FALSE, nullptr);
    if (handle == nullptr) {
        return false;
    }
    Lease lease = std::make_shared<const Event>(handle);
    platform::Lock lock(m_mutex, kEventSlotLock);
    m_last = lease;
    m_current.swap(lease);  // the old event may close at the end of this scope
    return true;
}

void EventSlot::Close() {
    Lease released;
    platform::Lock lock(m_mutex, kEventSlotLock);
    m_current.swap(released);
}

EventSlot::Lease EventSlot::Get() const {
    platform::Lock lock(m_mutex, kEventSlotLock);
    return m_current ? m_current : m_last.lock();
}

bool EventSlot::IsOpen() const {
    platform::Lock lock(m_mutex, kEventSlotLock);
    return m_current != nullptr;
}

void EventSlot::Signal() const {
    const Lease lease = Get();
    if (lease) {
        SetEvent(lease->handle());
    }
}
