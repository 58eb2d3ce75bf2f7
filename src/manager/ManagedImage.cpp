#include "manager/ManagedImage.h"

#include <utility>

#include "platform/platform.h"
#include "transfer/LockOrder.h"

platform::Mutex ManagedImage::m_memoryMutex{kMemoryLock};
std::uint64_t ManagedImage::m_newestOrder = 0;

void ManagedImage::Give(const RandomNumber& number) {
    m_number = number;
    ++m_given;
}

ManagedImage::Moment ManagedImage::BeforeWaitingNumber() const {
    return m_waiting > 0 ? m_given - 1 : m_given;
}

const RandomNumber* ManagedImage::GivenSince(Moment moment) const {
    return m_given != moment ? &m_number : nullptr;
}

void ManagedImage::MakeNewest() {
    m_order = ++m_newestOrder;
}

void WaitingNumber::Begin(std::shared_ptr<ManagedImage> image) {
    m_image = std::move(image);
    ++m_image->m_waiting;
}

WaitingNumber::~WaitingNumber() {
    if (m_image != nullptr) {
        platform::Lock lock(ManagedImage::m_memoryMutex);
        --m_image->m_waiting;
    }
}
