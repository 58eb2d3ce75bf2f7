// The HID class driver of a keyboard's microcontroller, and its place in the enumeration.
// Runs under the layer's device lock.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "platform/emulation/Driver.h"
#include "platform/emulation/Kernel.h"
#include "simulator/KeyboardMcu.h"

namespace simulator {

constexpr Micros kDefaultReportLatency = 1 * kMilli;  ///< one poll of the endpoint
constexpr std::size_t kInputQueueLength = 32;         ///< older reports are dropped, as by Windows

class HidDriver : public emulation::Driver, public std::enable_shared_from_this<HidDriver> {
  public:
    explicit HidDriver(std::shared_ptr<KeyboardMcu> mcu, Micros latency = kDefaultReportLatency);
    ~HidDriver() override;

    DWORD Open() override;
    void Close() override;
    DWORD Start(const emulation::RequestPtr& request) override;
    void Cancel(const emulation::RequestPtr& request) override;

    // The back door; under emulation::DeviceLock.
    void Unplug();
    KeyboardMcu& mcu() { return *m_mcu; }
    std::size_t ReadsPending() const { return m_reads.size(); }

  private:
    void Deliver(const Bytes& report);
    void FailAll(DWORD error);

    std::shared_ptr<KeyboardMcu> m_mcu;
    Micros m_latency;
    std::deque<emulation::RequestPtr> m_reads;
    std::vector<emulation::RequestPtr> m_writes;
    std::deque<Bytes> m_input;
    bool m_open = false;
    bool m_gone = false;
};

/// The keyboard as the enumeration shows it: the right path, usage and identity.
emulation::HidInterface KeyboardInterface();

/// Interfaces that differ from the keyboard's in path, usage or product, and one whose path is in
/// upper case. A host must take none of them for the keyboard.
std::vector<emulation::HidInterface> DecoyInterfaces();

/// Registers the decoys, the keyboard, and one more decoy.
void RegisterKeyboard(const std::shared_ptr<emulation::Driver>& driver, bool decoys = true);

}  // namespace simulator
