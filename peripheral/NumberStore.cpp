#include "peripheral/NumberStore.h"

#include <algorithm>

#include "chip/LockOrder.h"
#include "platform/platform.h"

void NumberStore::Set(const std::uint8_t* number) {
    platform::Lock lock(m_mutex, kNumberStoreLock);
    std::copy_n(number, kNumberSize, m_number.begin());
}

RandomNumber NumberStore::Get() const {
    platform::Lock lock(m_mutex, kNumberStoreLock);
    return m_number;
}
