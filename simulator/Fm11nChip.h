// Chips of the FM11N family. A write frame has two address bytes and data; a read follows an
// address write. Phones see the same memory as a Type 2 tag, where register 16 is page 4.
#pragma once

#include "simulator/Chip.h"

namespace simulator {

/// Time to store a bus write in the EEPROM. Every transfer gets a NAK meanwhile.
constexpr Micros kFm11nStoreTime = 8 * kMilli;

/// Time from an address write until the bytes can be read, on the slow members of the family. An
/// earlier read gets 0xFF bytes.
constexpr Micros kFm11nReadGap = 5 * kMilli;

constexpr std::size_t kFm11nLargestFrame = 2048;
constexpr unsigned kFm11nRegisters = 0x1100;
constexpr unsigned kFm11nFirstVolatile = 0x1000;  ///< from here on nothing takes storing time

/// The differences between the members of the family.
struct Fm11nTraits {
    std::uint8_t identity0;  ///< register 0
    std::uint8_t identity7;  ///< register 7
    unsigned dynamicLock;    ///< register of the dynamic lock bytes
    Micros readGap;
};

class Fm11nChip final : public Chip {
  public:
    explicit Fm11nChip(const Fm11nTraits& traits);

  private:
    bool Write(Micros now, const Bytes& frame) override;
    std::optional<Bytes> Read(Micros now, std::size_t count) override;

    bool Enter(Micros now) override;
    void Leave(Micros now) override;
    bool Select(Micros now) override;
    std::optional<PageQuad> ReadPages(Micros now, unsigned page) override;

    bool RadioOn() const override;
    bool StickBits(unsigned reg, std::uint8_t mask, std::uint8_t value) override;

    void StoreByte(unsigned reg, std::uint8_t value);

    Fm11nTraits m_traits;
    unsigned m_position = 0;
    Micros m_answerAt = 0;
    Micros m_busyUntil = 0;
};

}  // namespace simulator
