// The kernel driver of the I2C and USB routes, with a chip model as its device.
#pragma once

#include "simulator/Chip.h"
#include "simulator/ModelDriver.h"
#include "simulator/PcKinds.h"

namespace simulator {

constexpr DWORD kControlOpen = 0x04001C00;
constexpr DWORD kControlInterrupt = 0x04001C20;  ///< pending until the chip's interrupt
constexpr Micros kDefaultBusLatency = 30;        ///< from a transfer's start to its end
/// Time between two interrupts of a line that stays asserted when no transfer came in between. It
/// keeps a host that never reads the cause from being interrupted without a pause.
constexpr Micros kAssertedInterruptGap = 10 * kMilli;

class SpbDriver : public ModelDriver {
  public:
    explicit SpbDriver(std::shared_ptr<Chip> chip) : m_chip(std::move(chip)) {}

    DWORD Open() override;
    DWORD Start(const emulation::RequestPtr& request) override;

    // The back door; under emulation::DeviceLock.
    void SetBusLatency(Micros latency) { m_busLatency = latency; }

    /// Reads, writes and open requests that were started while another one was pending. A correct
    /// caller causes none.
    std::size_t Violations() const { return m_violations; }
    std::size_t OpenRequests() const { return m_openRequests; }  ///< kControlOpen requests seen
    std::size_t WaitsPending() const { return m_waits.size(); }

  private:
    void Finish(const emulation::RequestPtr& request) override;
    void InterruptRaised();
    void DeliverInterrupt(Micros after);

    std::shared_ptr<Chip> m_chip;
    Micros m_busLatency = kDefaultBusLatency;
    Requests& m_transfers = m_first;  // reads, writes and open requests under way
    Requests& m_waits = m_second;     // interrupt waits, oldest first
    bool m_latched = false;           // an edge came while nobody waited
    bool m_deliveryDue = false;       // a timer that ends the oldest wait runs
    bool m_transferSinceInterrupt = true;
    std::size_t m_violations = 0;
    std::size_t m_openRequests = 0;
};

}  // namespace simulator
