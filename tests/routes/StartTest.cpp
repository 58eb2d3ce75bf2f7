// Device start: which route, in what order, how often, and what a failed start leaves.
#include <algorithm>
#include <optional>

#include "chip/NfcDeviceContext.h"
#include "events/DriverThreads.h"
#include "routes/NfcProxy.h"
#include "tests/support/PcWithHost.h"

using namespace testing_support;

namespace {

TEST(DeviceStart, PrefersI2cAndKeepsItsHandle) {
    PcWithHost setup({PcRoute::kI2c, PcRoute::kUsb});
    setup.log.Announce("Nfc");
    g_nfcOpDelayMs = 11;  // as another route may have left it
    BusRecorder recorder;
    ASSERT_TRUE(setup.Create() && setup.manager->DeviceInit());
    const Texts traffic = recorder.Take();
    EXPECT_EQ(std::count(traffic.begin(), traffic.end(), "sleep 11"), 0);
    const std::size_t handles = emulation::Live().handles;
    ASSERT_TRUE(setup.manager->DeviceInit());
    EXPECT_EQ(setup.log.Count("NFC_ select I2C Driver"), 1U);
    EXPECT_EQ(setup.log.Count("DeviceHandle already exist"), 1U);
    EXPECT_EQ(setup.log.Count("NfcBitlockEnable set bitlock done"), 2U);
    EXPECT_EQ(setup.pc.spb()->OpenRequests(), 2U);
    EXPECT_EQ(setup.pc.chip(PcRoute::kUsb)->BackDoor().Counters().writes, 0U);
    EXPECT_EQ(emulation::Live().handles, handles);
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE;
    EXPECT_EQ(CreateFileW(L"\\\\.\\SPBNFCDRIVER", GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING,
                          FILE_FLAG_OVERLAPPED, nullptr),
              INVALID_HANDLE_VALUE)
        << "the library has it alone";
}

const struct {
    const char* faults = "";
    Texts errors;  // none: the start works in the end
    std::ptrdiff_t pauses = 0;
} kUsbStarts[] = {
    {"", {}, 0},
    {"write#1-2=fail:31", {}, 2},
    {"write#1-5=fail:31", {"InitDevice Fm11n failed"}, 5},
    // The first step needs three writes, and the chip keeps its mode from then on.
    {"write#4+=fail:31", {"BitlockEnable failed"}, 5},
    {"read#3-6=short:1", {}, 4},
};

TEST(DeviceStart, OnUsbDetectsNothingTriesAStepFiveTimesAndThenCloses) {
    for (const auto& one : kUsbStarts) {
        ForEachSeed(1, [&one] {
            SCOPED_TRACE(one.faults);
            PcWithHost setup({PcRoute::kUsb});
            setup.log.Announce("NFC", "Nfc");  // of the transfers and of the chip's driver
            setup.SetFaults(one.faults);
            const std::size_t handles = emulation::Live().handles;
            BusRecorder recorder;
            EXPECT_EQ(NfcProxy::InitNfcDevice(), one.errors.empty());
            const Texts traffic = recorder.Take();
            EXPECT_EQ(traffic.at(0), "W 03 8c") << "neither an open request nor a probe";
            EXPECT_EQ(std::count(traffic.begin(), traffic.end(), "sleep 500"), one.pauses);
            EXPECT_EQ(setup.log.TakeUnannounced(), one.errors);
            if (!one.errors.empty()) {
                EXPECT_EQ(traffic.back(), "sleep 500");
                EXPECT_EQ(emulation::Live().handles, handles);
                EXPECT_FALSE(g_interruptRunning);
            }
        });
    }
}

TEST(DeviceStart, MakesNoTransferWithoutAnEventForIt) {
    PcWithHost setup({PcRoute::kUsb});
    const RefusedCalls refused(emulation::Call::kCreateEvent);
    BusRecorder recorder;
    EXPECT_FALSE(NfcProxy::InitNfcDevice());
    EXPECT_EQ(Joined(recorder.Take()), "");
    EXPECT_EQ(setup.log.TakeUnannounced().back(), "NFC error creating I / O event - 8");
    // The route is known from now on, and its chip is not.
    std::uint8_t number[32] = {};
    EXPECT_TRUE(setup.Create() && setup.manager->ReadRandNum(number) == -1);
    EXPECT_EQ(Joined(setup.log.TakeUnannounced()),
              "spbDriverOps == nullptr, ReadRandNum reg: 122 failed, ReadRandNum ReadNfc failed");
}

const struct {
    std::string chip;
    std::optional<std::uint8_t> mode;  // that stays, although 6 is written
    bool startsSilent = false;
    bool checksWrites = false;
    std::string lock = "";  // where the dynamic lock goes
} kChips[] = {
    {"fm11nt081", 0x06, false, false, "W 03 88 ff"},
    {"fm11nt081", 0x0E, true},  // the right low bits are not enough
    {"fm11nt081", 0x16, true},
    {"fm11nt081", 0x03, true},
    {"fm11nt082c", 0x06, false, false, "W 03 c8 ff"},
    {"fanli", {}, true, true},
    {"like-fanli", {}},
};

TEST(DeviceStart, LocksEachChipAndKeepsSomeSilentUntilAMessageIsOnThem) {
    for (const auto& one : kChips) {
        ForEachSeed(1, [&one] {
            SCOPED_TRACE(one.chip);
            constexpr unsigned kModeRegister = 0x038C;
            PcWithHost setup({PcRoute::kI2c}, one.chip);
            auto& door = setup.pc.chip()->BackDoor();
            if (one.mode) {
                door.StickBits(kModeRegister, 0xFF, *one.mode);
            }
            ASSERT_TRUE(setup.Create());
            setup.log.Announce("Nfc", "ReadNfcContent", "ReadMessage", "WriteMessage");
            BusRecorder recorder;
            ASSERT_TRUE(setup.manager->DeviceInit());
            EXPECT_NE(Joined(recorder.Take()).find(one.lock), std::string::npos);
            EXPECT_EQ(door.RadioOn(), !one.startsSilent);
            EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage()), 0);
            EXPECT_TRUE(door.RadioOn());
            const std::string lines = Joined(setup.log.TextsSoFar());
            EXPECT_EQ(lines.find("NfcExtend Check WriteTag ") != std::string::npos,
                      one.checksWrites);
        });
    }
}

}  // namespace
