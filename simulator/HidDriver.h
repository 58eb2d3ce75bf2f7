// The HID class driver of a keyboard's microcontroller, and its place in the enumeration.
#pragma once

#include <deque>
#include <memory>
#include <vector>

#include "platform/emulation/Kernel.h"
#include "simulator/KeyboardMcu.h"
#include "simulator/ModelDriver.h"

namespace simulator {

constexpr Micros kReportLatency = 1 * kMilli;  ///< one poll of the endpoint
constexpr std::size_t kInputQueueLength = 32;  ///< older reports are dropped, as by Windows

class HidDriver : public ModelDriver {
  public:
    explicit HidDriver(std::shared_ptr<KeyboardMcu> mcu) : m_mcu(std::move(mcu)) {}

    DWORD Open() override;
    void Close() override;
    DWORD Start(const emulation::RequestPtr& request) override;

    // The back door; under emulation::DeviceLock.
    std::size_t ReadsPending() const { return m_reads.size(); }

  private:
    void Finish(const emulation::RequestPtr& request) override;
    void Deliver(const Bytes& report);

    std::shared_ptr<KeyboardMcu> m_mcu;
    Requests& m_reads = m_first;  // oldest first
    Requests& m_writes = m_second;
    std::deque<Bytes> m_input;
    bool m_open = false;
};

/// The keyboard as the enumeration shows it: the right path, usage and identity.
emulation::HidInterface KeyboardInterface();

/// Interfaces that differ from the keyboard's in path, usage or product, and one whose path is in
/// upper case. A host must take none of them for the keyboard.
std::vector<emulation::HidInterface> DecoyInterfaces();

/// Registers the decoys, the keyboard, and one more decoy.
void RegisterKeyboard(const std::shared_ptr<emulation::Driver>& driver);

}  // namespace simulator
