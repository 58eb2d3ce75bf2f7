// The stand-in Bluetooth client with a simulated keyboard.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>

#include "platform/LinkDockBackDoor.h"
#include "platform/hosted/Kernel.h"
#include "platform/platform.h"
#include "simulator/SimulatedPc.h"
#include "tests/support/Seeds.h"

namespace simulator {
namespace {

using LinkDockService::BLEClient;
using LinkDockService::SetDeliveryHabits;

struct ConnectedPc : SimulatedPc {
    ConnectedPc() : SimulatedPc({PcRoute::kBle}) {
        EXPECT_EQ(BLEClient::GetInstance()->BleClientConnect(kDefaultBleAddress), 0);
    }
};

int Subscribe(BLEClient::INotification* sink) {
    return BLEClient::GetInstance()->BleClientSubscribeNotify(kDefaultBleAddress, kBleService,
                                                              kBleNotifyCharacteristic, sink);
}
int Unsubscribe() {
    return BLEClient::GetInstance()->BleClientUnsubscribeNotify(kDefaultBleAddress, kBleService,
                                                                kBleNotifyCharacteristic);
}

// Fails the test for a delivery that begins or goes on after `closed` is set.
struct Sink : BLEClient::INotification {
    void OnNotify(const std::vector<std::uint8_t>& /*value*/) override {
        EXPECT_FALSE(closed) << "a delivery after the unsubscription";
        ++count;
        Sleep(static_cast<DWORD>(hosted::Random() % 3));
        EXPECT_FALSE(closed) << "a delivery went on after the unsubscription";
        if (onNotify) {
            onNotify();
        }
    }
    int count = 0;
    bool closed = false;
    std::function<void()> onNotify;
};

int AskForNumber() {
    return BLEClient::GetInstance()->BleClientWrite(kDefaultBleAddress, kBleService,
                                                    kBleWriteCharacteristic, {0x2E, 1, 0x7A, 0});
}
DWORD WINAPI AskLater(LPVOID /*argument*/) {
    Sleep(static_cast<DWORD>(hosted::Random() % 3));
    EXPECT_EQ(AskForNumber(), 0);
    return 0;
}

TEST(LinkDockService, DeliversNothingOnceUnsubscribed) {
    testing_support::ForEachSeed(200, [] {
        const auto coin = [] { return static_cast<unsigned>(hosted::Random() % 2); };
        SetDeliveryHabits({coin() * 2, coin() * 4, 1 + coin()});
        ConnectedPc pc;
        for (int round = 0; round < 4; ++round) {
            Sink sink;
            ASSERT_GE(Subscribe(&sink), 0);
            const HANDLE writer = CreateThread(nullptr, 0, AskLater, nullptr, 0, nullptr);
            for (int i = 0; i < 5; ++i) {
                pc.bluetooth()->SendField(true, static_cast<Micros>(hosted::Random() % 4000));
            }
            Sleep(static_cast<DWORD>(hosted::Random() % 4));
            EXPECT_EQ(Unsubscribe(), 0);
            sink.closed = true;
            EXPECT_EQ(WaitForSingleObject(writer, INFINITE), WAIT_OBJECT_0);
            CloseHandle(writer);
            EXPECT_EQ(hosted::Live().threads, 0U);
            pc.bluetooth()->SendField(true, 100);
            Sleep(1);
        }
    });
}

TEST(LinkDockService, LetsASinkEndItsOwnSubscriptionAndBeginAnother) {
    testing_support::ForEachSeed(100, [] {
        ConnectedPc pc;
        Sink second;
        auto first = std::make_unique<Sink>();
        first->onNotify = [&] { EXPECT_EQ(Unsubscribe() + Subscribe(&second), 0); };
        ASSERT_EQ(Subscribe(first.get()), 0);
        pc.bluetooth()->SendField(true, 0);
        pc.bluetooth()->SendField(true, 50000);
        Sleep(10);
        EXPECT_EQ(first->count, 1);
        first.reset();
        Sleep(100);
        EXPECT_EQ(second.count, 1);
        EXPECT_EQ(BLEClient::GetInstance()->BleClientDisConnect(kDefaultBleAddress), 0);
        EXPECT_EQ(hosted::Live().threads + hosted::Live().handles, 0U);
    });
}

TEST(LinkDockService, DeliversInsideItsCallsWhenThatIsItsHabit) {
    hosted::UseScheduledClock({1});
    ConnectedPc pc;
    const struct {
        LinkDockService::DeliveryHabits habits;
        int afterSubscribe = 0;  // deliveries so far, all on the caller's thread
        int afterWrite = 0;
    } cases[] = {{{}, 0, 0}, {{2, 0}, 1, 1}, {{2, 10}, 1, 2}, {{0, 10}, 0, 1}, {{1, 3}, 0, 0}};
    for (const auto& [habits, afterSubscribe, afterWrite] : cases) {
        SetDeliveryHabits(habits);
        Sink sink;
        int here = 0;
        sink.onNotify = [&, host = hosted::CurrentThread()] {
            here += hosted::CurrentThread() == host ? 1 : 0;
        };
        pc.bluetooth()->SendField(true, 1500);
        ASSERT_EQ(Subscribe(&sink), 0);
        EXPECT_EQ(here, afterSubscribe);
        Sleep(habits.insideSubscribeMs == 0 ? 0 : 10);
        EXPECT_EQ(AskForNumber(), 0);
        EXPECT_EQ(here, afterWrite);
        Sleep(10);
        EXPECT_EQ(sink.count, 2) << "the report and the number, each once";
        EXPECT_EQ(Unsubscribe(), 0);
    }
}

TEST(LinkDockService, DeliversOnTwoThreadsAtOnceWhenThatIsItsHabit) {
    testing_support::ForEachSeed(50, [] {
        ConnectedPc pc;
        for (const unsigned threads : {1U, 2U}) {
            SetDeliveryHabits({0, 0, threads});
            Sink sink;
            unsigned running = 0;
            unsigned most = 0;
            sink.onNotify = [&] {
                most = std::max(most, ++running);
                Sleep(5);
                Unsubscribe();  // the other delivery does the same
                --running;
            };
            ASSERT_EQ(Subscribe(&sink), 0);
            pc.bluetooth()->SendField(true, 0);
            pc.bluetooth()->SendField(false, 0);
            Sleep(8);
            Unsubscribe();
            EXPECT_EQ(running, 0U) << "a delivery went on after the unsubscription";
            EXPECT_EQ(most, threads);
            EXPECT_EQ(hosted::Live().threads, 0U);
        }
    });
}

TEST(LinkDockService, GoesOnDeliveringAfterARefusedUnsubscriptionWhenThatIsItsHabit) {
    hosted::UseScheduledClock({1});
    ConnectedPc pc;
    for (const bool habit : {true, false}) {
        SetDeliveryHabits({0, 0, 1, habit});
        Sink sink;
        ASSERT_EQ(Subscribe(&sink), 0);
        LinkDockService::FailCall(LinkDockService::BleCall::kUnsubscribe, 1);
        EXPECT_LT(Unsubscribe(), 0);
        pc.bluetooth()->SendField(true, 0);
        Sleep(10);
        EXPECT_EQ(sink.count, habit ? 1 : 0);
        EXPECT_EQ(Unsubscribe() < 0, !habit);
        EXPECT_EQ(hosted::Live().threads, 0U);
    }
}

}  // namespace
}  // namespace simulator
