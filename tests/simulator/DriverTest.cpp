// The kernel driver through the hosted layer, on the scheduled clock: transfers, interrupts,
// faults.
#include <gtest/gtest.h>

#include "platform/hosted/Kernel.h"
#include "platform/platform.h"
#include "simulator/SimulatedPc.h"
#include "tests/support/Seeds.h"

namespace simulator {
namespace {

struct Client {
    Client() { overlapped.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr); }

    // "O"pens, sends the open "C"ommand, "W"rites an address, "R"eads nine bytes, waits for an
    // "I"nterrupt.
    BOOL Start(char letter) {
        if (letter == 'O') {
            device = CreateFileW(kSpbDriverPath, GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                 FILE_FLAG_OVERLAPPED, nullptr);
            return device != INVALID_HANDLE_VALUE;
        }
        const std::uint8_t frame[] = {0, 0};
        const DWORD control = letter == 'C' ? kControlOpen : kControlInterrupt;
        return letter == 'R' ? ReadFile(device, buffer, sizeof buffer, nullptr, &overlapped)
               : letter == 'I' || letter == 'C'
                   ? DeviceIoControl(device, control, nullptr, 0, nullptr, 0, nullptr, &overlapped)
                   : WriteFile(device, frame, sizeof frame, nullptr, &overlapped);
    }
    // The last-error code of each step; 258 while it is under way after a second.
    std::string Do(const std::string& letters) {
        std::string codes;
        for (const char letter : letters) {
            DWORD code = Start(letter) ? ERROR_SUCCESS : GetLastError();
            if (code == ERROR_IO_PENDING) {
                code = WaitForSingleObject(overlapped.hEvent, 1000);
                if (code == WAIT_OBJECT_0 &&
                    !GetOverlappedResult(device, &overlapped, &moved, FALSE)) {
                    code = GetLastError();
                }
            }
            codes += std::to_string(code) + " ";
        }
        return codes;
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
    // A fault of writes comes before a fault of any request.
    EXPECT_EQ(bus.Do("OOWWWWR"), "5 0 0 31 121 121 0 ");
    EXPECT_EQ(bus.moved, 7U);
    const hosted::Micros before = hosted::Now();
    EXPECT_EQ(bus.Do("R"), "0 ");
    EXPECT_EQ(hosted::Now() - before, 700 * kMilli + kDefaultBusLatency);
    EXPECT_EQ(pc.chip()->BackDoor().Counters().writes, 1U);  // the others did not reach the chip
    EXPECT_EQ(bus.Do("C") + std::to_string(pc.spb()->Violations()), "0 0");
    for (const char* second : {"R", "C"}) {
        OVERLAPPED other{};
        ReadFile(bus.device, bus.buffer, 1, nullptr, &other);
        EXPECT_EQ(bus.Do(second), "0 ");
    }
    EXPECT_EQ(pc.spb()->Violations(), 2U) << "one request at a time";
    EXPECT_EQ(bus.Do("WI"), "258 258 ");
    EXPECT_EQ(bus.Do("IW"), "1167 1167 ");
    pc.Unplug();
    EXPECT_EQ(bus.Do("O"), "2 ");
}

TEST(SpbDriver, RepeatsAnAssertedInterruptAtOnceOnlyAfterATransfer) {
    hosted::UseScheduledClock({testing_support::Seed()});
    Client bus;
    SimulatedPc pc({PcRoute::kI2c}, "fanli");
    ASSERT_EQ(bus.Do("O"), "0 ");
    hosted::After(kMilli, [&] { pc.chip()->BackDoor().RaiseStatus(hosted::Now(), 1, 0); });
    const auto time = [&](const char* letters) {
        const Micros before = hosted::Now();
        EXPECT_EQ(bus.Do(letters).find_first_not_of("0 "), std::string::npos) << letters;
        return hosted::Now() - before;
    };
    EXPECT_EQ(time("I"), kMilli + kDefaultBusLatency);
    EXPECT_EQ(time("I"), kAssertedInterruptGap);
    EXPECT_EQ(time("RI"), 2 * kDefaultBusLatency);
}

}  // namespace
}  // namespace simulator
