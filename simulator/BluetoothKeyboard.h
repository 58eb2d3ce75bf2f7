// A keyboard on Bluetooth Low Energy. A write carries one whole frame; answers are notifications. A
// model without threads; BlePeerAdapter connects it to the stand-in client.
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
constexpr const char* kLinkCallNames[] = {"connect", "disconnect", "subscribe", "unsubscribe",
                                          "write"};  // in the order of LinkCall

class BluetoothKeyboard : public KeyboardTag {
  public:
    explicit BluetoothKeyboard(std::uint64_t address = kDefaultBleAddress) : m_address(address) {}

    // The Bluetooth link. An operation is refused, with false, for a wrong address, service or
    // characteristic, without a connection, and for a value that is too long. The reason is
    // recorded.
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
    const LinkCalls& Calls() const { return m_calls; }  ///< with the refused ones
    /// Breaks the link. Connecting fails until BackInRange.
    void DropLink();
    void BackInRange() { m_inRange = true; }

  protected:
    Bytes Wrap(std::uint8_t type, const Bytes& payload) const override;

  private:
    // Count the call, and record why it is refused.
    bool Reaches(LinkCall call, std::uint64_t address);
    bool Reaches(LinkCall call, std::uint64_t address, bool isKnown);

    std::uint64_t m_address;
    LinkCalls m_calls{};
    bool m_inRange = true;
    bool m_connected = false;
    bool m_subscribed = false;
};

}  // namespace simulator
