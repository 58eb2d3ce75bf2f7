// Commands to the device process, and its reports as objects of the recorder; the simulated
// Bluetooth keyboard, its phones and the faults of the client.
#include "lab/RealPc.h"

#include <chrono>
#include <map>
#include <memory>
#include <utility>

#include "lab/BusTrace.h"
#include "lab/DeviceProcessClient.h"
#include "lab/Failure.h"
#include "lab/Hex.h"
#include "lab/PcDevices.h"
#include "lab/Words.h"
#include "platform/emulation/Kernel.h"
#include "testdrivers/DeviceLines.h"

namespace lab {

namespace {

class RelayedPc : public RealPc {
  public:
    RelayedPc(const PcOptions& options, Recorder& recorder)
        : RealPc(PcParts(options,
                         NamesOf(simulator::kRouteKinds,
                                 [](const simulator::RouteKind& kind) { return kind.IsDevice(); })),
                 recorder),
          m_options(options),
          m_bus(recorder, Parts()) {}

    void CreateDevices() override {
        RealPc::CreateDevices();
        m_devices =
            std::make_unique<DeviceProcess>([this](const std::string& line) { Take(line); });
        m_devices->Ask("bus on");
        try {
            m_devices->Ask("pc " + Joined(Parts().RouteNames(), ",") + " " + Parts().ChipName());
        } catch (const WrongCall& problem) {
            throw SystemFailure(
                problem.what());  // the options are right, the drivers are not there
        }
        if (m_options.fault) {
            m_devices->Ask("fault " + *m_options.fault);
        }
    }

    void Act(const Command& command) override {
        const std::string in = " " + std::to_string(command.in.value_or(0)) + " ";
        const std::string number = std::to_string(command.number.value_or(kDefaultStay));
        const std::string bits = ToHex(command.argument);
        const std::map<Verb, std::string> lines{
            {Verb::kTap, "tap" + in + number + " " + command.route},
            {Verb::kEnter, "enter" + in},
            {Verb::kLeave, "leave" + in},
            {Verb::kSend, "send" + in + bits},
            {Verb::kChipStatus, "chip-status" + in + number},
            {Verb::kUnplug, "unplug"},
            {Verb::kPlug, "plug"},
            {Verb::kFault, "fault " + command.argument},
            {Verb::kChipBits,
             "chip-bits " + bits.substr(0, 4) + " " +
                 (bits.size() == 8 ? bits.substr(4, 2) + " " + bits.substr(6) : "")}};
        const auto line = lines.find(command.verb);
        if (line != lines.end()) {
            m_devices->Ask(line->second);
        }
    }

    std::string TagMemory() const override {
        return FromHex(m_devices->Ask("memory"), "the tag's memory");
    }

    void WaitForThreads() override {
        WaitForLibraryThreads();
        m_devices->Ask("status");  // what the process reported before has been recorded then
    }

  private:
    /// A report of the device process, on the thread that listens to it.
    void Take(const std::string& line) {
        if (const auto report = simulator::PhoneFrom(line)) {
            recorder().AddNamed(kHostThread, TimeOf(report->time), PhoneObject(*report));
        } else if (auto event = simulator::TraceFrom(line)) {
            NameThreadByRoutine(event->thread);
            event->time = static_cast<emulation::Micros>(
                TimeOf(event->time) * static_cast<double>(emulation::kMillisecond));
            m_bus.Take(*event);
        }
    }

    PcOptions m_options;
    BusTrace m_bus;  // used by the listening thread alone
    std::unique_ptr<DeviceProcess> m_devices;
};

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

    void Act(const Command& command) override { m_devices->Act(command); }
    std::string TagMemory() const override { return m_devices->TagMemory(); }

    void WaitForThreads() override { WaitForLibraryThreads(); }

  private:
    PcOptions m_options;
    std::unique_ptr<PcDevices> m_devices;
};

}  // namespace

Pc& MakePc(const PcOptions& options, Recorder& recorder) {
    static Pc* const pc = [&]() -> Pc* {
        const auto refuse = [](bool given, const char* option) {
            RefuseIf(given, std::string(option) + " needs simulated devices: choose --route " +
                                Joined(NamesOf(simulator::kRouteKinds)));
        };
        RefuseIf(options.check,
                 "--check judges times of the scheduled clock, which Windows does not have");
        if (options.route) {
            const auto* const kind = FindKind(simulator::kRouteKinds, *options.route);
            if (kind != nullptr && !kind->IsDevice()) {
                return new BluetoothPc(options, recorder);
            }
            return new RelayedPc(options, recorder);
        }
        refuse(options.chip.has_value(), "--chip");
        refuse(options.fault.has_value(), "--fault");
        refuse(options.seed.has_value(), "--seed");
        refuse(options.bus, "--bus");
        return new RealPc(PcParts(), recorder);
    }();
    return *pc;
}

}  // namespace lab
