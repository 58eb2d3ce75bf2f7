// Where a run plays: a simulated PC behind the hosted layer (StageHosted.cpp), or the real drivers
// of a Windows PC (StageWindows.cpp). The one that is built in is chosen by CMake.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "lab/Recorder.h"

namespace lab {

struct StageOptions {
    std::optional<std::string> route;  ///< i2c where none is given
    std::optional<std::string> chip;   ///< fm11nt081 where none is given
    std::optional<std::string> fault;
    std::optional<std::uint64_t> seed;  ///< scheduled clock; none: real time
    bool bus = false;
};

/// Times in milliseconds. What a stage cannot do it refuses with WrongCall.
class Stage {
  public:
    virtual ~Stage() = default;

    /// Chooses the clock. To be called before anything else, the configuration's check included.
    virtual void SetClock() = 0;
    /// Puts the devices in place.
    virtual void SetScene() = 0;

    /// "i2c", "usb", "hid" or "ble".
    virtual std::string Route() const = 0;
    /// The simulated chip's name; empty where there is none.
    virtual std::string Chip() const = 0;
    /// True where a keyboard's microcontroller may stand behind HID.
    virtual bool HasKeyboardController() const = 0;
    virtual std::uint64_t KeyboardAddress() const = 0;
    /// Played when no script is given.
    virtual std::string DefaultScript() const = 0;

    virtual double Now() const = 0;
    virtual ThreadKey Thread() const = 0;
    /// True when the predicate held before the time was over. It runs on any thread.
    virtual bool WaitFor(const std::function<bool()>& predicate, std::int64_t milliseconds,
                         const char* what) = 0;
    /// Has waiting predicates looked at again. Any thread.
    virtual void Happened() = 0;

    // Each happens `in` milliseconds later, and the call returns at once.
    virtual void Tap(std::int64_t in, std::int64_t stay) = 0;
    virtual void Enter(std::int64_t in) = 0;
    virtual void Leave(std::int64_t in) = 0;
    virtual void ChipStatus(std::int64_t in, std::uint8_t status) = 0;

    virtual void Unplug() = 0;
    virtual void Plug() = 0;
    /// "none" takes back every fault. WrongCall for a plan that cannot be read; `apply` false only
    /// looks.
    virtual void Fault(const std::string& plan, bool apply) = 0;

    /// The tag's memory from the image's first byte on; empty where it cannot be looked at.
    virtual std::string TagMemory() const = 0;
    /// Waits, within a bound, for the threads that end when the last manager has gone.
    virtual void AwaitThreads() = 0;
};

/// Never destroyed: threads of the library may call into it until the process ends.
Stage& MakeStage(const StageOptions& options, Recorder& recorder);

}  // namespace lab
