#include "simulator/TagMemory.h"

#include <algorithm>

namespace simulator {

Bytes TagMemory::Read(unsigned reg, std::size_t count) const {
    Bytes bytes(count);
    for (std::size_t i = 0; i < count && reg + i < m_bytes.size(); ++i) {
        bytes[i] = m_bytes[reg + i];
        const auto stuck = m_stuck.find(static_cast<unsigned>(reg + i));
        if (stuck != m_stuck.end()) {
            const auto [mask, value] = stuck->second;
            bytes[i] = static_cast<std::uint8_t>((bytes[i] & ~mask) | (value & mask));
        }
    }
    return bytes;
}

void TagMemory::Write(unsigned reg, const Bytes& bytes) {
    for (std::size_t i = 0; i < bytes.size() && reg + i < m_bytes.size(); ++i) {
        m_bytes[reg + i] = bytes[i];
    }
}

PageQuad TagMemory::ReadPages(unsigned page) const {
    PageQuad quad{};
    const Bytes bytes = Read(page * static_cast<unsigned>(kPageSize), quad.size());
    std::copy(bytes.begin(), bytes.end(), quad.begin());
    return quad;
}

}  // namespace simulator
