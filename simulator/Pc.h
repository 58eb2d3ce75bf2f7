// A PC with its peripherals, for tests and for the lab. Its constructor registers the devices with
// the emulation, its destructor removes them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "simulator/BlePeerAdapter.h"
#include "simulator/BluetoothKeyboard.h"
#include "simulator/Chip.h"
#include "simulator/FaultyDriver.h"
#include "simulator/HidDriver.h"
#include "simulator/KeyboardMcu.h"
#include "simulator/PcFaults.h"
#include "simulator/PhoneVisit.h"
#include "simulator/SpbDriver.h"

namespace simulator {

/// Why no PC has this chip on these routes; empty when it can. A chip that is unknown is one
/// reason.
std::string ChipProblem(const std::vector<PcRoute>& routes, const std::string& chip);

class Pc {
  public:
    /// Builds the PC with all devices plugged in. `chip` is one of kChipKinds and serves the I2C
    /// and USB routes; throws std::invalid_argument for an unknown one.
    explicit Pc(const std::vector<PcRoute>& routes, const std::string& chip = "fm11nt081");
    ~Pc();
    Pc(const Pc&) = delete;
    Pc& operator=(const Pc&) = delete;

    /// Removes all devices, or adds them again with new drivers. The models keep their memory.
    void Unplug();
    void Plug();

    /// Sets the fault plan of every driver route.
    void Faults(const FaultPlan& plan);
    /// Sets that one and the faults of the Bluetooth client, in place of those that are left.
    void SetFaults(const PcFaults& faults);

    /// Holds a phone to the tag of `route`, or of the first route. Any thread. The report comes on
    /// a timer of the layer, under emulation::DeviceLock: it must not block. Null when the PC does
    /// not have the route.
    std::shared_ptr<PhoneVisit> TapPhone(Micros enterAfter, Micros stay,
                                         Phone::Reporter report = {});
    std::shared_ptr<PhoneVisit> TapPhone(PcRoute route, Micros enterAfter, Micros stay,
                                         Phone::Reporter report = {});

    /// Holds a phone to the tag of the first route until TakePhone; one that is there goes first.
    /// Each happens `in` later. Any thread.
    void HoldPhone(Micros in, Phone::Reporter report);
    void TakePhone(Micros in);

    /// Lets a keyboard send these bytes as one report or notification, `in` later. Does nothing on
    /// a route without a keyboard. Any thread.
    void SendFromKeyboard(PcRoute route, Micros in, const Bytes& message);

    // The back doors. Take emulation::DeviceLock to use them. A route that the PC does not have
    // returns null; chip() and spb() return those of the first driver route.
    Chip* chip();
    SpbDriver* spb();
    FaultyDriver* faulty();  ///< of the first driver route or the HID route
    Chip* chip(PcRoute route);
    Bytes TagMemory();  ///< of the first route, from the image's first byte on
    KeyboardMcu* keyboard() { return m_keyboard.get(); }
    HidDriver* hid();
    BluetoothKeyboard* bluetooth() { return m_bluetooth.get(); }

  private:
    /// A device with a driver: a chip, or the keyboard on HID.
    struct Device {
        PcRoute route;
        std::shared_ptr<Chip> chip;  // null for the keyboard
        std::shared_ptr<ModelDriver> driver;
        std::shared_ptr<FaultyDriver> faulty;
    };

    const Device* Find(PcRoute route) const;

    std::vector<PcRoute> m_routes;
    std::vector<Device> m_devices;  // in the order of kRouteKinds
    std::shared_ptr<KeyboardMcu> m_keyboard;
    std::shared_ptr<BluetoothKeyboard> m_bluetooth;
    std::shared_ptr<BlePeerAdapter> m_peer;
    FaultPlan m_plan;
    std::shared_ptr<PhoneVisit> m_phone;  // guarded by emulation::DeviceLock
    bool m_plugged = false;
};

}  // namespace simulator
