// The FM11N model: registers, storing times, locks, interrupts.
#include "simulator/Fm11nChip.h"

namespace simulator {

namespace {

constexpr std::size_t kAddressSize = 2;
constexpr std::uint8_t kTooEarly = 0xFF;

constexpr unsigned kEndOfIdentity = 0x000A;
constexpr unsigned kCapability = 0x000C;
constexpr unsigned kFirstData = 0x0010;
// Also on the 082C: the mode register lies inside the data of its bigger memory, so phones get the
// data area of the other chips.
constexpr unsigned kEndOfData = 0x0388;
constexpr unsigned kSramConfig = 0x1037;
constexpr unsigned kRadioControl = 0x10A1;

constexpr std::uint8_t kSramEnabled = 0x02;  // in the second byte of the sram configuration
constexpr std::uint8_t kRadioOffBit = 0x20;
constexpr std::uint8_t kRadioOnValue = 0x08;

constexpr unsigned kDynamicLockBytes = 3;

}  // namespace

Fm11nChip::Fm11nChip(const Fm11nTraits& traits) : Chip(kFm11nRegisters), m_traits(traits) {
    m_memory.Write(0,
                   {traits.identity0, 0x41, 0x7C, 0xA8, 0x52, 0x30, 0x09, traits.identity7, 0x44});
    // The capability container of a Type 2 tag: mark, version, size in units of 8, access.
    m_memory.Write(kCapability, {0xE1, 0x10, 0x6D, 0x00});
    m_memory[kSramConfig + 1] = kSramEnabled;
    m_memory[kRadioControl] = kRadioOnValue;
}

bool Fm11nChip::Write(Micros now, const Bytes& frame) {
    if (now < m_busyUntil) {
        return false;
    }
    ++m_counters.writes;
    if (frame.size() < kAddressSize || frame.size() > kFm11nLargestFrame) {
        ++m_counters.malformed;
        return true;
    }
    const unsigned reg = (static_cast<unsigned>(frame[0]) << 8U) | frame[1];
    m_position = reg;
    m_answerAt = now + m_traits.readGap;
    if (frame.size() == kAddressSize) {
        return true;
    }
    for (std::size_t i = kAddressSize; i < frame.size(); ++i) {
        StoreByte(reg + static_cast<unsigned>(i - kAddressSize), frame[i]);
    }
    if (reg < kFm11nFirstVolatile) {
        m_busyUntil = now + kFm11nStoreTime;
    }
    return true;
}

std::optional<Bytes> Fm11nChip::Read(Micros now, std::size_t count) {
    if (now < m_busyUntil) {
        return std::nullopt;
    }
    ++m_counters.reads;
    if (now < m_answerAt) {
        ++m_counters.earlyReads;
        return Bytes(count, kTooEarly);
    }
    m_position += static_cast<unsigned>(count);
    return m_memory.Read(m_position - static_cast<unsigned>(count), count);
}

void Fm11nChip::StoreByte(unsigned reg, std::uint8_t value) {
    if (reg >= kFm11nRegisters) {
        ++m_counters.malformed;
        return;
    }
    if (reg < kEndOfIdentity) {
        return;  // read-only
    }
    const bool onlySets = reg < kFirstData || (reg >= m_traits.dynamicLock &&
                                               reg < m_traits.dynamicLock + kDynamicLockBytes);
    m_memory[reg] = static_cast<std::uint8_t>(onlySets ? m_memory[reg] | value : value);
}

bool Fm11nChip::Enter(Micros now) {
    return Select(now);
}

void Fm11nChip::Leave(Micros /*now*/) {}  // this family has no leave interrupt

bool Fm11nChip::Select(Micros /*now*/) {
    if (!RadioOn()) {
        return false;
    }
    RaiseInterrupt();
    return true;
}

std::optional<PageQuad> Fm11nChip::ReadPages(Micros /*now*/, unsigned page) {
    if (!RadioOn() || page * kPageSize >= kEndOfData) {
        return std::nullopt;
    }
    return m_memory.ReadPages(page);
}

bool Fm11nChip::RadioOn() const {
    return (m_memory.Read(kRadioControl, 1)[0] & kRadioOffBit) == 0;
}

bool Fm11nChip::StickBits(unsigned reg, std::uint8_t mask, std::uint8_t value) {
    m_memory.StickBits(reg, mask, value);
    return true;
}

}  // namespace simulator
