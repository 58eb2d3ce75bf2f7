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
int Write(const Bytes& value, const char* characteristic = kBleWriteCharacteristic) {
    return BLEClient::GetInstance()->BleClientWrite(kDefaultBleAddress, kBleService, characteristic,
                                                    value);
}

// Notices a delivery that begins or goes on when there must be none.
struct Sink : BLEClient::INotification {
    void OnNotify(const std::vector<std::uint8_t>& value) override {
        EXPECT_FALSE(closed) << "a delivery after the unsubscription";
        values.push_back(value);
        Sleep(static_cast<DWORD>(hosted::Random() % 3));
        EXPECT_FALSE(closed) << "a delivery went on behind the unsubscription";
        if (onNotify) {
            onNotify();
        }
    }
    std::vector<Bytes> values;
    bool closed = false;
    std::function<void()> onNotify;
};

void Push(SimulatedPc& pc, Micros delay) {
    const hosted::DeviceLock lock;
    pc.bluetooth()->SendField(true, delay);
}

TEST(LinkDockService, DeliversNothingOnceUnsubscribed) {
    testing_support::ForEachSeed(200, [] {
        {
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
        }
        EXPECT_EQ(hosted::Live().handles, 0U);
    });
}

TEST(LinkDockService, LetsASinkEndItsOwnSubscriptionAndBeginAnother) {
    testing_support::ForEachSeed(100, [] {
        SimulatedPc pc({PcRoute::kBle});
        ASSERT_EQ(Connect(), 0);
        Sink second;
        auto first = std::make_unique<Sink>();
        first->onNotify = [&] {
            EXPECT_EQ(Unsubscribe(), 0);
            EXPECT_EQ(Disconnect(), 0);
            EXPECT_EQ(Connect(), 0);
            EXPECT_EQ(Subscribe(&second), 0);
            first->onNotify = {};
        };
        ASSERT_EQ(Subscribe(first.get()), 0);
        Push(pc, 0);
        Push(pc, 50000);
        Sleep(10);
        // Whatever the order, the first sink is at rest once a call from here has returned.
        EXPECT_EQ(first->values.size(), 1U);
        first.reset();
        Sleep(100);
        EXPECT_EQ(second.values.size(), 1U);
        EXPECT_EQ(LinkDockService::DeliveryThreads(), 1U);
        EXPECT_EQ(Disconnect(), 0);  // ends the subscription, too
        EXPECT_EQ(hosted::Live().threads + hosted::Live().handles, 0U);
    });
}

TEST(LinkDockService, IsRefusedByTheKeyboardAndOnRequest) {
    hosted::UseScheduledClock({});
    SimulatedPc pc({PcRoute::kBle});
    Sink sink;
    const Bytes image = {kFrameMark, kFrameWrite, 0x03, 0x00, 0xFE};
    EXPECT_LT(Write(image), 0);  // not connected
    LinkDockService::FailCall(BleCall::kConnect, 2, -7);
    EXPECT_EQ(Connect(), 0);
    EXPECT_EQ(Connect(), -7);
    EXPECT_LT(BLEClient::GetInstance()->BleClientConnect(1), 0);
    EXPECT_EQ(Write(image), 0);
    EXPECT_EQ(pc.bluetooth()->Image(), Bytes(image.begin() + 2, image.end()));
    EXPECT_LT(Write(image, kBleNotifyCharacteristic), 0);
    EXPECT_LT(Write(Bytes(kMaxBleValue + 1, kFrameMark)), 0);
    EXPECT_LT(Subscribe(nullptr), 0);
    EXPECT_LT(Unsubscribe(), 0);
    ASSERT_EQ(Subscribe(&sink), 0);
    pc.bluetooth()->SetMemory(0x7A, Bytes(kNumberSize, 0x11));
    EXPECT_EQ(Write({kFrameMark, kFrameRequest, 0x7A, 0x00}), 0);
    Sleep(20);
    Bytes answer = {kFrameMark, kTypeNumber};
    answer.resize(2 + kNumberSize, 0x11);
    EXPECT_EQ(sink.values, std::vector<Bytes>{answer});
    pc.Unplug();  // out of range
    EXPECT_LT(Write(image), 0);
    EXPECT_LT(Disconnect(), 0);
    EXPECT_EQ(hosted::Live().threads, 0U);
    LinkDockService::SetNoInstance(true);
    EXPECT_EQ(BLEClient::GetInstance(), nullptr);
    LinkDockService::ClearFaults();
    EXPECT_NE(BLEClient::GetInstance(), nullptr);
}

}  // namespace
}  // namespace simulator
