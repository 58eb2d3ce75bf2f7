// Requests and their answers, storing, the radio and the status queue.
#include "simulator/FanliChip.h"

#include <algorithm>
#include <utility>

namespace simulator {

namespace {

constexpr std::size_t kHeadSize = 4;
constexpr std::size_t kForeignAddressSize = 2;  // an address write of the other frame format
constexpr std::size_t kBlock = 4;
constexpr std::uint8_t kNoAnswer = 0xFF;
constexpr std::size_t kLengthMask = 0xFF;
constexpr std::uint8_t kStatusSize = 9;
constexpr std::uint8_t kWriteCheckSize = 6;

constexpr std::uint8_t kOperationWrite = 0;
constexpr std::uint8_t kOperationReadRegister = 1;
constexpr std::uint8_t kOperationReadState = 2;

constexpr unsigned kStateInterrupt = 0x0000;
constexpr unsigned kStateRadioOn = 0xF0F1;
constexpr unsigned kStateRadioOff = 0xF0F2;
constexpr unsigned kRegisterWriteCheck = 0xF0F8;

constexpr unsigned kCapability = 0x000C;

constexpr unsigned kEnterSumShift = 16;
constexpr std::uint32_t kSumMask = 0xFFFF;

void PutLittleEndian(Bytes& bytes, std::uint32_t value, unsigned size) {
    for (unsigned i = 0; i < size; ++i) {
        bytes.push_back(static_cast<std::uint8_t>(value >> (8U * i)));
    }
}

std::uint32_t Ticks(Micros now) {
    return static_cast<std::uint32_t>(now / kMilli);
}

}  // namespace

FanliChip::FanliChip(std::uint8_t identity) : Chip(kFanliRegisters) {
    m_memory[0] = identity;
    m_memory.Write(kCapability, {0xE1, 0x10, 0x6D, 0x0F});
}

bool FanliChip::Write(Micros now, const Bytes& frame) {
    ++m_counters.writes;
    m_answer = Answer::kNone;
    if (frame.size() != kForeignAddressSize && !TakeFrame(now, frame)) {
        ++m_counters.malformed;
    }
    return true;
}

bool FanliChip::TakeFrame(Micros now, const Bytes& frame) {
    if (frame.size() < kHeadSize || frame.size() > kFanliLargestFrame) {
        return false;
    }
    const unsigned reg = (static_cast<unsigned>(frame[0]) << 8U) | frame[1];
    const std::uint8_t length = frame[3];
    const std::size_t dataSize = frame.size() - kHeadSize;
    switch (frame[2]) {
        case kOperationWrite:
            if (dataSize != length) {
                return false;
            }
            if (reg == kStateRadioOn || reg == kStateRadioOff) {
                return length == 0 && SwitchRadio(now, reg == kStateRadioOn);
            }
            if (reg % kBlock != 0 || reg + dataSize > kFanliRegisters) {
                return false;
            }
            StoreBlock(now, reg, frame);
            return true;
        case kOperationReadRegister:
            if (reg == kRegisterWriteCheck) {
                return length == kWriteCheckSize && dataSize == 0 &&
                       StartAnswer(now, Answer::kWriteCheck, reg, length);
            }
            return dataSize == 0 && StartAnswer(now, Answer::kMemory, reg, length);
        case kOperationReadState:
            return reg == kStateInterrupt && length == kStatusSize && dataSize == 0 &&
                   StartAnswer(now, Answer::kStatus, reg, length);
        default:
            return false;
    }
}

bool FanliChip::SwitchRadio(Micros now, bool on) {
    if (now < m_radioUntil) {
        ++m_counters.lostWrites;
        return true;
    }
    ForgetPhone(now);
    m_radioBefore = std::exchange(m_radioCommand, on);
    m_radioUntil = now + kFanliRadioTime;
    return true;
}

// A radio that is off does not notice that a phone leaves.
void FanliChip::ForgetPhone(Micros now) {
    m_inField = m_inField && RadioIsOn(now);
}

void FanliChip::StoreBlock(Micros now, unsigned reg, const Bytes& frame) {
    if (frame.size() == kHeadSize) {
        return;
    }
    if (now < std::max(m_storeUntil, m_radioUntil)) {
        ++m_counters.lostWrites;
        if (m_firstFailAddr == 0) {
            m_firstFailAddr = static_cast<std::uint16_t>(reg);
        }
        return;
    }
    m_memory.Write(reg, Bytes(frame.begin() + kHeadSize, frame.end()));
    m_storeRegister = static_cast<std::uint16_t>(reg);
    m_storeUntil = now + kFanliStoreTime;
}

bool FanliChip::StartAnswer(Micros now, Answer answer, unsigned reg, std::uint8_t length) {
    if (now < m_radioUntil) {
        ++m_counters.lostWrites;
        return true;
    }
    if (answer == Answer::kWriteCheck && now < m_storeUntil && m_firstFailAddr == 0) {
        m_firstFailAddr = m_storeRegister;
    }
    m_answer = answer;
    m_answerRegister = reg;
    m_answerLength = length;
    m_answerAt = now + (m_answeredOnce ? kFanliAnswerTime : kFanliFirstAnswerTime);
    return true;
}

std::optional<Bytes> FanliChip::Read(Micros now, std::size_t count) {
    ++m_counters.reads;
    Bytes bytes;
    if (m_answer != Answer::kNone) {
        if (now < m_answerAt) {
            ++m_counters.earlyReads;
            return Bytes(count, kNoAnswer);
        }
        m_answeredOnce = true;
        if (m_answerLength != (count & kLengthMask)) {
            ++m_counters.malformed;
            m_answer = Answer::kNone;
        }
        if (m_answer != Answer::kNone) {
            bytes = m_answer == Answer::kMemory   ? m_memory.Read(m_answerRegister, count)
                    : m_answer == Answer::kStatus ? StatusAnswer(now)
                                                  : WriteCheckAnswer(now);
        }
        m_answer = Answer::kNone;
    }
    bytes.resize(count, kNoAnswer);
    return bytes;
}

Bytes FanliChip::StatusAnswer(Micros now) {
    Event event{kStatusNoData, 0, Ticks(now)};
    if (!m_status.empty()) {
        event = m_status.front();
        m_status.pop_front();
    }
    Bytes bytes{event.status};
    PutLittleEndian(bytes, event.para1, 4);
    PutLittleEndian(bytes, event.ticks, 4);
    return bytes;
}

Bytes FanliChip::WriteCheckAnswer(Micros now) {
    Bytes bytes;
    PutLittleEndian(bytes, m_firstFailAddr, 2);
    PutLittleEndian(bytes, Ticks(now), 4);
    m_firstFailAddr = 0;  // reported once
    return bytes;
}

bool FanliChip::Enter(Micros now) {
    ForgetPhone(now);
    if (!RadioIsOn(now)) {
        return false;
    }
    if (!m_inField) {
        m_inField = true;
        ++m_enterSum;
        FieldEvent(now, kStatusEnterField);
    }
    return true;
}

void FanliChip::Leave(Micros now) {
    ForgetPhone(now);
    if (m_inField) {
        m_inField = false;
        ++m_leaveSum;
        FieldEvent(now, kStatusLeaveField);
    }
}

void FanliChip::FieldEvent(Micros now, std::uint8_t status) {
    RaiseStatus(now, status, ((m_enterSum & kSumMask) << kEnterSumShift) | (m_leaveSum & kSumMask));
}

bool FanliChip::Select(Micros now) {
    return RadioIsOn(now);
}

std::optional<PageQuad> FanliChip::ReadPages(Micros now, unsigned page) {
    if (!RadioIsOn(now) || page * kPageSize >= kFanliEndOfData) {
        return std::nullopt;
    }
    return m_memory.ReadPages(page);
}

bool FanliChip::RaiseStatus(Micros now, std::uint8_t status, std::uint32_t para1) {
    if (m_status.size() == kFanliStatusQueue) {
        return false;
    }
    m_status.push_back({status, para1, Ticks(now)});
    RaiseInterrupt();
    return true;
}

bool FanliChip::FailWriteCheck(std::uint16_t firstFailAddr) {
    m_firstFailAddr = firstFailAddr;
    return true;
}

}  // namespace simulator
