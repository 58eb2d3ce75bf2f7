#include "events/NumberStore.h"

#include <algorithm>

#include "platform/platform.h"

platform::NeverDestroyed<NumberStore> g_tagRandNumber;

void NumberStore::Set(const std::uint8_t* number) {
    platform::Lock lock(m_mutex);
    std::copy_n(number, kNumberSize, m_number.begin());
}

RandomNumber NumberStore::Get() const {
    platform::Lock lock(m_mutex);
    return m_number;
}
