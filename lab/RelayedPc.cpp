// Commands to the device process, and its reports as objects of the recorder.
#include "lab/RelayedPc.h"

#include <chrono>
#include <memory>
#include <sstream>
#include <utility>

#include "lab/BusTrace.h"
#include "lab/DeviceProcessClient.h"
#include "lab/Failure.h"
#include "lab/Hex.h"
#include "lab/PcParts.h"
#include "lab/PhoneObject.h"
#include "lab/RealPc.h"
#include "platform/emulation/Kernel.h"
#include "testdrivers/DeviceLines.h"

#include <tlhelp32.h>

namespace lab {

namespace {

constexpr std::int64_t kThreadEndBound = 5'000;

HMODULE ModuleOf(const void* code) {
    HMODULE module = nullptr;
    GetModuleHandleExW(
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
        static_cast<LPCWSTR>(code), &module);
    return module;
}

}  // namespace

unsigned LibraryThreads() {
    const HMODULE library = GetModuleHandleW(L"tagport.dll");
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    unsigned count = 0;
    for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
        if (entry.th32OwnerProcessID == GetCurrentProcessId()) {
            const void* routine = RoutineOf(entry.th32ThreadID);
            count += routine != nullptr && ModuleOf(routine) == library ? 1U : 0U;
        }
    }
    CloseHandle(snapshot);
    return count;
}

namespace {

class RelayedPc : public RealPc {
  public:
    RelayedPc(const PcOptions& options, Recorder& recorder)
        : RealPc(recorder),
          m_options(options),
          m_parts(options, {"i2c", "usb", "hid"}),
          m_bus(recorder, BusMeaning(Route() == "hid" ? BusFormat::kReports : BusFormat::kChip,
                                     Route() == "i2c" && m_parts.HasFanli())) {}

    void CreateDevices() override {
        RealPc::CreateDevices();
        m_devices =
            std::make_unique<DeviceProcess>([this](const std::string& line) { Take(line); });
        m_devices->Ask("bus on");
        try {
            m_devices->Ask("pc " + *m_options.route + " " + m_parts.ChipToBuild());
        } catch (const WrongCall& problem) {
            throw SystemFailure(
                problem.what());  // the options are right, the drivers are not there
        }
        if (m_options.fault) {
            Fault(*m_options.fault, true);
        }
    }

    std::string Route() const override { return m_parts.Route(); }
    bool HasRoute(const std::string& name) const override { return m_parts.HasRoute(name); }
    std::string Chip() const override { return m_parts.Chip(); }
    std::string DefaultScript() const override { return VisitScript(Chip()); }

    void Tap(std::int64_t in, std::int64_t stay, const std::string& route) override {
        m_devices->Ask("tap " + std::to_string(in) + " " + std::to_string(stay) + " " + route);
    }
    void Enter(std::int64_t in) override { m_devices->Ask("enter " + std::to_string(in)); }
    void Leave(std::int64_t in) override { m_devices->Ask("leave " + std::to_string(in)); }
    void ChipStatus(std::int64_t in, std::uint8_t status) override {
        m_devices->Ask("chip-status " + std::to_string(in) + " " + std::to_string(status));
    }
    void Unplug() override { m_devices->Ask("unplug"); }
    void Plug() override { m_devices->Ask("plug"); }
    void ChipBits(unsigned reg, std::uint8_t mask, std::uint8_t value) override {
        std::ostringstream command;
        command << std::hex << "chip-bits " << reg << ' ' << unsigned{mask} << ' '
                << unsigned{value};
        m_devices->Ask(command.str());
    }
    void Fault(const std::string& plan, bool apply) override {
        m_parts.Faults(plan);
        if (apply) {
            m_devices->Ask("fault " + plan);
        }
    }

    std::string TagMemory() const override {
        return FromHex(m_devices->Ask("memory"), "the tag's memory");
    }

    void WaitForThreads() override {
        // The deferred call thread stays blocked after the last manager is released.
        WaitFor([] { return LibraryThreads() <= 1; }, kThreadEndBound, "");
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
    PcParts m_parts;
    BusTrace m_bus;  // used by the listening thread alone
    std::unique_ptr<DeviceProcess> m_devices;
};

}  // namespace

Pc* MakeRelayedPc(const PcOptions& options, Recorder& recorder) {
    return new RelayedPc(options, recorder);
}

}  // namespace lab
