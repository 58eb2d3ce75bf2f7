// A Bluetooth device for tests: keeps what is written, takes any address, notifies what it is told.
#pragma once

#include <deque>

#include "platform/LinkDockBackDoor.h"
#include "platform/hosted/Kernel.h"

namespace testing_support {

class TestPeer : public LinkDockService::BlePeer {
  public:
    using Value = std::vector<std::uint8_t>;

    /// Stands behind the client from now on.
    static std::shared_ptr<TestPeer> Make() {
        auto peer = std::make_shared<TestPeer>();
        LinkDockService::SetPeer(peer);
        return peer;
    }

    int Connect(std::uint64_t address) override {
        calls.push_back("connect " + std::to_string(address));
        return 0;
    }
    int Disconnect(std::uint64_t address) override {
        calls.push_back("disconnect " + std::to_string(address));
        return 0;
    }
    int Subscribe(std::uint64_t address, const std::string& /*service*/,
                  const std::string& /*characteristic*/, bool on) override {
        calls.push_back((on ? "subscribe " : "unsubscribe ") + std::to_string(address));
        return 0;
    }
    int Write(std::uint64_t /*address*/, const std::string& service,
              const std::string& characteristic, const Value& value) override {
        ends = {service, characteristic};
        written.push_back(value);
        return 0;
    }
    bool WaitNotification(const LinkDockService::StopToken& stop, Value& value) override {
        hosted::WaitFor([&] { return stop || !m_due.empty(); }, hosted::kForever, "a notification");
        const hosted::DeviceLock lock;
        if (stop) {
            return false;
        }
        value = m_due.front();
        m_due.pop_front();
        return true;
    }
    void Wake() override {
        hosted::After(0, [] {});
    }
    void Notify(const Value& value) {
        hosted::After(0, [this, value] { m_due.push_back(value); });
    }

    std::vector<std::string> calls;  ///< connects and subscriptions, in order
    std::vector<Value> written;
    std::vector<std::string> ends;  ///< service and characteristic written to last

  private:
    std::deque<Value> m_due;  // under hosted::DeviceLock
};

}  // namespace testing_support
