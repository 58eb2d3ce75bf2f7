// A keyboard on Bluetooth Low Energy: the same frames, whole, one to a write, and notifications.
// Plain; BlePeerAdapter puts it behind the stand-in client.
#pragma once

#include <cstdint>
#include <string>

#include "simulator/KeyboardTag.h"

namespace simulator {

constexpr char kBleService[] = "0000FE40-CC7A-482A-984A-7F2ED5B3E512";
constexpr char kBleWriteCharacteristic[] = "0000FE41-CC7A-482A-984A-7F2ED5B3E512";
constexpr char kBleNotifyCharacteristic[] = "0000FE42-CC7A-482A-984A-7F2ED5B3E512";
constexpr std::uint64_t kDefaultBleAddress = 0x0000A1B2C3D4E5F6;
constexpr std::size_t kMaxBleValue = 890;

/// Calls of the link so far, refused ones included.
struct LinkCounters {
    unsigned connects = 0;
    unsigned disconnects = 0;
    unsigned subscribes = 0;
    unsigned unsubscribes = 0;
    unsigned writes = 0;
};

class BluetoothKeyboard : public KeyboardTag {
  public:
    explicit BluetoothKeyboard(std::uint64_t address = kDefaultBleAddress) : m_address(address) {}

    // The link's side. Each is false when refused: another address, service or characteristic, no
    // connection, a value too long. Refusals are recorded with their reason.
    bool Connect(std::uint64_t address);
    bool Disconnect(std::uint64_t address);
    bool Subscribe(std::uint64_t address, const std::string& service,
                   const std::string& characteristic, bool on);
    bool Write(std::uint64_t address, const std::string& service, const std::string& characteristic,
               const Bytes& value);

    // The back door.
    std::uint64_t address() const { return m_address; }
    bool Connected() const { return m_connected; }
    bool Subscribed() const { return m_subscribed; }
    const LinkCounters& Counters() const { return m_counters; }
    /// The link breaks, and no connection can be made until it is back in range.
    void DropLink();
    void BackInRange() { m_inRange = true; }

  protected:
    Bytes Wrap(std::uint8_t type, const Bytes& payload) const override;

  private:
    bool Reachable(std::uint64_t address, const char* what);

    std::uint64_t m_address;
    LinkCounters m_counters;
    bool m_inRange = true;
    bool m_connected = false;
    bool m_subscribed = false;
};

}  // namespace simulator
