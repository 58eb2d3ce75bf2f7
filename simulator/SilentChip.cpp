// Counts the transfers that it does not acknowledge.
#include "simulator/SilentChip.h"

namespace simulator {

bool SilentChip::Write(Micros /*now*/, const Bytes& /*frame*/) {
    ++m_counters.naks;
    return false;
}

std::optional<Bytes> SilentChip::Read(Micros /*now*/, std::size_t /*count*/) {
    ++m_counters.naks;
    return std::nullopt;
}

void SilentChip::RaiseInterrupt() {
    ++m_counters.interrupts;
    if (m_raised) {
        m_raised();
    }
}

}  // namespace simulator
