// The link of the Bluetooth keyboard.
#include "simulator/BluetoothKeyboard.h"

#include <algorithm>

namespace simulator {

bool BluetoothKeyboard::Reachable(std::uint64_t address, const char* what) {
    if (address != m_address) {
        Refuse(std::string(what) + ": no device has this address");
        return false;
    }
    if (!m_inRange) {
        Refuse(std::string(what) + ": out of range");
        return false;
    }
    return true;
}

bool BluetoothKeyboard::Connect(std::uint64_t address) {
    ++m_calls[kLinkConnect];
    if (!Reachable(address, "connect")) {
        return false;
    }
    m_connected = true;
    return true;
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
    ++m_calls[on ? kLinkSubscribe : kLinkUnsubscribe];
    const char* const what = on ? "subscribe" : "unsubscribe";
    if (!Reachable(address, what)) {
        return false;
    }
    if (!m_connected || service != kBleService || characteristic != kBleNotifyCharacteristic) {
        Refuse(std::string(what) + (m_connected ? ": no such characteristic" : ": not connected"));
        return false;
    }
    m_subscribed = on;
    return true;
}

bool BluetoothKeyboard::Write(std::uint64_t address, const std::string& service,
                              const std::string& characteristic, const Bytes& value) {
    ++m_calls[kLinkWrite];
    if (!Reachable(address, "write")) {
        return false;
    }
    if (!m_connected || service != kBleService || characteristic != kBleWriteCharacteristic) {
        Refuse(m_connected ? "write: no such characteristic" : "write: not connected");
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
    const Bytes head = {kFrameMark, type};
    Bytes value(head.size() + payload.size());
    std::copy(payload.begin(), payload.end(), std::copy(head.begin(), head.end(), value.begin()));
    return value;
}

}  // namespace simulator
