// Wires models, drivers and faults to the layer.
#include "simulator/Pc.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "platform/emulation/Kernel.h"

namespace simulator {

namespace {

constexpr std::size_t kTagMemory = 255;

std::wstring PathOf(PcRoute route) {
    return std::wstring(KindOf(route).driver);
}

template <class Type>
bool Has(const std::vector<Type>& all, const Type& one) {
    return std::find(all.begin(), all.end(), one) != all.end();
}

}  // namespace

std::string ChipProblem(const std::vector<PcRoute>& routes, const std::string& chip) {
    const auto hasChip = [](PcRoute route) { return !KindOf(route).IsKeyboard(); };
    if (std::none_of(routes.begin(), routes.end(), hasChip)) {
        return "";
    }
    const ChipKind* const kind = FindKind(kChipKinds, chip);
    if (kind == nullptr) {
        std::string names;
        for (const ChipKind& one : kChipKinds) {
            names += (names.empty() ? "" : ", ") + std::string(one.name);
        }
        return "there is no such chip; expected one of " + names;
    }
    return kind->NeedsDetection() && Has(routes, PcRoute::kUsb)
               ? "not possible on the usb route, where every chip has the frames of FM11N chips"
               : "";
}

Pc::Pc(const std::vector<PcRoute>& routes, const std::string& chip) : m_routes(routes) {
    for (const PcRoute route : {PcRoute::kI2c, PcRoute::kUsb}) {
        if (Has(m_routes, route)) {
            m_devices.push_back({route, MakeChip(chip), nullptr, nullptr});
            if (m_devices.back().chip == nullptr) {
                throw std::invalid_argument("no chip is called \"" + chip + "\"");
            }
        }
    }
    if (Has(m_routes, PcRoute::kHid)) {
        m_keyboard = std::make_shared<KeyboardMcu>();
        m_devices.push_back({PcRoute::kHid, nullptr, nullptr, nullptr});
    }
    if (Has(m_routes, PcRoute::kBle)) {
        m_bluetooth = std::make_shared<BluetoothKeyboard>();
        m_peer = BlePeerAdapter::Make(m_bluetooth);
        LinkDockService::SetPeer(m_peer);
    }
    Plug();
}

Pc::~Pc() {
    Unplug();
    if (m_peer != nullptr) {
        LinkDockService::SetPeer(nullptr);
    }
}

void Pc::Plug() {
    if (std::exchange(m_plugged, true)) {
        return;
    }
    for (auto& [route, chip, driver, faulty] : m_devices) {
        if (chip != nullptr) {
            driver = std::make_shared<SpbDriver>(chip);
        } else {
            driver = std::make_shared<HidDriver>(m_keyboard);
        }
        faulty = std::make_shared<FaultyDriver>(driver);
        faulty->SetPlan(m_plan);
        if (chip != nullptr) {
            emulation::AddDevice(PathOf(route), faulty);
        } else {
            RegisterKeyboard(faulty);
        }
    }
    if (m_bluetooth != nullptr) {
        const emulation::DeviceLock lock;
        m_bluetooth->BackInRange();
    }
}

void Pc::Unplug() {
    if (!std::exchange(m_plugged, false)) {
        return;
    }
    for (const auto& [route, chip, driver, faulty] : m_devices) {
        if (chip != nullptr) {
            emulation::RemoveDevice(PathOf(route));
        } else {
            emulation::RemoveHidInterfaces();
        }
        const emulation::DeviceLock lock;
        faulty->Unplug();
        driver->Unplug();
    }
    if (m_bluetooth != nullptr) {
        const emulation::DeviceLock lock;
        m_bluetooth->DropLink();
    }
}

void Pc::Faults(const FaultPlan& plan) {
    const emulation::DeviceLock lock;
    m_plan = plan;
    for (const Device& device : m_devices) {
        device.faulty->SetPlan(plan);
    }
}

void Pc::SetFaults(const PcFaults& faults) {
    Faults(faults.drivers);
    LinkDockService::ClearFaults();
    for (const ClientFault& fault : faults.client) {
        LinkDockService::FailCall(fault.call, fault.nth);
    }
}

std::shared_ptr<PhoneVisit> Pc::TapPhone(Micros enterAfter, Micros stay, Phone::Reporter report) {
    return TapPhone(m_routes.at(0), enterAfter, stay, std::move(report));
}

std::shared_ptr<PhoneVisit> Pc::TapPhone(PcRoute route, Micros enterAfter, Micros stay,
                                         Phone::Reporter report) {
    const auto visit = [&](const auto& tag) {
        return PhoneVisit::Start(tag, tag->Radio(), enterAfter, stay, std::move(report));
    };
    if (!Has(m_routes, route)) {
        return nullptr;
    }
    return route == PcRoute::kHid   ? visit(m_keyboard)
           : route == PcRoute::kBle ? visit(m_bluetooth)
                                    : visit(Find(route)->chip);
}

void Pc::HoldPhone(Micros in, Phone::Reporter report) {
    emulation::After(in, [this, report = std::move(report)] {
        if (m_phone != nullptr) {
            m_phone->TakeAway();
        }
        m_phone = TapPhone(0, kUntilTakenAway, report);
    });
}

void Pc::TakePhone(Micros in) {
    emulation::After(in, [this] {
        if (m_phone != nullptr) {
            m_phone->TakeAway();
            m_phone.reset();
        }
    });
}

void Pc::SendFromKeyboard(PcRoute route, Micros in, const Bytes& message) {
    KeyboardTag* const keyboard = route == PcRoute::kHid
                                      ? static_cast<KeyboardTag*>(m_keyboard.get())
                                  : route == PcRoute::kBle ? m_bluetooth.get()
                                                           : nullptr;
    if (keyboard != nullptr) {
        emulation::After(in, [keyboard, message] { keyboard->SendRaw(message); });
    }
}

Bytes Pc::TagMemory() {
    const PcRoute first = m_routes.at(0);
    return first == PcRoute::kHid ? m_keyboard->Image()
           : first == PcRoute::kBle
               ? m_bluetooth->Image()
               : chip(first)->BackDoor().Memory(kFirstImageRegister, kTagMemory);
}

const Pc::Device* Pc::Find(PcRoute route) const {
    const auto found = std::find_if(m_devices.begin(), m_devices.end(),
                                    [&](const Device& device) { return device.route == route; });
    return found == m_devices.end() ? nullptr : &*found;
}

Chip* Pc::chip(PcRoute route) {
    const Device* const device = Find(route);
    return device == nullptr ? nullptr : device->chip.get();
}

Chip* Pc::chip() {
    return m_devices.empty() ? nullptr : m_devices.front().chip.get();
}

SpbDriver* Pc::spb() {
    return chip() == nullptr ? nullptr : static_cast<SpbDriver*>(m_devices.front().driver.get());
}

FaultyDriver* Pc::faulty() {
    return m_devices.empty() ? nullptr : m_devices.front().faulty.get();
}

HidDriver* Pc::hid() {
    const Device* const device = Find(PcRoute::kHid);
    return device == nullptr ? nullptr : static_cast<HidDriver*>(device->driver.get());
}

}  // namespace simulator
