// The simulated PC on the emulation.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <utility>
#include <vector>

#include "lab/BusTrace.h"
#include "lab/DeliveryHabits.h"
#include "lab/Failure.h"
#include "lab/Hex.h"
#include "lab/Pc.h"
#include "lab/PcParts.h"
#include "lab/PhoneObject.h"
#include "lab/Script.h"
#include "platform/emulation/Kernel.h"
#include "platform/services/TraceLog.h"
#include "simulator/Pc.h"

namespace lab {

namespace {

constexpr emulation::Micros kThreadEndBound = 5 * emulation::kSecond;

emulation::Micros FromMilliseconds(std::int64_t milliseconds) {
    return milliseconds * emulation::kMillisecond;
}

double ToMilliseconds(emulation::Micros time) {
    return static_cast<double>(time) / static_cast<double>(emulation::kMillisecond);
}

void RecordLogLine(int level, const std::wstring& line, void* context) {
    auto& recorder = *static_cast<Recorder*>(context);
    const ThreadKey thread = emulation::CurrentThread();
    const std::string text = Narrow(line);
    recorder.NameThreadByLogLine(thread, text);
    Json object;
    object["kind"] = "log";
    object["level"] = level;
    object["line"] = text;
    recorder.Add(thread, ToMilliseconds(emulation::Now()), std::move(object));
}

using Body = std::function<void()>;

// A routine for each host: the recorder names threads after their routines.
template <unsigned Host>
DWORD WINAPI RunHost(LPVOID argument) {
    (*std::unique_ptr<Body>(static_cast<Body*>(argument)))();
    return 0;
}
constexpr LPTHREAD_START_ROUTINE kHostRoutines[kMostHosts] = {RunHost<1>, RunHost<2>, RunHost<3>,
                                                              RunHost<4>};

class EmulatedPc : public Pc {
  public:
    EmulatedPc(const PcOptions& options, Recorder& recorder)
        : m_options(options),
          m_recorder(recorder),
          m_parts(options, {"i2c", "usb", "hid", "ble"}),
          m_bus(recorder, BusMeaning(Format(), m_parts.Route() == "i2c" && m_parts.HasFanli())) {}

    void ChooseClock() override {
        if (m_options.seed) {
            emulation::ScheduledOptions options;
            options.seed = *m_options.seed;
            options.maxSilence = 0;  // the output may be on its way into a pager
            options.maxLateness = FromMilliseconds(m_options.late);
            options.priorityChangePoints = m_options.priorityChanges;
            emulation::UseScheduledClock(options);
        }
        emulation::SetStallHandler([this](const std::string& report) {
            m_recorder.Finish();
            std::fflush(stdout);
            std::fprintf(stderr, "tagport-lab: the run can make no progress\n%s", report.c_str());
            std::fflush(stderr);
            std::_Exit(kExitFailed);  // every thread is blocked: no orderly end is possible
        });
    }

    void CreateDevices() override {
        m_recorder.NameThread(emulation::CurrentThread(), kHostThread);
        TraceLogger::SetSink(RecordLogLine, &m_recorder);
        emulation::SetTracer([this](const emulation::TraceEvent& event) { m_bus.Take(event); });
        m_pc = std::make_unique<simulator::Pc>(m_parts.Routes(), m_parts.ChipToBuild());
        TraceBluetooth();
        if (m_options.fault) {
            Fault(*m_options.fault, true);
        }
    }

    std::string Route() const override { return m_parts.Route(); }
    std::string Chip() const override { return m_parts.Chip(); }
    bool HasRoute(const std::string& name) const override { return m_parts.HasRoute(name); }
    std::uint64_t KeyboardAddress() const override { return simulator::kDefaultBleAddress; }

    std::string DefaultScript() const override { return VisitScript(Chip()); }

    double Now() const override { return ToMilliseconds(emulation::Now()); }
    ThreadKey Thread() const override { return emulation::CurrentThread(); }
    bool WaitFor(const std::function<bool()>& predicate, std::int64_t milliseconds,
                 const char* what) override {
        return emulation::WaitFor(predicate, FromMilliseconds(milliseconds), what);
    }
    void RecheckWaits() override {
        emulation::After(0, [] {});
    }
    void StartThread(unsigned host, Body body) override {
        CloseHandle(CreateThread(nullptr, 0, kHostRoutines[host - 1], new Body(std::move(body)), 0,
                                 nullptr));
    }

    void Tap(std::int64_t in, std::int64_t stay, const std::string& route) override {
        const std::string& name = route.empty() ? m_parts.Route() : route;
        if (!HasRoute(name)) {
            throw WrongCall("the PC has no tag on the " + name + " route");
        }
        m_pc->TapPhone(*simulator::RouteByName(name), FromMilliseconds(in), FromMilliseconds(stay),
                       Reporter());
    }
    void Enter(std::int64_t in) override { m_pc->HoldPhone(FromMilliseconds(in), Reporter()); }
    void Leave(std::int64_t in) override { m_pc->TakePhone(FromMilliseconds(in)); }
    void ChipStatus(std::int64_t in, std::uint8_t status) override {
        if (!m_parts.HasFanli()) {
            throw WrongCall("chip-status: only the chips fanli and like-fanli have one, not " +
                            (Chip().empty() ? "the " + Route() + " route" : Chip()));
        }
        emulation::After(FromMilliseconds(in), [this, status] {
            m_pc->chip()->BackDoor().RaiseStatus(emulation::Now(), status, 0);
        });
    }

    void ChipBits(unsigned reg, std::uint8_t mask, std::uint8_t value) override {
        const emulation::DeviceLock lock;
        if (Chip().empty() || !m_pc->chip()->BackDoor().StickBits(reg, mask, value)) {
            throw WrongCall("chip-bits: only FM11N chips have them");
        }
    }
    void BleClient(const std::map<std::string, std::string>& fields) override {
        ApplyDeliveryHabits(fields);
    }

    void Unplug() override { m_pc->Unplug(); }
    void Plug() override { m_pc->Plug(); }

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

    LiveObjects Live() const override {
        const emulation::LiveCounts live = emulation::Live();
        const std::size_t clients = LinkDockService::DeliveryThreads();  // a handle for each
        return {live.handles - clients, live.threads - clients, live.requests};
    }

    void WaitForThreads() override {
        // The deferred call thread stays blocked after the last manager is released.
        emulation::WaitFor([this] { return m_bus.Threads() <= 1; }, kThreadEndBound,
                           "the threads that end with the last manager");
    }

  private:
    BusFormat Format() const {
        return m_parts.Route() == "hid"   ? BusFormat::kReports
               : m_parts.Route() == "ble" ? BusFormat::kFrames
                                          : BusFormat::kChip;
    }
    simulator::Phone::Reporter Reporter() {
        return [this](const simulator::PhoneReport& report) {
            m_recorder.AddNamed(kHostThread, ToMilliseconds(report.time), PhoneObject(report));
        };
    }
    void TraceBluetooth() {
        if (m_pc->bluetooth() == nullptr) {
            return;
        }
        // The keyboard lives as long as the PC, and the PC as long as the process.
        const std::shared_ptr<simulator::BluetoothKeyboard> keyboard(std::shared_ptr<void>(),
                                                                     m_pc->bluetooth());
        LinkDockService::SetPeer(TracedPeer(simulator::BlePeerAdapter::Make(keyboard), m_recorder,
                                            [this] { return Now(); }));
    }

    PcOptions m_options;
    Recorder& m_recorder;
    PcParts m_parts;
    BusTrace m_bus;
    std::unique_ptr<simulator::Pc> m_pc;
};

}  // namespace

Pc& MakePc(const PcOptions& options, Recorder& recorder) {
    static EmulatedPc* const pc = new EmulatedPc(options, recorder);
    return *pc;
}

}  // namespace lab
