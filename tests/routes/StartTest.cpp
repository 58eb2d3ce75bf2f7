// Device start: which route, in what order, how often, and what a failed start leaves.
#include <gtest/gtest.h>

#include "chip/NfcDeviceContext.h"
#include "events/EventState.h"
#include "routes/NfcProxy.h"
#include "routes/RouteState.h"
#include "simulator/SpbDriver.h"
#include "tests/support/Desk.h"
#include "tests/support/ScriptedBus.h"
#include "tests/support/Seeds.h"
#include "transfer/TransferState.h"

using simulator::PcRoute;
using namespace testing_support;

namespace {

using Texts = std::vector<std::string>;

constexpr unsigned kFdMode = 0x038C;

bool StartDevice() {
    return NfcProxy::Detached()->InitNfcDevice();
}

TEST(DeviceStart, PrefersI2cAndKeepsItsHandle) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kI2c, PcRoute::kUsb}, "fm11nt081");
    desk.log.Announce("Nfc");
    ASSERT_TRUE(StartDevice());
    const std::size_t handles = hosted::Live().handles;
    ASSERT_TRUE(StartDevice());
    EXPECT_EQ(desk.log.Count("NFC_ select I2C Driver"), 1U);
    EXPECT_EQ(desk.log.Count("DeviceHandle already exist"), 1U);
    EXPECT_EQ(desk.log.Count("NfcBitlockEnable set bitlock done"), 2U);
    EXPECT_EQ(desk.pc.spb()->OpenRequests(), 2U);
    EXPECT_EQ(hosted::Live().handles, handles);
    EXPECT_TRUE(g_isI2cDriver && !g_isUsbDriver);
}

TEST(DeviceStart, OnUsbDetectsNothingTriesAStepFiveTimesAndThenCloses) {
    hosted::UseScheduledClock({Seed()});
    const struct {
        const char* faults;
        const char* failure;  // null: the start works in the end
        std::ptrdiff_t pauses;
    } cases[] = {
        {"", nullptr, 0},
        {"write#1-2=fail:31", nullptr, 2},
        {"write#1-5=fail:31", "InitDevice Fm11n failed", 5},
        // The first step needs three writes, and the chip keeps its mode from then on.
        {"write#4+=fail:31", "BitlockEnable failed", 5},
        {"read#3-6=short:1", nullptr, 4},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.faults);
        Desk desk({PcRoute::kUsb}, "fm11nt081");
        desk.log.Announce("N");
        desk.SetFaults(one.faults);
        const std::size_t handles = hosted::Live().handles;
        BusRecorder recorder;
        EXPECT_EQ(StartDevice(), one.failure == nullptr);
        const Texts traffic = recorder.Take();
        EXPECT_EQ(traffic.at(0), "W 03 8c") << "neither an open request nor a probe";
        EXPECT_EQ(GetNfcDeviceContext().chipKind, NfcChipLikeFm11n);
        EXPECT_EQ(std::pair(g_nfcOpDelayMs.load(), g_nfcReadDelayMs.load()), std::pair(10U, 50U));
        EXPECT_EQ(std::count(traffic.begin(), traffic.end(), "sleep 500"), one.pauses);
        if (one.failure != nullptr) {
            EXPECT_EQ(desk.log.TakeUnannounced(), Texts{one.failure});
            EXPECT_EQ(traffic.back(), "sleep 500");
            EXPECT_EQ(DeviceHandle, nullptr);
            EXPECT_EQ(hosted::Live().handles, handles);
        }
        CloseHandle(DeviceHandle.exchange(nullptr));
        g_ioEvent.value.Close();
    }
}

// A chip whose mode byte isn't exactly 6 is kept silent until a message is on it.
void StartWithMode(std::uint8_t mode) {
    Desk desk({PcRoute::kI2c}, "fm11nt081");
    const bool silenced = mode != 6;
    {
        const hosted::DeviceLock lock;
        desk.pc.chip()->BackDoor().StickBits(kFdMode, 0xFF, mode);
    }
    desk.log.Announce("");
    ASSERT_TRUE(desk.Create());
    ASSERT_TRUE(desk.manager->DeviceInit());
    EXPECT_EQ(GetNfcDeviceContext().chipKind, silenced ? NfcChipFdModeOther : NfcChipFm11nt081);
    EXPECT_EQ(desk.pc.chip()->BackDoor().RadioOn(), !silenced);
    ASSERT_EQ(desk.manager->WriteMessage(desk.NewMessage()), 0);
    EXPECT_TRUE(desk.pc.chip()->BackDoor().RadioOn());
}

TEST(ModeByte, DecidesAboutTheRadio) {
    // 0x03 stays what it is although 6 is written; 0x0E and 0x16 have the right low bits.
    for (const unsigned mode : {0x06U, 0x0EU, 0x16U, 0x03U}) {
        ForEachSeed(1, [mode] { StartWithMode(static_cast<std::uint8_t>(mode)); });
    }
}

}  // namespace
