// The PC that a run uses: a simulated one on the emulation (EmulatedPc.cpp), or the real
// drivers of a Windows PC (RealPc.cpp). CMake chooses which one is built.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "lab/Recorder.h"

namespace lab {

struct PcOptions {
    std::optional<std::string> route;     ///< one or several, separated by commas; none: i2c
    std::optional<std::string> chip;      ///< none: fm11nt081
    std::string routePlace = "--route ";  ///< begins messages about the route: where it was given
    std::string chipPlace = "--chip ";    ///< the same of the chip
    std::optional<std::string> fault;
    std::optional<std::uint64_t> seed;  ///< scheduled clock; none: real time
    std::int64_t late = 0;         ///< scheduled clock: how late a thread may run, in milliseconds
    unsigned priorityChanges = 0;  ///< scheduled clock: see emulation::ScheduledOptions
    bool bus = false;
    bool check = false;  ///< the run is judged
};

/// What is alive in the emulation. Threads with which the Bluetooth client delivers are left
/// out, because it keeps them where it has refused to end its deliveries.
struct LiveObjects {
    std::size_t handles = 0;
    std::size_t threads = 0;
    std::size_t requests = 0;
};

/// All times are milliseconds. A pc throws WrongCall for what it cannot do.
class Pc {
  public:
    virtual ~Pc() = default;

    /// Chooses the clock. Call it before every function below and before the configuration's check.
    virtual void ChooseClock() = 0;
    /// Creates the devices and connects log and bus to the recorder.
    virtual void CreateDevices() = 0;

    /// "i2c", "usb", "hid" or "ble"; the first one where the PC has several.
    virtual std::string Route() const = 0;
    virtual bool HasRoute(const std::string& name) const = 0;
    /// The simulated chip's name; empty when there is none.
    virtual std::string Chip() const = 0;
    virtual std::uint64_t KeyboardAddress() const = 0;
    /// Played when no script is given.
    virtual std::string DefaultScript() const = 0;

    virtual double Now() const = 0;
    virtual ThreadKey Thread() const = 0;
    /// True when the predicate became true within the time. It may run on any thread.
    virtual bool WaitFor(const std::function<bool()>& predicate, std::int64_t milliseconds,
                         const char* what) = 0;
    /// Makes WaitFor evaluate its predicate again. Any thread.
    virtual void RecheckWaits() = 0;
    /// Runs `body` on a new thread, for the host of this number (from 1). Nobody joins it.
    virtual void StartThread(unsigned host, std::function<void()> body) = 0;

    // Each happens `in` milliseconds later, and the call returns at once.
    virtual void Tap(std::int64_t in, std::int64_t stay, const std::string& route) = 0;
    virtual void Enter(std::int64_t in) = 0;
    virtual void Leave(std::int64_t in) = 0;
    virtual void ChipStatus(std::int64_t in, std::uint8_t status) = 0;

    virtual void Unplug() = 0;
    virtual void Plug() = 0;
    /// FM11N chips: the bits of `mask` in a register always read as in `value`.
    virtual void ChipBits(unsigned reg, std::uint8_t mask, std::uint8_t value) = 0;
    /// Chooses where the Bluetooth client delivers, by the fields of the script's "ble-client".
    virtual void BleClient(const std::map<std::string, std::string>& fields) = 0;
    /// "none" removes every fault. WrongCall for a plan that cannot be parsed; `apply` false only
    /// parses it.
    virtual void Fault(const std::string& plan, bool apply) = 0;

    /// The tag's memory from the image's first byte on; empty when it cannot be read.
    virtual std::string TagMemory() const = 0;
    virtual LiveObjects Live() const = 0;
    /// Waits, within a bound, for the threads that end after the last manager is released.
    virtual void WaitForThreads() = 0;
};

/// The script of a PC whose phones are simulated, with this chip or none.
inline std::string VisitScript(const std::string& chip) {
    // An unknown chip raises an interrupt only; it does not report visits.
    return chip == "like-fanli" ? "tap 1500\nexpect event 4 within 1000\n"
                                : "tap 1500\nexpect event 3 within 0\n"
                                  "expect event 1 within 0\n";
}

/// Never destroyed: the library's threads may call it until the process ends.
Pc& MakePc(const PcOptions& options, Recorder& recorder);

}  // namespace lab
