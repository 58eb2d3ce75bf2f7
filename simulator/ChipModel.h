// What all chip models have in common: the three interfaces in one object, the interrupt line, the
// counters, and settings of the back door that a chip does not have.
#pragma once

#include <utility>

#include "simulator/Chip.h"

namespace simulator {

class ChipModel : public Chip, protected ChipBus, protected TagRadio, protected ChipBackDoor {
  public:
    ChipBus& Bus() override { return *this; }
    TagRadio& Radio() override { return *this; }
    ChipBackDoor& BackDoor() override { return *this; }

  protected:
    void OnInterrupt(std::function<void()> raised) override { m_raised = std::move(raised); }
    bool InterruptAsserted() const override { return false; }
    const ChipCounters& Counters() const override { return m_counters; }
    void RaiseInterrupt() override {
        ++m_counters.interrupts;
        if (m_raised) {
            m_raised();
        }
    }
    bool StickBits(unsigned, std::uint8_t, std::uint8_t) override { return false; }
    bool RaiseStatus(Micros, std::uint8_t, std::uint32_t) override { return false; }
    bool FailWriteCheck(std::uint16_t) override { return false; }

    ChipCounters m_counters;

  private:
    std::function<void()> m_raised;
};

}  // namespace simulator
