// The registers of a tag, from 0 on: what its driver writes and a phone reads.
#pragma once

#include <map>

#include "simulator/TagRadio.h"

namespace simulator {

class TagMemory {
  public:
    explicit TagMemory(std::size_t registers) : m_bytes(registers) {}

    std::size_t size() const { return m_bytes.size(); }
    /// As stored, whatever bits stick. The register must exist.
    std::uint8_t& operator[](unsigned reg) { return m_bytes[reg]; }

    /// Registers that the tag does not have read as zeros.
    Bytes Read(unsigned reg, std::size_t count) const;
    /// Bytes for registers that the tag does not have are dropped.
    void Write(unsigned reg, const Bytes& bytes);
    PageQuad ReadPages(unsigned page) const;

    /// The bits of `mask` read as in `value` from now on, whatever is written.
    void StickBits(unsigned reg, std::uint8_t mask, std::uint8_t value) {
        m_stuck[reg] = {mask, value};
    }

  private:
    struct Stuck {
        std::uint8_t mask;
        std::uint8_t value;
    };

    Bytes m_bytes;
    std::map<unsigned, Stuck> m_stuck;
};

}  // namespace simulator
