// Passes the calls of the client to the keyboard, and its notifications back.
#include "simulator/BlePeerAdapter.h"

#include <utility>

#include "platform/emulation/Kernel.h"

namespace simulator {

using LinkDockService::Characteristic;

namespace {

int Result(bool good) {
    return good ? 0 : -1;
}

}  // namespace

BlePeerAdapter::BlePeerAdapter(std::shared_ptr<BluetoothKeyboard> keyboard)
    : m_keyboard(std::move(keyboard)) {}

std::shared_ptr<BlePeerAdapter> BlePeerAdapter::Make(std::shared_ptr<BluetoothKeyboard> keyboard) {
    // Not in the constructor: the sender needs a weak pointer to the adapter.
    const std::shared_ptr<BlePeerAdapter> adapter(new BlePeerAdapter(std::move(keyboard)));
    const emulation::DeviceLock lock;
    adapter->m_keyboard->OnSend(
        [weak = std::weak_ptr<BlePeerAdapter>(adapter)](Micros delay, Bytes value) {
            emulation::After(delay, [weak, value = std::move(value)] {
                const auto self = weak.lock();
                if (self != nullptr && self->m_keyboard->Subscribed()) {
                    self->m_outgoing.push_back(value);
                }
            });
        });
    return adapter;
}

int BlePeerAdapter::Connect(std::uint64_t address) {
    const emulation::DeviceLock lock;
    return Result(m_keyboard->Connect(address));
}

int BlePeerAdapter::Disconnect(std::uint64_t address) {
    const emulation::DeviceLock lock;
    m_outgoing.clear();
    return Result(m_keyboard->Disconnect(address));
}

int BlePeerAdapter::Subscribe(const Characteristic& to, bool on) {
    const emulation::DeviceLock lock;
    if (!on) {
        m_outgoing.clear();
    }
    return Result(m_keyboard->Subscribe(to.address, to.service, to.id, on));
}

int BlePeerAdapter::Write(const Characteristic& to, const std::vector<std::uint8_t>& value) {
    const emulation::DeviceLock lock;
    return Result(m_keyboard->Write(to.address, to.service, to.id, value));
}

bool BlePeerAdapter::WaitNotification(const LinkDockService::StopToken& stop,
                                      std::vector<std::uint8_t>& value) {
    emulation::WaitFor([&] { return stop || !m_outgoing.empty(); }, emulation::kForever,
                       "a Bluetooth notification");
    const emulation::DeviceLock lock;
    if (stop || m_outgoing.empty()) {
        return false;
    }
    value = std::move(m_outgoing.front());
    m_outgoing.pop_front();
    return true;
}

void BlePeerAdapter::Wake() {
    // The layer checks every wait again after a timer.
    emulation::After(0, [] {});
}

}  // namespace simulator
