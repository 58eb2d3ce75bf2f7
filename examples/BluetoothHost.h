// A host for a Bluetooth keyboard: connects it, writes its tag, and connects it again when it has
// been out of range.
//
// The address is that of the paired keyboard, its 48 bits in a number. Windows has it in its list
// of Bluetooth devices: BLUETOOTH_DEVICE_INFO::Address of BluetoothFindFirstDevice, or
// BluetoothLEDevice::BluetoothAddress.
#pragma once

#include <tagport/NfcManager.h>

#include <memory>

class BluetoothHost {
  public:
    /// `message` has all its fields, the number included.
    BluetoothHost(std::shared_ptr<NdefMessage> message, std::uint64_t keyboard,
                  NfcListener listener)
        : m_message(std::move(message)),
          m_keyboard(keyboard),
          m_manager(NfcManager::Create(m_message, listener)) {}

    /// After this no event comes any more.
    ~BluetoothHost() {
        if (m_isConnected) {
            m_manager->BtDisconnect(m_keyboard);
        }
    }
    BluetoothHost(const BluetoothHost&) = delete;
    BluetoothHost& operator=(const BluetoothHost&) = delete;

    /// To be called about once a minute, and at once when the keyboard has connected to the PC.
    /// True when its tag is well; false when it is out of range, and the next Tick tries again.
    bool Tick() {
        if (m_manager == nullptr) {
            return false;
        }
        m_isConnected = m_isConnected || m_manager->BtConnect(m_keyboard);
        if (m_isConnected && m_manager->WriteMessage(m_message) == 0) {
            return true;
        }
        // A keyboard that has come back answers only to a new connection. And while a lost one is
        // connected, no write reaches the PC's own tag either.
        m_manager->BtDisconnect(m_keyboard);
        m_isConnected = false;
        return false;
    }

  private:
    std::shared_ptr<NdefMessage> m_message;
    std::uint64_t m_keyboard;
    std::shared_ptr<NfcManager> m_manager;
    bool m_isConnected = false;
};
