#include "manager/ManagedImage.h"

#include <utility>

#include "platform/platform.h"
#include "transfer/LockOrder.h"

platform::Mutex ManagedImage::m_memoryMutex{kMemoryLock};
std::uint64_t ManagedImage::m_newestOrder = 0;

void ManagedImage::SetGiven(const RandomNumber& number) {
    m_number = number;
    ++m_given;
}

ManagedImage::Generation ManagedImage::GenerationIgnoringPending() const {
    return m_pending > 0 ? m_given - 1 : m_given;
}

const RandomNumber* ManagedImage::NewerThan(Generation generation) const {
    return m_given != generation ? &m_number : nullptr;
}

void ManagedImage::MakeNewest() {
    m_order = ++m_newestOrder;
}

void PendingNumber::Begin(std::shared_ptr<ManagedImage> image) {
    m_image = std::move(image);
    ++m_image->m_pending;
}

void PendingNumber::End() {
    if (m_image != nullptr) {
        platform::Lock lock(ManagedImage::m_memoryMutex);
        --m_image->m_pending;
    }
}
