// The simulated keyboard, its phones and the faults of the client.
#include "lab/BluetoothPc.h"

#include <memory>
#include <utility>

#include "lab/BusTrace.h"
#include "lab/DeliveryHabits.h"
#include "lab/Failure.h"
#include "lab/Hex.h"
#include "lab/PcParts.h"
#include "lab/PhoneObject.h"
#include "lab/RealPc.h"
#include "lab/RelayedPc.h"
#include "platform/emulation/Kernel.h"
#include "simulator/Pc.h"

namespace lab {

namespace {

constexpr std::int64_t kThreadEndBound = 5'000;

emulation::Micros Micros(std::int64_t milliseconds) {
    return milliseconds * emulation::kMillisecond;
}

class BluetoothPc : public RealPc {
  public:
    BluetoothPc(const PcOptions& options, Recorder& recorder)
        : RealPc(recorder), m_options(options), m_parts(options, {"ble"}) {}

    void CreateDevices() override {
        RealPc::CreateDevices();
        m_pc = std::make_unique<simulator::Pc>(m_parts.Routes());
        Trace();
        if (m_options.fault) {
            Fault(*m_options.fault, true);
        }
    }

    std::string Route() const override { return m_parts.Route(); }
    bool HasRoute(const std::string& name) const override { return m_parts.HasRoute(name); }
    std::uint64_t KeyboardAddress() const override { return simulator::kDefaultBleAddress; }
    std::string DefaultScript() const override { return VisitScript(Chip()); }

    void Tap(std::int64_t in, std::int64_t stay, const std::string& route) override {
        if (!route.empty() && !HasRoute(route)) {
            throw WrongCall("the PC has no tag on the " + route + " route");
        }
        m_pc->TapPhone(Micros(in), Micros(stay), Reporter());
    }
    void Enter(std::int64_t in) override { m_pc->HoldPhone(Micros(in), Reporter()); }
    void Leave(std::int64_t in) override { m_pc->TakePhone(Micros(in)); }
    void ChipStatus(std::int64_t /*in*/, std::uint8_t /*status*/) override {
        throw WrongCall("chip-status: the ble route has no chip");
    }
    void ChipBits(unsigned /*reg*/, std::uint8_t /*mask*/, std::uint8_t /*value*/) override {
        throw WrongCall("chip-bits: the ble route has no chip");
    }
    void Unplug() override { m_pc->Unplug(); }
    void Plug() override { m_pc->Plug(); }
    void BleClient(const std::map<std::string, std::string>& fields) override {
        ApplyDeliveryHabits(fields);
    }
    void Fault(const std::string& plan, bool apply) override {
        const simulator::PcFaults faults = m_parts.Faults(plan);
        if (apply) {
            m_pc->SetFaults(faults);
        }
    }

    std::string TagMemory() const override {
        const emulation::DeviceLock lock;
        const Bytes bytes = m_pc->TagMemory();
        return std::string(AsText(bytes));
    }

    void WaitForThreads() override {
        // The deferred call thread stays blocked after the last manager is released.
        WaitFor([] { return LibraryThreads() <= 1; }, kThreadEndBound, "");
    }

  private:
    simulator::Phone::Reporter Reporter() {
        return [this](const simulator::PhoneReport& report) {
            recorder().AddNamed(kHostThread, TimeOf(report.time), PhoneObject(report));
        };
    }
    void Trace() {
        // The keyboard lives as long as the PC, and the PC as long as the process.
        const std::shared_ptr<simulator::BluetoothKeyboard> keyboard(std::shared_ptr<void>(),
                                                                     m_pc->bluetooth());
        LinkDockService::SetPeer(TracedPeer(simulator::BlePeerAdapter::Make(keyboard), recorder(),
                                            [this] { return Now(); }));
    }

    PcOptions m_options;
    PcParts m_parts;
    std::unique_ptr<simulator::Pc> m_pc;
};

}  // namespace

Pc* MakeBluetoothPc(const PcOptions& options, Recorder& recorder) {
    return new BluetoothPc(options, recorder);
}

}  // namespace lab
