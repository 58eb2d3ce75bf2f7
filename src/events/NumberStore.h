// A 32-byte random number that one thread replaces while others read it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/NeverDestroyed.h"
#include "platform/platform.h"
#include "transfer/LockOrder.h"

inline constexpr std::size_t kNumberSize = 32;

using RandomNumber = std::array<std::uint8_t, kNumberSize>;

/// All zero until the first Set. Never torn: a short lock of its own covers each access.
class NumberStore {
  public:
    void Set(const std::uint8_t* number);
    RandomNumber Get() const;

  private:
    mutable platform::Mutex m_mutex{kNumberStoreLock};
    RandomNumber m_number TAGPORT_GUARDED_BY(m_mutex){};
};

/// The random number as last read from the chip. Written by number reads, read by all that deliver
/// events of the driver routes.
extern platform::NeverDestroyed<NumberStore> g_tagRandNumber;
