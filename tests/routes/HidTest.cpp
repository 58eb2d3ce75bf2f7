// The HID keyboard at work: its reports, and silence while it is away.
#include <gtest/gtest.h>

#include "tests/support/Desk.h"

using simulator::PcRoute;
using namespace testing_support;

namespace {

TEST(Hid, JudgesEveryReport) {
    StartedDesk desk({PcRoute::kHid});
    EXPECT_TRUE(desk.manager->SetMcuKbConnectStatus(false));  // stops no report from coming
    const std::string arrived = "NFC Interrupt arrive, ";
    const std::string invalid = arrived + "not valid mcu data, ";
    const struct {
        std::uint8_t type, first, second;
        std::string lines;
    } cases[] = {
        {1, 0x6E, 0xE6, "NFC not valid data, "},
        {4, 0x6E, 0xE6, "NFC not valid data, "},
        {3, 0xA1, 0xA2, ""},
        {2, 0x6E, 0xE6, arrived + "NFC_SELECT_IN_FIELD 1st report, "},
        {2, 0xE6, 0x6E, arrived + "NFC_defer call done: A1A25A5A5A5A5A5A, "},
        {2, 0x6E, 0x6E, invalid},
        {2, 0xE6, 0xE6, invalid},
    };
    for (const auto& [type, first, second, lines] : cases) {
        Desk::Pass(hosted::kSecond);
        desk.log.Clear();
        simulator::Bytes report(64, 0x5A);
        report[5] = type;
        report[6] = first;
        report[7] = second;
        desk.pc.keyboard()->SendRaw(report);
        Desk::Pass(5 * hosted::kMillisecond);
        EXPECT_EQ(Joined(desk.log.Texts()), lines + "NFC Wait For KeyboardData");
    }
    EXPECT_EQ(EventsHeard(3), (std::vector<int>{3, 1}));
    EXPECT_EQ(HeardSoFar()[0].number[0], 0xA1);
    EXPECT_EQ(HeardSoFar()[0].number[31], 0x5A);
}

TEST(Hid, SendsNothingWhileTheKeyboardIsAway) {
    StartedDesk desk({PcRoute::kHid});
    const simulator::KeyboardMcu& keyboard = *desk.pc.keyboard();
    const std::size_t before = keyboard.ReportsSeen();
    std::uint8_t number[32] = {0xCD};
    desk.manager->SetMcuKbConnectStatus(false);
    EXPECT_EQ(desk.manager->ReadRandNum(number), 0);
    EXPECT_EQ(number[0], 0xCD);
    desk.log.Announce("ReadRandNum value is wrong", "UpdateNfcData ReadRandNum failed");
    EXPECT_FALSE(desk.manager->UpdateNfcData()) << "nobody gives the number back";
    EXPECT_EQ(keyboard.ReportsSeen(), before);
    desk.manager->SetMcuKbConnectStatus(true);
    EXPECT_TRUE(desk.manager->UpdateNfcData());
    EXPECT_EQ(keyboard.ReportsSeen(), before + 4) << "an image of three pages, a request of one";
}

// The listener takes its time with a report, so no read is pending when the device start finds
// another device.
TEST(HidThread, NeverReadsFromTheChipThatTookThePlaceOfTheKeyboard) {
    StartedDesk desk({PcRoute::kHid});
    AnnounceStop(desk.log);
    desk.log.Announce("Nfc chip", "Nfc spb2 format");
    bool release = false;
    ReactToEvents([&](const Heard&) {
        hosted::WaitFor([&] { return release; }, hosted::kForever, "the host");
    });
    desk.pc.keyboard()->SendField(true);
    ASSERT_TRUE(Desk::WaitForEvents(1, hosted::kSecond));
    const hosted::ThreadId reader = HeardSoFar()[0].thread;
    const simulator::SimulatedPc withChip({PcRoute::kI2c});
    BusRecorder bus;
    EXPECT_TRUE(desk.manager->DeviceInit());
    release = true;
    Desk::Pass(10 * hosted::kMillisecond);
    EXPECT_EQ(bus.Take(reader).size(), 0U) << "requests of the keyboard read thread";
    EXPECT_TRUE(desk.log.Has("NFC ReadKeyboardDataThread return"));
}

}  // namespace
