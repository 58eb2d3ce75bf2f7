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

}  // namespace

std::string ChipProblem(const std::vector<PcRoute>& routes, const std::string& chip) {
    const auto hasChip = [](PcRoute route) { return !KindOf(route).IsKeyboard(); };
    if (std::none_of(routes.begin(), routes.end(), hasChip)) {
        return "";
    }
    const ChipKind* const kind = FindKind(kChipKinds, chip);
    if (kind == nullptr) {
        return "there is no such chip";
    }
    if (kind->NeedsDetection() && std::count(routes.begin(), routes.end(), PcRoute::kUsb) > 0) {
        return "not possible on the usb route, where every chip has the frames of FM11N chips";
    }
    return "";
}

Pc::Pc(const std::vector<PcRoute>& routes, const std::string& chip) : m_routes(routes) {
    for (const PcRoute route : {PcRoute::kI2c, PcRoute::kUsb}) {
        if (!Has(route)) {
            continue;
        }
        SpbRoute spb{route, MakeChip(chip), nullptr, nullptr};
        if (spb.chip == nullptr) {
            throw std::invalid_argument("no chip is called \"" + chip + "\"");
        }
        m_spb.push_back(std::move(spb));
    }
    if (Has(PcRoute::kHid)) {
        m_keyboard = std::make_shared<KeyboardMcu>();
    }
    if (Has(PcRoute::kBle)) {
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

bool Pc::Has(PcRoute route) const {
    return std::find(m_routes.begin(), m_routes.end(), route) != m_routes.end();
}

void Pc::Plug() {
    if (std::exchange(m_plugged, true)) {
        return;
    }
    for (SpbRoute& spb : m_spb) {
        spb.driver = std::make_shared<SpbDriver>(spb.chip);
        spb.faulty = std::make_shared<FaultyDriver>(spb.driver);
        spb.faulty->SetPlan(m_plan);
        emulation::AddDevice(PathOf(spb.route), spb.faulty);
    }
    if (m_keyboard != nullptr) {
        m_hid = std::make_shared<HidDriver>(m_keyboard);
        m_faultyHid = std::make_shared<FaultyDriver>(m_hid);
        m_faultyHid->SetPlan(m_plan);
        RegisterKeyboard(m_faultyHid);
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
    for (const SpbRoute& spb : m_spb) {
        emulation::RemoveDevice(PathOf(spb.route));
        const emulation::DeviceLock lock;
        spb.faulty->Unplug();
        spb.driver->Unplug();
    }
    if (m_hid != nullptr) {
        emulation::RemoveHidInterfaces();
        const emulation::DeviceLock lock;
        m_faultyHid->Unplug();
        m_hid->Unplug();
    }
    if (m_bluetooth != nullptr) {
        const emulation::DeviceLock lock;
        m_bluetooth->DropLink();
    }
}

void Pc::Faults(const FaultPlan& plan) {
    const emulation::DeviceLock lock;
    m_plan = plan;
    for (const SpbRoute& spb : m_spb) {
        spb.faulty->SetPlan(plan);
    }
    if (m_faultyHid != nullptr) {
        m_faultyHid->SetPlan(plan);
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
    const auto visit = [&](auto owner, TagRadio& tag) {
        return PhoneVisit::Start(std::move(owner), tag, enterAfter, stay, std::move(report));
    };
    if (route == PcRoute::kHid && m_keyboard != nullptr) {
        return visit(m_keyboard, m_keyboard->Radio());
    }
    if (route == PcRoute::kBle && m_bluetooth != nullptr) {
        return visit(m_bluetooth, m_bluetooth->Radio());
    }
    for (const SpbRoute& spb : m_spb) {
        if (spb.route == route) {
            return visit(spb.chip, spb.chip->Radio());
        }
    }
    return nullptr;
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

Chip* Pc::chip() {
    return m_spb.empty() ? nullptr : m_spb.front().chip.get();
}

SpbDriver* Pc::spb() {
    return m_spb.empty() ? nullptr : m_spb.front().driver.get();
}

FaultyDriver* Pc::faulty() {
    return m_spb.empty() ? m_faultyHid.get() : m_spb.front().faulty.get();
}

Chip* Pc::chip(PcRoute route) {
    for (const SpbRoute& spb : m_spb) {
        if (spb.route == route) {
            return spb.chip.get();
        }
    }
    return nullptr;
}

}  // namespace simulator
