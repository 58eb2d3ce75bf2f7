// A PC with two routes: who is served when, and heard as what.
#include <gtest/gtest.h>

#include <numeric>

#include "platform/LinkDockBackDoor.h"
#include "routes/NfcProxy.h"
#include "tests/support/Desk.h"

using LinkDockService::BleCall;
using simulator::PcRoute;
using namespace testing_support;

namespace {

// The number's register depends on the PC type.
void BothRoutes(PcRoute wired, std::uint8_t pcType, unsigned numberRegister) {
    Desk desk({wired, PcRoute::kBle}, "fm11nt082c", pcType);
    desk.Start();
    // Each route's events carry the number as last read there.
    desk.pc.bluetooth()->SetMemory(numberRegister, simulator::Bytes(32, 0x22));
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
    // A Bluetooth write that fails keeps the image from the other routes; a read does not.
    desk.log.Announce("[NFC] BleClientWrite ERROR", "UpdateNfcData ");
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
    ForEachSeed(10, [] { BothRoutes(PcRoute::kI2c, 2, 73); });
    ForEachSeed(10, [] { BothRoutes(PcRoute::kUsb, 5, 122); });
    ForEachSeed(10, [] { BothRoutes(PcRoute::kHid, 8, 122); });
}

// The simulated keyboards are strict with every head, page and length.
TEST(Frames, ReachBothKeyboardsWholeOrNotAtAll) {
    StartedDesk desk({PcRoute::kHid, PcRoute::kBle});
    simulator::KeyboardMcu& hid = *desk.pc.keyboard();
    simulator::BluetoothKeyboard& ble = *desk.pc.bluetooth();
    const auto proxy = NfcProxy::Detached();
    simulator::Bytes image(1000);
    std::iota(image.begin(), image.end(), std::uint8_t{1});
    for (const auto& [length, pages] :
         {std::pair{58, 1U}, {888, 15U}, {59, 2U}, {889, 0U}, {-1, 0U}}) {
        SCOPED_TRACE(length);
        const std::size_t before = hid.ReportsSeen();
        EXPECT_EQ(proxy->NfcHidWrite(image.data(), length), pages != 0);
        EXPECT_EQ(proxy->BtWrite(image.data(), length), pages != 0);
        EXPECT_EQ(hid.ReportsSeen() - before, pages);
        if (pages != 0) {
            const simulator::Bytes sent(image.begin(), image.begin() + length);
            EXPECT_EQ(hid.Image(), sent);
            EXPECT_EQ(ble.Image(), sent);
        }
    }
    EXPECT_EQ(hid.ImagesStored(), ble.ImagesStored()) << "what was refused has not been sent";
    EXPECT_EQ(hid.DirtyTails() + hid.Refusals().size() + ble.Refusals().size(), 0U);
}

}  // namespace
