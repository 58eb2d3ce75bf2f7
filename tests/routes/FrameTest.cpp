// The frames to the keyboards. The simulated ones are strict with every head, page and length.
#include <gtest/gtest.h>

#include <numeric>

#include "routes/NfcProxy.h"
#include "routes/RouteState.h"
#include "tests/support/Desk.h"
#include "tests/support/Seeds.h"

using simulator::PcRoute;
using namespace testing_support;
using Bytes = std::vector<std::uint8_t>;

namespace {

TEST(Frame, ReachesBothKeyboardsWholeOrNotAtAll) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kHid, PcRoute::kBle});
    desk.Start();
    simulator::KeyboardMcu& hid = *desk.pc.keyboard();
    simulator::BluetoothKeyboard& ble = *desk.pc.bluetooth();
    const auto proxy = NfcProxy::Detached();
    Bytes image(1000);
    std::iota(image.begin(), image.end(), std::uint8_t{1});
    for (const auto& [length, pages] :
         {std::pair{0, 1U}, {58, 1U}, {59, 2U}, {255, 5U}, {888, 15U}, {889, 0U}, {-1, 0U}}) {
        SCOPED_TRACE(length);
        desk.log.Clear();
        const std::size_t before = hid.ReportsSeen();
        EXPECT_EQ(proxy->NfcHidWrite(image.data(), length), pages != 0);
        EXPECT_EQ(proxy->BtWrite(image.data(), length), pages != 0);
        EXPECT_EQ(hid.ReportsSeen() - before, pages);
        if (pages == 0) {
            EXPECT_TRUE(desk.log.Lines().empty()) << "refused without a word";
            continue;
        }
        const Bytes sent(image.begin(), image.begin() + length);
        EXPECT_EQ(hid.Image(), sent);
        EXPECT_EQ(ble.Image(), sent);
    }
    const std::size_t before = hid.ReportsSeen();
    EXPECT_FALSE(proxy->NfcHidWrite(nullptr, 5) || proxy->BtWrite(nullptr, 5));
    EXPECT_FALSE(proxy->HidWrite(0, image.data(), 5, 1) || proxy->HidWrite(1, nullptr, 5, 1));
    EXPECT_FALSE(proxy->HidWrite(1, image.data(), 0, 1) || proxy->HidWrite(1, image.data(), 61, 1));
    EXPECT_EQ(hid.ReportsSeen(), before);
    // The number is asked for at the register of the PC type.
    for (const auto& [pcType, reg] : {std::pair{2, 73U}, {5, 122U}, {8, 122U}}) {
        SCOPED_TRACE(pcType);
        const auto fill = static_cast<std::uint8_t>(pcType);
        hid.SetMemory(reg, Bytes(32, fill));
        const auto other = static_cast<std::uint8_t>(0xB0 + pcType);
        ble.SetMemory(reg, Bytes(32, other));
        g_pcModel = fill;
        Number number{};
        EXPECT_TRUE(proxy->ReadRandNumber(number.data()));
        EXPECT_EQ(number, NumberOf(fill)) << "the HID keyboard's is read last";
        EXPECT_EQ(g_btRandNumber.value.Get(), NumberOf(other));
    }
    EXPECT_EQ(hid.DirtyTails() + hid.Refusals().size() + ble.Refusals().size(), 0U);
    AnnounceStop(desk.log);
}

}  // namespace
