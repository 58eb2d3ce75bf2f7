// The stand-in Bluetooth client with the simulated keyboard behind it.
#include <gtest/gtest.h>

#include <memory>

#include "platform/LinkDockService.h"
#include "platform/hosted/Kernel.h"
#include "platform/platform.h"
#include "simulator/SimulatedPc.h"
#include "tests/support/Seeds.h"

namespace simulator {
namespace {

using LinkDockService::BLEClient;

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

TEST(LinkDockService, DeliversNothingOnceUnsubscribed) {
    testing_support::ForEachSeed(200, [] {
        SimulatedPc pc({PcRoute::kBle});
        ASSERT_EQ(BLEClient::GetInstance()->BleClientConnect(kDefaultBleAddress), 0);
        for (int round = 0; round < 4; ++round) {
            Sink sink;
            ASSERT_GE(Subscribe(&sink), 0);
            for (int i = 0; i < 5; ++i) {
                pc.bluetooth()->SendField(true, static_cast<Micros>(hosted::Random() % 4000));
            }
            Sleep(static_cast<DWORD>(hosted::Random() % 4));
            EXPECT_EQ(Unsubscribe(), 0);
            sink.closed = true;
            EXPECT_EQ(hosted::Live().threads, 0U);
            pc.bluetooth()->SendField(true, 100);
            Sleep(1);
        }
    });
}

TEST(LinkDockService, LetsASinkEndItsOwnSubscriptionAndBeginAnother) {
    testing_support::ForEachSeed(100, [] {
        SimulatedPc pc({PcRoute::kBle});
        BLEClient& client = *BLEClient::GetInstance();
        ASSERT_EQ(client.BleClientConnect(kDefaultBleAddress), 0);
        Sink second;
        auto first = std::make_unique<Sink>();
        first->onNotify = [&] { EXPECT_EQ(Unsubscribe() + Subscribe(&second), 0); };
        ASSERT_EQ(Subscribe(first.get()), 0);
        pc.bluetooth()->SendField(true, 0);
        pc.bluetooth()->SendField(true, 50000);
        Sleep(10);
        // The first sink is at rest once a call from here has returned.
        EXPECT_EQ(first->count, 1);
        first.reset();
        Sleep(100);
        EXPECT_EQ(second.count, 1);
        EXPECT_EQ(client.BleClientDisConnect(kDefaultBleAddress), 0);  // and unsubscribes
        EXPECT_EQ(hosted::Live().threads + hosted::Live().handles, 0U);
    });
}

}  // namespace
}  // namespace simulator
