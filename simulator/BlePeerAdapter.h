// Makes a BluetoothKeyboard the device of the stand-in Bluetooth client. Delays are timers of the
// emulation, and the client's delivery threads wait in the layer.
#pragma once

#include <deque>
#include <memory>

#include "platform/services/standin/ClientBackDoor.h"
#include "simulator/BluetoothKeyboard.h"

namespace simulator {

class BlePeerAdapter : public LinkDockService::BlePeer,
                       public std::enable_shared_from_this<BlePeerAdapter> {
  public:
    static std::shared_ptr<BlePeerAdapter> Make(std::shared_ptr<BluetoothKeyboard> keyboard);

    int Connect(std::uint64_t address) override;
    int Disconnect(std::uint64_t address) override;
    int Subscribe(const LinkDockService::Characteristic& to, bool on) override;
    int Write(const LinkDockService::Characteristic& to,
              const std::vector<std::uint8_t>& value) override;
    bool WaitNotification(const LinkDockService::StopToken& stop,
                          std::vector<std::uint8_t>& value) override;
    void Wake() override;

  private:
    explicit BlePeerAdapter(std::shared_ptr<BluetoothKeyboard> keyboard);

    std::shared_ptr<BluetoothKeyboard> m_keyboard;
    std::deque<Bytes> m_outgoing;  // notifications that are due; under emulation::DeviceLock
};

}  // namespace simulator
