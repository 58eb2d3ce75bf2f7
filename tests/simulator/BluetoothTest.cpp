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

DWORD Random(DWORD below) {
    return static_cast<DWORD>(hosted::Random() % below);
}

// Fails the test for a delivery that begins or goes on after `closed` is set.
struct Sink : BLEClient::INotification {
    explicit Sink(std::function<void()> action = {}) : onNotify(std::move(action)) {}
    void OnNotify(const std::vector<std::uint8_t>& /*value*/) override {
        EXPECT_FALSE(closed) << "a delivery after the unsubscription";
        ++count;
        if (onNotify) {
            onNotify();
        }
        EXPECT_FALSE(closed) << "a delivery went on after the unsubscription";
    }
    int count = 0;
    bool closed = false;
    const std::function<void()> onNotify;
};

// A PC that is connected to its keyboard.
struct Connection {
    Connection() { EXPECT_EQ(client.BleClientConnect(kDefaultBleAddress), 0); }
    int Subscribe(Sink* sink) {
        return client.BleClientSubscribeNotify(kDefaultBleAddress, kBleService,
                                               kBleNotifyCharacteristic, sink);
    }
    int Unsubscribe() {
        return client.BleClientUnsubscribeNotify(kDefaultBleAddress, kBleService,
                                                 kBleNotifyCharacteristic);
    }
    int AskForNumber() {
        return client.BleClientWrite(kDefaultBleAddress, kBleService, kBleWriteCharacteristic,
                                     {0x2E, 1, 0x7A, 0});
    }
    void SendField(Micros delay = 0) { pc.bluetooth()->SendField(true, delay); }

    SimulatedPc pc{{PcRoute::kBle}};
    BLEClient& client = *BLEClient::GetInstance();
};

TEST(LinkDockService, DeliversNothingOnceUnsubscribed) {
    testing_support::ForEachSeed(200, [] {
        LinkDockService::SetDeliveryHabits({Random(2) * 2, Random(2) * 4, 1 + Random(2)});
        Connection connection;
        for (int round = 0; round < 4; ++round) {
            Sink sink([] { Sleep(Random(3)); });
            ASSERT_GE(connection.Subscribe(&sink), 0);
            const LPTHREAD_START_ROUTINE askLater = [](LPVOID argument) -> DWORD {
                Sleep(Random(3));
                return static_cast<Connection*>(argument)->AskForNumber() == 0 ? 0 : 1;
            };
            const HANDLE writer = CreateThread(nullptr, 0, askLater, &connection, 0, nullptr);
            for (int i = 0; i < 5; ++i) {
                connection.SendField(Random(4000));
            }
            Sleep(Random(4));
            EXPECT_EQ(connection.Unsubscribe(), 0);
            sink.closed = true;
            EXPECT_EQ(WaitForSingleObject(writer, INFINITE), WAIT_OBJECT_0);
            CloseHandle(writer);
            EXPECT_EQ(hosted::Live().threads, 0U);
            connection.SendField(100);
            Sleep(1);
        }
    });
}

TEST(LinkDockService, LetsDeliveriesEndTheirSubscriptionAndBeginAnother) {
    testing_support::ForEachSeed(100, [] {
        const unsigned threads = 1 + Random(2);
        LinkDockService::SetDeliveryHabits({0, 0, threads});
        Connection connection;
        unsigned running = 0;
        unsigned most = 0;
        Sink second;
        auto first = std::make_unique<Sink>([&] {
            most = std::max(most, ++running);
            Sleep(5);
            connection.Unsubscribe();  // the other delivery does the same
            EXPECT_TRUE(--running > 0 || connection.Subscribe(&second) == 0);
        });
        ASSERT_EQ(connection.Subscribe(first.get()), 0);
        connection.SendField();
        connection.SendField();
        Sleep(20);
        EXPECT_EQ(most, threads);
        first.reset();
        second.count = 0;
        connection.SendField();
        Sleep(20);
        EXPECT_EQ(second.count, 1);
        EXPECT_EQ(connection.client.BleClientDisConnect(kDefaultBleAddress), 0);  // unsubscribes
        EXPECT_EQ(hosted::Live().threads + hosted::Live().handles, 0U);
    });
}

TEST(LinkDockService, DeliversInsideItsCallsWhenThatIsItsHabit) {
    hosted::UseScheduledClock({1});
    Connection connection;
    const struct {
        LinkDockService::DeliveryHabits habits;
        int afterSubscribe = 0;  // deliveries so far, all on the caller's thread
        int afterWrite = 0;
    } cases[] = {{{}, 0, 0}, {{2, 0}, 1, 1}, {{2, 10}, 1, 2}, {{0, 10}, 0, 1}, {{1, 3}, 0, 0}};
    for (const auto& [habits, afterSubscribe, afterWrite] : cases) {
        LinkDockService::SetDeliveryHabits(habits);
        int here = 0;
        Sink sink([&here, host = hosted::CurrentThread()] {
            here += hosted::CurrentThread() == host ? 1 : 0;
        });
        connection.SendField(1500);
        ASSERT_EQ(connection.Subscribe(&sink), 0);
        EXPECT_EQ(here, afterSubscribe);
        Sleep(habits.insideSubscribeMs == 0 ? 0 : 10);
        EXPECT_EQ(connection.AskForNumber(), 0);
        EXPECT_EQ(here, afterWrite);
        Sleep(10);
        EXPECT_EQ(sink.count, 2) << "the report and the number, each once";
        EXPECT_EQ(connection.Unsubscribe(), 0);
    }
}

TEST(LinkDockService, GoesOnDeliveringAfterARefusedUnsubscriptionWhenThatIsItsHabit) {
    hosted::UseScheduledClock({1});
    Connection connection;
    for (const bool habit : {true, false}) {
        LinkDockService::SetDeliveryHabits({0, 0, 1, habit});
        Sink sink;
        ASSERT_EQ(connection.Subscribe(&sink), 0);
        LinkDockService::FailCall(LinkDockService::BleCall::kUnsubscribe, 1);
        EXPECT_LT(connection.Unsubscribe(), 0);
        connection.SendField();
        Sleep(10);
        EXPECT_EQ(sink.count, habit ? 1 : 0);
        EXPECT_EQ(connection.Unsubscribe() < 0, !habit);
        EXPECT_EQ(hosted::Live().threads, 0U);
    }
}

}  // namespace
}  // namespace simulator
