// A PC with two routes: who is served when, and heard as what.
#include <gtest/gtest.h>

#include <numeric>

#include "platform/LinkDockBackDoor.h"
#include "routes/NfcProxy.h"
#include "tests/support/PcWithHost.h"

using LinkDockService::BleCall;
using simulator::PcRoute;
using namespace testing_support;

namespace {

// The number's register depends on the PC type.
void BothRoutes(PcRoute wired, std::uint8_t pcType, unsigned numberRegister) {
    PcWithHost setup({wired, PcRoute::kBle}, "fm11nt082c", pcType);
    setup.Start();
    // Each route's events carry the number as last read there.
    setup.pc.bluetooth()->SetMemory(numberRegister, simulator::Bytes(32, 0x22));
    std::uint8_t number[32] = {};
    EXPECT_EQ(setup.manager->ReadRandNum(number), 0);
    EXPECT_EQ(number[0], 0x11) << "the wired route is read last";
    setup.pc.TapPhone(wired, 0, kSecond);
    setup.pc.TapPhone(PcRoute::kBle, 100 * kMillisecond, 500 * kMillisecond);
    EXPECT_TRUE(PcWithHost::WaitForEvents(4, 20 * kSecond));
    EXPECT_EQ(EventNumbers(static_cast<int>(wired) + 1), (std::vector<int>{3, 1}));
    EXPECT_EQ(EventNumbers(4), (std::vector<int>{3, 1}));
    for (const ReceivedEvent& heard : EventsSoFar()) {
        EXPECT_EQ(heard.number, NumberOf(heard.route == 4 ? 0x22 : 0x11));
    }
    // A Bluetooth write that fails keeps the image from the other routes; a read does not.
    setup.log.Announce("[NFC] BleClientWrite ERROR", "UpdateNfcData ");
    for (const unsigned nth : {1U, 2U, 3U}) {
        LinkDockService::FailCall(BleCall::kWrite, nth);
    }
    setup.log.Clear();
    EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage(0x33)), -1);
    EXPECT_FALSE(setup.log.Has("NfcHidWrite success!") ||
                 setup.log.Has("Nfc CheckWriteTag ret: 1"));
    LinkDockService::FailCall(BleCall::kWrite, 1);
    EXPECT_EQ(setup.manager->ReadRandNum(number), 0);
    EXPECT_TRUE(
        HasInOrder(setup.log, {"[NFC] BleClientWrite ERROR", "[NFC_log] BtReadRandomNum fail "}));
    EXPECT_EQ(number[0], 0x11);
}

TEST(Routes, AWiredTagAndABluetoothKeyboard) {
    ForEachSeed(10, [] { BothRoutes(PcRoute::kI2c, 2, 73); });
    ForEachSeed(10, [] { BothRoutes(PcRoute::kUsb, 5, 122); });
    ForEachSeed(10, [] { BothRoutes(PcRoute::kHid, 8, 122); });
}

// The simulated keyboards are strict with every head, page and length.
TEST(Frames, ReachBothKeyboardsWholeOrNotAtAll) {
    StartedPc setup({PcRoute::kHid, PcRoute::kBle});
    simulator::KeyboardMcu& hid = *setup.pc.keyboard();
    simulator::BluetoothKeyboard& ble = *setup.pc.bluetooth();
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
