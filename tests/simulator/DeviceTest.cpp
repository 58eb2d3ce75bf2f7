// What clients of the platform see of simulated devices: the kernel driver with its faults, and the
// stand-in Bluetooth client with a keyboard.
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
using Codes = std::vector<DWORD>;

// Each step gives its last-error code, or WAIT_TIMEOUT while it is under way after a second.
struct Client {
    Client() { overlapped.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr); }

    DWORD Open() {
        device = CreateFileW(kSpbDriverPath, GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                             FILE_FLAG_OVERLAPPED, nullptr);
        return device != INVALID_HANDLE_VALUE ? ERROR_SUCCESS : GetLastError();
    }
    DWORD Write() { return End(WriteFile(device, "\0", 2, nullptr, &overlapped)); }
    DWORD Read() { return End(ReadFile(device, buffer, sizeof buffer, nullptr, &overlapped)); }
    DWORD Control(DWORD code) {
        return End(DeviceIoControl(device, code, nullptr, 0, nullptr, 0, nullptr, &overlapped));
    }
    DWORD End(BOOL started) {
        const DWORD code = started ? ERROR_SUCCESS : GetLastError();
        if (code != ERROR_IO_PENDING) {
            return code;
        }
        const DWORD waited = WaitForSingleObject(overlapped.hEvent, 1000);
        const bool done = waited != WAIT_OBJECT_0 ||
                          GetOverlappedResult(device, &overlapped, &moved, FALSE) != FALSE;
        return done ? waited : GetLastError();
    }

    HANDLE device = nullptr;
    OVERLAPPED overlapped{};
    std::uint8_t buffer[9] = {};
    DWORD moved = 0;
};

TEST(FaultyDriver, FailsExactlyTheRequestsOfItsPlan) {
    hosted::UseScheduledClock({testing_support::Seed()});
    Client bus;
    SimulatedPc pc({PcRoute::kI2c}, "fanli");
    std::string error;
    const auto plan = FaultPlan::Parse(
        "open#1=refuse:5, write#2=refuse:31 , read#1=short:2,read#2=late:700,write#3-4=fail:121,"
        "write#5=never,interrupt#2+=gone, any#3=refuse:87",
        error);
    ASSERT_TRUE(plan) << error;
    pc.Faults(*plan);
    EXPECT_EQ((Codes{bus.Open(), bus.Open()}), (Codes{5, 0}));
    // A fault of writes comes before a fault of any request.
    EXPECT_EQ((Codes{bus.Write(), bus.Write(), bus.Write(), bus.Write(), bus.Read()}),
              (Codes{0, 31, 121, 121, 0}));
    EXPECT_EQ(bus.moved, 7U);
    const hosted::Micros before = hosted::Now();
    EXPECT_EQ(bus.Read(), 0U);
    EXPECT_EQ(hosted::Now() - before, 700 * kMilli + kDefaultBusLatency);
    EXPECT_EQ(pc.chip()->BackDoor().Counters().writes, 1U);  // the others did not reach the chip
    EXPECT_EQ(bus.Control(kControlOpen), 0U);
    EXPECT_EQ(pc.spb()->Violations(), 0U);
    for (const bool read : {true, false}) {
        OVERLAPPED other{};
        ReadFile(bus.device, bus.buffer, 1, nullptr, &other);
        EXPECT_EQ(read ? bus.Read() : bus.Control(kControlOpen), 0U);
    }
    EXPECT_EQ(pc.spb()->Violations(), 2U) << "one request at a time";
    EXPECT_EQ((Codes{bus.Write(), bus.Control(kControlInterrupt)}), Codes(2, WAIT_TIMEOUT));
    EXPECT_EQ((Codes{bus.Control(kControlInterrupt), bus.Write()}), (Codes{1167, 1167}));
    pc.Unplug();
    EXPECT_EQ(bus.Open(), 2U);
}

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
            const HANDLE writer = testing_support::StartThread([&connection] {
                Sleep(Random(3));
                EXPECT_EQ(connection.AskForNumber(), 0);
            });
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

}  // namespace
}  // namespace simulator
