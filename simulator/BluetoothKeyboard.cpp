// The link of the Bluetooth keyboard.
#include "simulator/BluetoothKeyboard.h"

namespace simulator {

bool BluetoothKeyboard::Reaches(LinkCall call, std::uint64_t address) {
    ++m_calls[call];
    const std::string name = kLinkCallNames[call];
    if (address != m_address) {
        Refuse(name + ": no device has this address");
    } else if (!m_inRange) {
        Refuse(name + ": out of range");
    }
    return address == m_address && m_inRange;
}

bool BluetoothKeyboard::Reaches(LinkCall call, std::uint64_t address, bool isKnown) {
    if (!Reaches(call, address)) {
        return false;
    }
    if (!m_connected || !isKnown) {
        Refuse(kLinkCallNames[call] +
               std::string(m_connected ? ": no such characteristic" : ": not connected"));
    }
    return m_connected && isKnown;
}

bool BluetoothKeyboard::Connect(std::uint64_t address) {
    const bool good = Reaches(kLinkConnect, address);
    m_connected = m_connected || good;
    return good;
}

bool BluetoothKeyboard::Disconnect(std::uint64_t address) {
    ++m_calls[kLinkDisconnect];
    if (address != m_address || !m_connected) {
        Refuse("disconnect: not connected");
        return false;
    }
    m_connected = false;
    m_subscribed = false;
    return true;
}

bool BluetoothKeyboard::Subscribe(std::uint64_t address, const std::string& service,
                                  const std::string& characteristic, bool on) {
    const bool isKnown = service == kBleService && characteristic == kBleNotifyCharacteristic;
    if (!Reaches(on ? kLinkSubscribe : kLinkUnsubscribe, address, isKnown)) {
        return false;
    }
    m_subscribed = on;
    return true;
}

bool BluetoothKeyboard::Write(std::uint64_t address, const std::string& service,
                              const std::string& characteristic, const Bytes& value) {
    const bool isKnown = service == kBleService && characteristic == kBleWriteCharacteristic;
    if (!Reaches(kLinkWrite, address, isKnown)) {
        return false;
    }
    if (value.size() > kMaxBleValue) {
        Refuse("write: " + std::to_string(value.size()) + " bytes are too many");
        return false;
    }
    TakeFrame(value);  // a frame that the keyboard refuses is no error of the link
    return true;
}

void BluetoothKeyboard::DropLink() {
    m_inRange = false;
    m_connected = false;
    m_subscribed = false;
}

Bytes BluetoothKeyboard::Wrap(std::uint8_t type, const Bytes& payload) const {
    Bytes value = {kFrameMark, type};
    value.insert(value.end(), payload.begin(), payload.end());
    return value;
}

}  // namespace simulator
