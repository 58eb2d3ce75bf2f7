// The simulated devices: the models alone, which punish a pause that is left out and refuse
// malformed pages, and what clients of the platform see of the kernel driver with its faults and of
// the stand-in Bluetooth client.
#include <gtest/gtest.h>

#include "platform/emulation/Kernel.h"
#include "platform/platform.h"
#include "platform/services/standin/ClientBackDoor.h"
#include "simulator/FanliChip.h"
#include "simulator/Fm11nChip.h"
#include "simulator/Pc.h"
#include "tests/support/SeededRuns.h"

namespace simulator {
namespace {

TEST(Chips, GiveOnesToAReadThatComesTooSoon) {
    const struct {
        const char* kind;
        Bytes frame;
        Micros pause;
        std::uint8_t first;
    } cases[] = {{"fm11nt081", {0, 0}, kFm11nReadGap, 0x1D},
                 {"fm11nt082c", {0, 0}, 0, 0x1D},
                 {"fanli", {0, 0, 1, 9}, kFanliFirstAnswerTime, 0x22}};
    for (const auto& [kind, frame, pause, first] : cases) {
        SCOPED_TRACE(kind);
        const auto chip = MakeChip(kind);
        ASSERT_TRUE(chip->Bus().Write(0, frame));
        EXPECT_TRUE(pause == 0 || chip->Bus().Read(pause - 1, 9) == Bytes(9, 0xFF));
        EXPECT_EQ(chip->Bus().Read(pause, 9).value().at(0), first);
        EXPECT_EQ(chip->BackDoor().Counters().earlyReads, pause != 0 ? 1U : 0U);
    }
}

TEST(Fm11nChip, AcknowledgesNothingWhileItStores) {
    const auto chip = MakeChip("fm11nt082c");
    ChipBus& bus = chip->Bus();
    const Bytes block{0x00, 0x10, 1, 2, 3};
    EXPECT_TRUE(bus.Write(0, block));
    EXPECT_FALSE(bus.Write(kFm11nStoreTime - 1, {0x00, 0x10}));
    EXPECT_FALSE(bus.Read(kFm11nStoreTime - 1, 1));
    EXPECT_TRUE(bus.Write(kFm11nStoreTime, {0x00, 0x10}));
    EXPECT_EQ(bus.Read(kFm11nStoreTime, 3), (Bytes{1, 2, 3}));
}

const Bytes kFanliBlock{0x00, 0x20, 0, 2, 3, 4};  // two bytes to 0x20

TEST(FanliChip, LosesABlockThatComesTooSoonAndReportsItWhenChecked) {
    const auto chip = MakeChip("fanli");
    ChipBus& bus = chip->Bus();
    const auto check = [&bus](Micros now) {
        EXPECT_TRUE(bus.Write(now, {0xF0, 0xF8, 0x01, 0x06}));
        return bus.Read(now + kFanliFirstAnswerTime, 6).value().at(0);
    };
    EXPECT_TRUE(bus.Write(0, {0x00, 0x10, 0, 2, 1, 2}));
    EXPECT_TRUE(bus.Write(kFanliStoreTime - 1, kFanliBlock));
    EXPECT_EQ(check(kMilli * 100), 0x20);
    EXPECT_EQ(chip->BackDoor().Memory(0x20, 2), (Bytes{0, 0}));
    EXPECT_TRUE(bus.Write(kMilli * 200, kFanliBlock));
    EXPECT_EQ(check(kMilli * 200 + kFanliStoreTime - 1), 0x20) << "not stored yet";
    EXPECT_EQ(check(kMilli * 300), 0x00);
    EXPECT_EQ(chip->BackDoor().Memory(0x20, 2), (Bytes{3, 4}));
}

TEST(FanliChip, CountsRequestsThatMakeNoSense) {
    Bytes tooLong(4 + 247);
    tooLong[3] = 247;
    for (const Bytes& frame :
         {Bytes{0, 0x12, 0, 2, 3, 4}, Bytes{0, 0x20, 0, 3, 3, 4}, tooLong, Bytes{0xF0, 0xF2, 0, 1},
          Bytes{0xF0, 0xF2, 0, 1, 0}, Bytes{0, 0, 1, 0xEE}, Bytes{0, 0, 1, 1, 0},
          Bytes{0xF0, 0xF8, 1, 1}, Bytes{0, 0, 2, 1}, Bytes{0, 0, 3, 1}, Bytes{0}}) {
        const auto chip = MakeChip("fanli");
        EXPECT_TRUE(chip->Bus().Write(0, frame));
        EXPECT_EQ(chip->Bus().Read(kFanliFirstAnswerTime, 1), Bytes{0xFF});
        EXPECT_EQ(chip->BackDoor().Counters().malformed, 1U) << frame.size() << " bytes";
        EXPECT_TRUE(chip->BackDoor().RadioOn());
    }
}

TEST(FanliChip, LosesFramesWhileItSwitchesTheRadio) {
    const auto chip = MakeChip("fanli");
    EXPECT_TRUE(chip->Radio().Enter(0));
    EXPECT_TRUE(chip->Bus().Write(0, {0xF0, 0xF2, 0, 0}));
    EXPECT_TRUE(chip->Radio().Select(kFanliRadioTime - 1));
    EXPECT_TRUE(chip->Bus().Write(kFanliRadioTime - 1, kFanliBlock));
    EXPECT_EQ(chip->BackDoor().Counters().lostWrites, 1U);
    EXPECT_FALSE(chip->Radio().Select(kFanliRadioTime));
    EXPECT_TRUE(chip->Bus().Write(kFanliRadioTime, {0xF0, 0xF1, 0, 0}));
    EXPECT_FALSE(chip->Radio().Select(2 * kFanliRadioTime - 1));
    EXPECT_TRUE(chip->Radio().Enter(2 * kFanliRadioTime));
    EXPECT_EQ(chip->BackDoor().Counters().interrupts, 2U) << "the first visit is forgotten";
}

// A page of a frame: pages, page and length byte, and the payload's first bytes.
Bytes Report(Bytes start) {
    start.insert(start.begin(), kReportId);
    start.resize(kReportSize);
    return start;
}

Bytes Full(std::uint8_t pages, std::uint8_t page) {
    return Report({pages, page, kReportSize, kFrameMark, kFrameWrite});
}

TEST(KeyboardMcu, RefusesMalformedReportsAndRecovers) {
    const std::pair<const char*, std::vector<Bytes>> cases[] = {
        {"bytes", {Bytes(63)}},
        {"id", {Bytes(64)}},
        {"page 0 where page 1", {Full(2, 0)}},
        {"page 1 of 0", {Full(0, 1)}},
        {"page 3 where page 2", {Full(3, 1), Full(3, 3)}},
        {"page 2 of 4 in a frame of 3", {Full(3, 1), Full(4, 2)}},
        {"length byte 4", {Report({1, 1, 4})}},
        {"length byte 65", {Report({1, 1, 65, kFrameMark, 0})}},
        {"length byte 63", {Report({2, 1, 63, kFrameMark, 0})}},
        {"direction", {Report({1, 1, 6, kFrameMark, 2})}},
        {"request has 5", {Report({1, 1, 9, kFrameMark, 1, 73, 0, 0})}}};
    for (const auto& [what, reports] : cases) {
        SCOPED_TRACE(what);
        KeyboardMcu mcu;
        for (const Bytes& report : reports) {
            mcu.Output(report);
        }
        ASSERT_EQ(mcu.Refusals().size(), 1U);
        EXPECT_NE(mcu.Refusals()[0].find(what), std::string::npos) << mcu.Refusals()[0];
        EXPECT_EQ(mcu.ImagesStored() + mcu.NumbersAsked(), 0U);
        EXPECT_FALSE(mcu.MidFrame());
    }
    // It takes a frame that begins in the middle of another, and counts bytes after its end.
    KeyboardMcu mcu;
    mcu.Output(Full(3, 1));
    mcu.Output(Full(2, 1));
    Bytes last = Report({2, 2, 5, 0xAB});
    last.back() = 1;
    mcu.Output(last);
    EXPECT_EQ(mcu.Refusals().size(), 1U);
    EXPECT_EQ(mcu.Image().size(), kReportPayload - 2 + 1);
    EXPECT_EQ(mcu.Image().back(), 0xAB);
    EXPECT_EQ(mcu.DirtyTails(), 1U);
}

TEST(FaultyDriver, FailsExactlyTheRequestsOfItsPlan) {
    emulation::UseScheduledClock({testing_support::Seed()});
    Pc pc({PcRoute::kI2c}, "fanli");
    const auto open = [] {
        return CreateFileW(kSpbDriverPath, GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                           FILE_FLAG_OVERLAPPED, nullptr);
    };
    const HANDLE device = open();
    OVERLAPPED overlapped{};
    overlapped.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::uint8_t buffer[9] = {};
    // The last-error code, or WAIT_TIMEOUT of a request that is still pending after a second.
    const auto codeOf = [&](BOOL result) -> DWORD {
        if (!result && GetLastError() == ERROR_IO_PENDING) {
            DWORD moved = 0;
            if (WaitForSingleObject(overlapped.hEvent, 1000) == WAIT_TIMEOUT) {
                return WAIT_TIMEOUT;
            }
            result = GetOverlappedResult(device, &overlapped, &moved, FALSE);
        }
        return result ? ERROR_SUCCESS : GetLastError();
    };
    const auto read = [&] {
        return codeOf(ReadFile(device, buffer, sizeof buffer, nullptr, &overlapped));
    };
    const auto control = [&](DWORD code) {
        return codeOf(DeviceIoControl(device, code, nullptr, 0, nullptr, 0, nullptr, &overlapped));
    };
    std::string error;
    pc.Faults(FaultPlan::Parse("read#1=refuse:31,any#1-2=refuse:87", error).value());
    for (const DWORD code : {31U, 87U, 0U}) {
        EXPECT_EQ(read(), code) << "the first that fits counts";
    }
    pc.Faults(FaultPlan::Parse("interrupt#2=gone", error).value());
    for (const DWORD code :
         {WAIT_TIMEOUT, ERROR_DEVICE_NOT_CONNECTED, ERROR_DEVICE_NOT_CONNECTED}) {
        EXPECT_EQ(control(kControlInterrupt), code);
    }
    pc.Faults({});
    EXPECT_EQ(control(kControlOpen), ERROR_SUCCESS);
    EXPECT_EQ(pc.spb()->Violations(), 0U);
    for (const bool isRead : {true, false}) {
        OVERLAPPED other{};
        ReadFile(device, buffer, 1, nullptr, &other);
        EXPECT_EQ(isRead ? read() : control(kControlOpen), ERROR_SUCCESS);
    }
    EXPECT_EQ(pc.spb()->Violations(), 2U) << "requests at the same time";
    pc.Unplug();
    EXPECT_EQ(open(), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

DWORD Random(DWORD below) {
    return static_cast<DWORD>(emulation::Random() % below);
}

struct Sink : LinkDockService::BLEClient::INotification {
    void OnNotify(const std::vector<std::uint8_t>& /*value*/) override {
        EXPECT_FALSE(closed) << "a delivery after the unsubscription";
        Sleep(Random(3));
        EXPECT_FALSE(closed) << "a delivery went on after the unsubscription";
    }
    bool closed = false;
};

TEST(LinkDockService, DeliversNothingOnceUnsubscribed) {
    testing_support::ForEachSeed(200, [] {
        LinkDockService::SetDeliveryHabits({Random(2) * 2, Random(2) * 4, 1 + Random(2)});
        Pc pc({PcRoute::kBle});
        auto& client = *LinkDockService::BLEClient::GetInstance();
        EXPECT_EQ(client.BleClientConnect(kDefaultBleAddress), 0);
        for (int round = 0; round < 4; ++round) {
            Sink sink;
            ASSERT_GE(client.BleClientSubscribeNotify(kDefaultBleAddress, kBleService,
                                                      kBleNotifyCharacteristic, &sink),
                      0);
            const HANDLE writer = testing_support::StartThread([&client] {
                Sleep(Random(3));
                EXPECT_EQ(client.BleClientWrite(kDefaultBleAddress, kBleService,
                                                kBleWriteCharacteristic, {0x2E, 1, 0x7A, 0}),
                          0);
            });
            for (int i = 0; i < 5; ++i) {
                pc.bluetooth()->SendField(true, Random(4000));
            }
            Sleep(Random(4));
            EXPECT_EQ(client.BleClientUnsubscribeNotify(kDefaultBleAddress, kBleService,
                                                        kBleNotifyCharacteristic),
                      0);
            sink.closed = true;
            EXPECT_EQ(WaitForSingleObject(writer, INFINITE), WAIT_OBJECT_0);
            CloseHandle(writer);
            EXPECT_EQ(emulation::Live().threads, 0U);
            pc.bluetooth()->SendField(true, 100);
            Sleep(1);
        }
    });
}

}  // namespace
}  // namespace simulator
