// A chip or a HID keyboard beside a Bluetooth keyboard: who is served when, and heard as what.
#include <gtest/gtest.h>

#include "platform/LinkDockBackDoor.h"
#include "tests/support/Desk.h"
#include "tests/support/Seeds.h"

using LinkDockService::BleCall;
using simulator::PcRoute;
using namespace testing_support;

namespace {

void BothRoutes(PcRoute wired) {
    Desk desk({wired, PcRoute::kBle}, "fm11nt082c");
    desk.Start();
    // Each route's events carry the number as last read there.
    desk.pc.bluetooth()->SetMemory(122, simulator::Bytes(32, 0x22));
    std::uint8_t number[32] = {};
    EXPECT_EQ(desk.manager->ReadRandNum(number), 0);
    EXPECT_EQ(number[0], 0x11) << "the wired route is read last";
    desk.pc.TapPhone(wired, 0, hosted::kSecond);
    desk.pc.TapPhone(PcRoute::kBle, 100 * hosted::kMillisecond, 500 * hosted::kMillisecond);
    EXPECT_TRUE(Desk::WaitForEvents(4, 20 * hosted::kSecond));
    EXPECT_EQ(EventsHeard(static_cast<int>(wired) + 1), (std::vector<int>{3, 1}));
    EXPECT_EQ(EventsHeard(4), (std::vector<int>{3, 1}));
    for (const Heard& heard : HeardSoFar()) {
        EXPECT_EQ(heard.number, NumberOf(heard.route == 4 ? 0x22 : 0x11));
    }
    for (const char* text : {"[NFC] BleClientWrite ERROR", "UpdateNfcData "}) {
        desk.log.Announce(text);
    }
    // A Bluetooth write that fails keeps the image from the other routes; a read does not.
    for (const unsigned nth : {1U, 2U, 3U}) {
        LinkDockService::FailCall(BleCall::kWrite, nth);
    }
    desk.log.Clear();
    EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x33)), -1);
    EXPECT_FALSE(desk.log.Has("NfcHidWrite success!") || desk.log.Has("Nfc CheckWriteTag ret: 1"));
    LinkDockService::FailCall(BleCall::kWrite, 1);
    EXPECT_EQ(desk.manager->ReadRandNum(number), 0);
    EXPECT_TRUE(
        HasInOrder(desk.log, {"[NFC] BleClientWrite ERROR", "[NFC_log] BtReadRandomNum fail "}));
    EXPECT_EQ(number[0], 0x11);
}

TEST(Routes, AWiredTagAndABluetoothKeyboard) {
    for (const PcRoute wired : {PcRoute::kI2c, PcRoute::kUsb, PcRoute::kHid}) {
        ForEachSeed(10, [wired] { BothRoutes(wired); });
    }
}

}  // namespace
