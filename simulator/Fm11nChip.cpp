// The FM11N model: registers, storing times, locks, interrupts.
#include "simulator/Fm11nChip.h"

#include <algorithm>

namespace simulator {

namespace {

constexpr std::size_t kAddressSize = 2;
constexpr std::uint8_t kTooEarly = 0xFF;

constexpr unsigned kEndOfIdentity = 0x000A;
constexpr unsigned kStaticLockLow = 0x000A;
constexpr unsigned kStaticLockHigh = 0x000B;
constexpr unsigned kCapability = 0x000C;
constexpr unsigned kFirstData = 0x0010;
constexpr unsigned kFdMode = 0x038C;
constexpr unsigned kSramConfig = 0x1037;
constexpr unsigned kRadioControl = 0x10A1;

constexpr std::uint8_t kSramEnabled = 0x02;  // in the second byte of the sram configuration
constexpr std::uint8_t kRadioOffBit = 0x20;
constexpr std::uint8_t kRadioOnValue = 0x08;

// The capability container of a Type 2 tag: mark, version, size in units of 8, access.
constexpr std::array<std::uint8_t, 4> kCapabilityBytes = {0xE1, 0x10, 0x6D, 0x00};

// The static lock has a bit for each of the pages 4 to 15, the dynamic lock a bit for every 16
// pages from page 16 on.
constexpr unsigned kFirstDynamicPage = 16;
constexpr unsigned kPagesPerDynamicBit = 16;
constexpr unsigned kDynamicLockBytes = 3;
constexpr unsigned kBitsPerByte = 8;

}  // namespace

Fm11nChip::Fm11nChip(const Fm11nTraits& traits) : m_traits(traits) {
    const std::array<std::uint8_t, 9> identity = {
        traits.identity0, 0x41, 0x7C, 0xA8, 0x52, 0x30, 0x09, traits.identity7, 0x44};
    std::copy(identity.begin(), identity.end(), m_registers.begin());
    std::copy(kCapabilityBytes.begin(), kCapabilityBytes.end(), m_registers.begin() + kCapability);
    m_registers[kFdMode] = traits.startFdMode;
    m_registers[kSramConfig + 1] = kSramEnabled;
    m_registers[kRadioControl] = kRadioOnValue;
}

bool Fm11nChip::Write(Micros now, const Bytes& frame) {
    if (now < m_busyUntil) {
        ++m_counters.naks;
        return false;
    }
    ++m_counters.writes;
    if (frame.size() < kAddressSize || frame.size() > kFm11nLargestFrame) {
        ++m_counters.malformed;
        return true;
    }
    const unsigned reg = (static_cast<unsigned>(frame[0]) << kBitsPerByte) | frame[1];
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
        ++m_counters.naks;
        return std::nullopt;
    }
    ++m_counters.reads;
    if (now < m_answerAt) {
        ++m_counters.earlyReads;
        return Bytes(count, kTooEarly);
    }
    Bytes bytes(count);
    for (std::uint8_t& byte : bytes) {
        byte = RegisterValue(m_position++);
    }
    return bytes;
}

std::uint8_t Fm11nChip::RegisterValue(unsigned reg) const {
    if (reg >= kFm11nRegisters) {
        return 0;
    }
    const auto stuck = m_stuck.find(reg);
    if (stuck == m_stuck.end()) {
        return m_registers[reg];
    }
    return static_cast<std::uint8_t>((m_registers[reg] & ~stuck->second.mask) |
                                     (stuck->second.value & stuck->second.mask));
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
    m_registers[reg] = static_cast<std::uint8_t>(onlySets ? m_registers[reg] | value : value);
}

bool Fm11nChip::PageLocked(unsigned page) const {
    if (page < kFirstDynamicPage) {
        const unsigned reg = page < kBitsPerByte ? kStaticLockLow : kStaticLockHigh;
        return ((m_registers[reg] >> (page % kBitsPerByte)) & 1U) != 0;
    }
    const unsigned bit = (page - kFirstDynamicPage) / kPagesPerDynamicBit;
    const unsigned reg = m_traits.dynamicLock + bit / kBitsPerByte;
    return ((m_registers[reg] >> (bit % kBitsPerByte)) & 1U) != 0;
}

bool Fm11nChip::Enter(Micros /*now*/) {
    if (!RadioOn()) {
        return false;
    }
    RaiseInterrupt();
    return true;
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
    if (!RadioOn() || page * kPageSize >= m_traits.endOfData) {
        return std::nullopt;
    }
    ++m_counters.rfReads;
    PageQuad quad{};
    for (std::size_t i = 0; i < quad.size(); ++i) {
        quad[i] = RegisterValue(page * static_cast<unsigned>(kPageSize) + static_cast<unsigned>(i));
    }
    return quad;
}

bool Fm11nChip::WritePage(Micros /*now*/, unsigned page, const Page& bytes) {
    const std::size_t reg = page * kPageSize;
    if (!RadioOn() || reg < kFirstData || reg >= m_traits.endOfData || PageLocked(page)) {
        return false;
    }
    std::copy(bytes.begin(), bytes.end(), m_registers.begin() + static_cast<std::ptrdiff_t>(reg));
    ++m_counters.rfWrites;
    return true;
}

Bytes Fm11nChip::Memory(unsigned reg, std::size_t count) const {
    Bytes bytes(count);
    for (std::uint8_t& byte : bytes) {
        byte = RegisterValue(reg++);
    }
    return bytes;
}

void Fm11nChip::SetMemory(unsigned reg, const Bytes& bytes) {
    for (std::size_t i = 0; i < bytes.size() && reg + i < kFm11nRegisters; ++i) {
        m_registers[reg + i] = bytes[i];
    }
}

bool Fm11nChip::RadioOn() const {
    return (RegisterValue(kRadioControl) & kRadioOffBit) == 0;
}

bool Fm11nChip::Locked() const {
    for (unsigned page = kFirstDataPage; page * kPageSize < m_traits.endOfData; ++page) {
        if (!PageLocked(page)) {
            return false;
        }
    }
    return true;
}

bool Fm11nChip::StickBits(unsigned reg, std::uint8_t mask, std::uint8_t value) {
    m_stuck[reg] = {mask, value};
    return true;
}

}  // namespace simulator
