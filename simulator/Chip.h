// A tag chip as a model without threads: its caller passes bytes and the time, and gets bytes and
// interrupts. It has three interfaces: for the kernel driver, for phones, and for tests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "simulator/Basics.h"
#include "simulator/TagMemory.h"

namespace simulator {

/// The kernel driver's side.
class ChipBus {
  public:
    virtual ~ChipBus() = default;

    /// One write transfer. False: the chip did not acknowledge its address.
    virtual bool Write(Micros now, const Bytes& frame) = 0;

    /// One read transfer of `count` bytes; nothing when the chip did not acknowledge.
    virtual std::optional<Bytes> Read(Micros now, std::size_t count) = 0;

    /// `raised` is called at each rising edge of the interrupt line, inside the call that causes
    /// it. It must not call the chip.
    virtual void OnInterrupt(std::function<void()> raised) = 0;

    /// The line's level; always false for a chip that only pulses.
    virtual bool InterruptAsserted() const { return false; }
};

struct ChipCounters {
    std::size_t writes = 0;      ///< write transfers acknowledged
    std::size_t reads = 0;       ///< read transfers acknowledged
    std::size_t earlyReads = 0;  ///< reads before the answer was ready
    std::size_t lostWrites = 0;  ///< frames acknowledged but ignored, the chip being busy
    std::size_t malformed = 0;   ///< frames acknowledged that make no sense to the chip, and reads
                                 ///< of another length than their request said
    std::size_t interrupts = 0;  ///< times that the line was raised
};

/// For tests and for the lab. A setting that the chip does not have returns false.
class ChipBackDoor {
  public:
    virtual ~ChipBackDoor() = default;

    virtual Bytes Memory(unsigned reg, std::size_t count) const = 0;
    virtual void SetMemory(unsigned reg, const Bytes& bytes) = 0;
    /// As commanded last; a Fanli chip takes kFanliRadioTime to obey.
    virtual bool RadioOn() const = 0;
    virtual const ChipCounters& Counters() const = 0;

    /// Raises the interrupt without a cause. For Fanli with a status see RaiseStatus.
    virtual void RaiseInterrupt() = 0;

    /// FM11N: the bits of `mask` in a register read as in `value` from now on, whatever is written.
    virtual bool StickBits(unsigned /*reg*/, std::uint8_t /*mask*/, std::uint8_t /*value*/) {
        return false;
    }

    /// Fanli: puts an event into the status queue.
    virtual bool RaiseStatus(Micros /*now*/, std::uint8_t /*status*/, std::uint32_t /*para1*/) {
        return false;
    }

    /// Fanli: the next write check reports this register as the first that failed.
    virtual bool FailWriteCheck(std::uint16_t /*firstFailAddr*/) { return false; }
};

/// What all chip models have in common: the three interfaces in one object, the interrupt line, the
/// registers and the counters.
class Chip : protected ChipBus, protected TagRadio, protected ChipBackDoor {
  public:
    ChipBus& Bus() { return *this; }
    TagRadio& Radio() { return *this; }
    ChipBackDoor& BackDoor() { return *this; }

  protected:
    explicit Chip(std::size_t registers = 0) : m_memory(registers) {}

    void OnInterrupt(std::function<void()> raised) override { m_raised = std::move(raised); }
    Bytes Memory(unsigned reg, std::size_t count) const override {
        return m_memory.Read(reg, count);
    }
    void SetMemory(unsigned reg, const Bytes& bytes) override { m_memory.Write(reg, bytes); }
    const ChipCounters& Counters() const override { return m_counters; }
    void RaiseInterrupt() override {
        ++m_counters.interrupts;
        if (m_raised) {
            m_raised();
        }
    }

    TagMemory m_memory;
    ChipCounters m_counters;

  private:
    std::function<void()> m_raised;
};

/// A chip of kChipKinds by its name; null for any other name.
std::unique_ptr<Chip> MakeChip(const std::string& name);

}  // namespace simulator
