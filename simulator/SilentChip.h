// A bus address without a chip: no transfer is acknowledged.
#pragma once

#include "simulator/Chip.h"

namespace simulator {

class SilentChip final : public Chip, private ChipBus, private TagRadio, private ChipBackDoor {
  public:
    ChipBus& Bus() override { return *this; }
    TagRadio& Radio() override { return *this; }
    ChipBackDoor& BackDoor() override { return *this; }

  private:
    bool Write(Micros now, const Bytes& frame) override;
    std::optional<Bytes> Read(Micros now, std::size_t count) override;
    void OnInterrupt(std::function<void()> raised) override { m_raised = std::move(raised); }
    bool InterruptAsserted() const override { return false; }

    bool Enter(Micros) override { return false; }
    void Leave(Micros) override {}
    bool Select(Micros) override { return false; }
    std::optional<PageQuad> ReadPages(Micros, unsigned) override { return std::nullopt; }
    bool WritePage(Micros, unsigned, const Page&) override { return false; }

    Bytes Memory(unsigned, std::size_t count) const override { return Bytes(count); }
    void SetMemory(unsigned, const Bytes&) override {}
    bool RadioOn() const override { return false; }
    bool Locked() const override { return true; }
    const ChipCounters& Counters() const override { return m_counters; }
    void RaiseInterrupt() override;
    bool StickBits(unsigned, std::uint8_t, std::uint8_t) override { return false; }
    bool RaiseStatus(Micros, std::uint8_t, std::uint32_t) override { return false; }
    bool FailWriteCheck(std::uint16_t) override { return false; }

    std::function<void()> m_raised;
    ChipCounters m_counters;
};

}  // namespace simulator
