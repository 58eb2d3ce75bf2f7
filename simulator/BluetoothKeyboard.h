// A keyboard on Bluetooth Low Energy: the same frames, whole, one to a write, and notifications.
// Plain; BlePeerAdapter puts it behind the stand-in client.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "simulator/KeyboardTag.h"

namespace simulator {

constexpr char kBleService[] = "0000FE40-CC7A-482A-984A-7F2ED5B3E512";
constexpr char kBleWriteCharacteristic[] = "0000FE41-CC7A-482A-984A-7F2ED5B3E512";
constexpr char kBleNotifyCharacteristic[] = "0000FE42-CC7A-482A-984A-7F2ED5B3E512";
constexpr std::uint64_t kDefaultBleAddress = 0x0000A1B2C3D4E5F6;
constexpr std::size_t kMaxBleValue = 890;

enum LinkCall { kLinkConnect, kLinkDisconnect, kLinkSubscribe, kLinkUnsubscribe, kLinkWrite };
using LinkCalls = std::array<unsigned, kLinkWrite + 1>;

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
    const LinkCalls& Calls() const { return m_calls; }  ///< so far, refused ones included
    /// The link breaks, and no connection can be made until it is back in range.
    void DropLink();
    void BackInRange() { m_inRange = true; }

  protected:
    Bytes Wrap(std::uint8_t type, const Bytes& payload) const override;

  private:
    bool Reachable(std::uint64_t address, const char* what);

    std::uint64_t m_address;
    LinkCalls m_calls{};
    bool m_inRange = true;
    bool m_connected = false;
    bool m_subscribed = false;
};

}  // namespace simulator
