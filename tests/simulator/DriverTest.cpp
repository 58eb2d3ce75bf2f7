// The kernel driver through the hosted layer, on the scheduled clock: transfers, interrupts,
// faults.
#include <gtest/gtest.h>

#include "platform/hosted/Kernel.h"
#include "platform/platform.h"
#include "simulator/SimulatedPc.h"
#include "tests/support/Seeds.h"

namespace simulator {
namespace {

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

TEST(SpbDriver, RepeatsAnAssertedInterruptAtOnceOnlyAfterATransfer) {
    hosted::UseScheduledClock({testing_support::Seed()});
    Client bus;
    SimulatedPc pc({PcRoute::kI2c}, "fanli");
    ASSERT_EQ(bus.Open(), 0U);
    hosted::After(kMilli, [&] { pc.chip()->BackDoor().RaiseStatus(hosted::Now(), 1, 0); });
    std::vector<Micros> ends;
    for (const bool afterTransfer : {false, false, true}) {
        EXPECT_EQ(afterTransfer ? bus.Read() : 0U, 0U);
        const Micros before = hosted::Now();
        EXPECT_EQ(bus.Control(kControlInterrupt), 0U);
        ends.push_back(hosted::Now() - before);
    }
    EXPECT_EQ(ends, (std::vector<Micros>{kMilli + kDefaultBusLatency, kAssertedInterruptGap,
                                         kDefaultBusLatency}));
}

}  // namespace
}  // namespace simulator
