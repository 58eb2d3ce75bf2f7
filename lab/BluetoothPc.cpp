// The simulated keyboard, its phones and the faults of the client.
#include "lab/RealPc.h"

#include <memory>

#include "lab/PcDevices.h"

namespace lab {

namespace {

constexpr std::int64_t kThreadEndBound = 5'000;

class BluetoothPc : public RealPc {
  public:
    BluetoothPc(const PcOptions& options, Recorder& recorder)
        : RealPc(PcParts(options, {"ble"}), recorder), m_options(options) {}

    void CreateDevices() override {
        RealPc::CreateDevices();
        m_devices =
            std::make_unique<PcDevices>(m_options, Parts(), recorder(),
                                        [this](emulation::Micros time) { return TimeOf(time); });
    }

    std::uint64_t KeyboardAddress() const override { return simulator::kDefaultBleAddress; }
    void Act(const Command& command) override { m_devices->Act(command); }
    std::string TagMemory() const override { return m_devices->TagMemory(); }

    void WaitForThreads() override {
        // The deferred call thread stays blocked after the last manager is released.
        WaitFor([] { return LibraryThreads() <= 1; }, kThreadEndBound, "");
    }

  private:
    PcOptions m_options;
    std::unique_ptr<PcDevices> m_devices;
};

}  // namespace

Pc* MakeBluetoothPc(const PcOptions& options, Recorder& recorder) {
    return new BluetoothPc(options, recorder);
}

}  // namespace lab
