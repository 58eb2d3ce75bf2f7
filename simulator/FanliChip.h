// The chip with a four-byte head in its frames. Its processor needs time for answers, for storing
// and for switching the radio, and has a status for each interrupt.
#pragma once

#include <deque>

#include "simulator/Chip.h"

namespace simulator {

constexpr std::uint8_t kFanliIdentity = 0x22;
constexpr std::uint8_t kLikeFanliIdentity = 0x21;

/// Time from a request's head until the answer can be read. An earlier read gets 0xFF bytes. The
/// first answer after power-up takes longer.
constexpr Micros kFanliAnswerTime = 30 * kMilli;
constexpr Micros kFanliFirstAnswerTime = 60 * kMilli;

/// Time to store a block. Another block that arrives meanwhile is acknowledged and lost, and the
/// next write check returns its register. A write check that arrives meanwhile returns that of
/// the block that is being stored.
constexpr Micros kFanliStoreTime = 30 * kMilli;

/// Time to switch the radio, which stays as it was until then. A frame that arrives meanwhile is
/// acknowledged and lost; the next write check returns the register of a lost block.
constexpr Micros kFanliRadioTime = 30 * kMilli;

constexpr std::size_t kFanliLargestFrame = 250;

constexpr unsigned kFanliRegisters = 0x0400;
constexpr unsigned kFanliEndOfData = 0x0388;
constexpr std::size_t kFanliStatusQueue = 32;  ///< events beyond it are lost

/// `intStatus` values.
constexpr std::uint8_t kStatusEnterField = 1;
constexpr std::uint8_t kStatusLeaveField = 2;
constexpr std::uint8_t kStatusMcuStart = 3;
constexpr std::uint8_t kStatusMcuReset = 4;
constexpr std::uint8_t kStatusNoData = 255;

class FanliChip final : public Chip {
  public:
    explicit FanliChip(std::uint8_t identity);

  private:
    bool Write(Micros now, const Bytes& frame) override;
    std::optional<Bytes> Read(Micros now, std::size_t count) override;
    bool InterruptAsserted() const override { return !m_status.empty(); }

    bool Enter(Micros now) override;
    void Leave(Micros now) override;
    bool Select(Micros now) override;
    std::optional<PageQuad> ReadPages(Micros now, unsigned page) override;

    bool RadioOn() const override { return m_radioCommand; }
    bool RaiseStatus(Micros now, std::uint8_t status, std::uint32_t para1) override;
    bool FailWriteCheck(std::uint16_t firstFailAddr) override;

    enum class Answer { kNone, kMemory, kStatus, kWriteCheck };
    struct Event {
        std::uint8_t status;
        std::uint32_t para1;
        std::uint32_t ticks;
    };

    bool TakeFrame(Micros now, const Bytes& frame);
    bool SwitchRadio(Micros now, bool on);
    bool RadioIsOn(Micros now) const { return now < m_radioUntil ? m_radioBefore : m_radioCommand; }
    void ForgetPhone(Micros now);
    void StoreBlock(Micros now, unsigned reg, const Bytes& frame);
    bool StartAnswer(Micros now, Answer answer, unsigned reg, std::uint8_t length);
    Bytes StatusAnswer(Micros now);
    Bytes WriteCheckAnswer(Micros now);
    void FieldEvent(Micros now, std::uint8_t status);

    Answer m_answer = Answer::kNone;
    unsigned m_answerRegister = 0;
    std::uint8_t m_answerLength = 0;  // low eight bits
    Micros m_answerAt = 0;
    bool m_answeredOnce = false;
    Micros m_storeUntil = 0;
    std::uint16_t m_storeRegister = 0;
    std::uint16_t m_firstFailAddr = 0;
    bool m_radioCommand = true;
    bool m_radioBefore = true;  // state of the radio until m_radioUntil
    Micros m_radioUntil = 0;
    bool m_inField = false;
    std::uint32_t m_enterSum = 0;
    std::uint32_t m_leaveSum = 0;
    std::deque<Event> m_status;
};

}  // namespace simulator
