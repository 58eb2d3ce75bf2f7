// The stand-in Bluetooth client with the simulated keyboard behind it.
#include <gtest/gtest.h>

#include <memory>

#include "platform/LinkDockBackDoor.h"
#include "platform/hosted/Kernel.h"
#include "platform/platform.h"
#include "simulator/SimulatedPc.h"
#include "tests/support/Seeds.h"

namespace simulator {
namespace {

using LinkDockService::BleCall;
using LinkDockService::BLEClient;

int Connect() {
    return BLEClient::GetInstance()->BleClientConnect(kDefaultBleAddress);
}
int Disconnect() {
    return BLEClient::GetInstance()->BleClientDisConnect(kDefaultBleAddress);
}
int Subscribe(BLEClient::INotification* sink) {
    return BLEClient::GetInstance()->BleClientSubscribeNotify(kDefaultBleAddress, kBleService,
                                                              kBleNotifyCharacteristic, sink);
}
int Unsubscribe() {
    return BLEClient::GetInstance()->BleClientUnsubscribeNotify(kDefaultBleAddress, kBleService,
                                                                kBleNotifyCharacteristic);
}

// Notices a delivery that begins or goes on when there must be none.
struct Sink : BLEClient::INotification {
    void OnNotify(const std::vector<std::uint8_t>& /*value*/) override {
        EXPECT_FALSE(closed) << "a delivery after the unsubscription";
        ++count;
        Sleep(static_cast<DWORD>(hosted::Random() % 3));
        EXPECT_FALSE(closed) << "a delivery went on behind the unsubscription";
        if (onNotify) {
            onNotify();
        }
    }
    int count = 0;
    bool closed = false;
    std::function<void()> onNotify;
};

void Push(SimulatedPc& pc, Micros delay) {
    const hosted::DeviceLock lock;
    pc.bluetooth()->SendField(true, delay);
}

TEST(LinkDockService, DeliversNothingOnceUnsubscribed) {
    testing_support::ForEachSeed(200, [] {
        SimulatedPc pc({PcRoute::kBle});
        ASSERT_EQ(Connect(), 0);
        for (int round = 0; round < 4; ++round) {
            Sink sink;
            ASSERT_GE(Subscribe(&sink), 0);
            for (int i = 0; i < 5; ++i) {
                Push(pc, static_cast<Micros>(hosted::Random() % 4000));
            }
            if (round == 3) {
                LinkDockService::FailCall(BleCall::kUnsubscribe, 1);
            }
            Sleep(static_cast<DWORD>(hosted::Random() % 4));
            EXPECT_EQ(Unsubscribe(), round == 3 ? -1 : 0);
            sink.closed = true;
            EXPECT_EQ(hosted::Live().threads, 0U);
            Push(pc, 100);
            Sleep(1);
        }
    });
}

TEST(LinkDockService, LetsASinkEndItsOwnSubscriptionAndBeginAnother) {
    testing_support::ForEachSeed(100, [] {
        SimulatedPc pc({PcRoute::kBle});
        ASSERT_EQ(Connect(), 0);
        Sink second;
        auto first = std::make_unique<Sink>();
        first->onNotify = [&] {
            EXPECT_EQ(Unsubscribe() + Disconnect() + Connect() + Subscribe(&second), 0);
            first->onNotify = {};
        };
        ASSERT_EQ(Subscribe(first.get()), 0);
        Push(pc, 0);
        Push(pc, 50000);
        Sleep(10);
        // Whatever the order, the first sink is at rest once a call from here has returned.
        EXPECT_EQ(first->count, 1);
        first.reset();
        Sleep(100);
        EXPECT_EQ(second.count, 1);
        EXPECT_EQ(Disconnect(), 0);  // ends the subscription, too
        EXPECT_EQ(hosted::Live().threads + hosted::Live().handles, 0U);
    });
}

}  // namespace
}  // namespace simulator
