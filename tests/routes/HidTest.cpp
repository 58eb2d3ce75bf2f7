// The HID keyboard at work: its reports, and silence while it is away.
#include <gtest/gtest.h>

#include "routes/HidReports.h"
#include "tests/support/PcWithHost.h"

using simulator::PcRoute;
using namespace testing_support;

namespace {

TEST(Hid, JudgesEveryReport) {
    StartedPc setup({PcRoute::kHid});
    EXPECT_TRUE(setup.manager->SetMcuKbConnectStatus(false));  // stops no report from coming
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
        PcWithHost::Pass(kSecond);
        setup.log.Clear();
        simulator::Bytes report(64, 0x5A);
        report[5] = type;
        report[6] = first;
        report[7] = second;
        setup.pc.keyboard()->SendRaw(report);
        PcWithHost::Pass(5 * kMillisecond);
        EXPECT_EQ(Joined(setup.log.TextsSoFar()), lines + "NFC Wait For KeyboardData");
    }
    EXPECT_EQ(EventNumbers(3), (std::vector<int>{3, 1}));
    EXPECT_EQ(EventsSoFar()[0].number[0], 0xA1);
    EXPECT_EQ(EventsSoFar()[0].number[31], 0x5A);
}

TEST(Hid, SendsNothingWhileTheKeyboardIsAway) {
    StartedPc setup({PcRoute::kHid});
    const simulator::KeyboardMcu& keyboard = *setup.pc.keyboard();
    const std::size_t before = keyboard.ReportsSeen();
    std::uint8_t number[32] = {0xCD};
    setup.manager->SetMcuKbConnectStatus(false);
    EXPECT_EQ(setup.manager->ReadRandNum(number), 0);
    EXPECT_EQ(number[0], 0xCD);
    setup.log.Announce("ReadRandNum value is wrong", "UpdateNfcData ReadRandNum failed");
    EXPECT_FALSE(setup.manager->UpdateNfcData()) << "nobody gives the number back";
    EXPECT_EQ(keyboard.ReportsSeen(), before);
    setup.manager->SetMcuKbConnectStatus(true);
    EXPECT_TRUE(setup.manager->UpdateNfcData());
    EXPECT_EQ(keyboard.ReportsSeen(), before + 4) << "an image of three pages, a request of one";
}

// The listener takes its time with a report, so the read thread is there and no read is pending
// when a device start closes the keyboard.
struct HeldReader : StartedPc {
    HeldReader() : StartedPc({PcRoute::kHid}) {
        ReactToEvents([this](const ReceivedEvent&) {
            hosted::WaitFor([this] { return release; }, hosted::kForever, "the host");
        });
        pc.keyboard()->SendField(true);
        EXPECT_TRUE(PcWithHost::WaitForEvents(1, kSecond));
    }
    bool release = false;
};

TEST(HidThread, NeverReadsFromTheChipThatTookThePlaceOfTheKeyboard) {
    HeldReader setup;
    setup.log.Announce("Nfc chip", "Nfc spb2 format");
    const simulator::SimulatedPc withChip({PcRoute::kI2c});
    BusRecorder bus;
    EXPECT_TRUE(setup.manager->DeviceInit());
    setup.release = true;
    PcWithHost::Pass(10 * kMillisecond);
    EXPECT_EQ(bus.Take(EventsSoFar()[0].thread).size(), 0U) << "requests of the read thread";
    EXPECT_TRUE(setup.log.Has("NFC ReadKeyboardDataThread return"));
}

TEST(HidThread, IsStoppedByAStartThatFindsNoDevice) {
    HeldReader setup;
    setup.log.Announce("NFC_Error opening any driver", "NfcManager Init DeviceInit failed");
    hosted::RemoveHidInterfaces();
    EXPECT_FALSE(setup.manager->DeviceInit());
    EXPECT_FALSE(g_readHidRunning);
    setup.release = true;
    PcWithHost::Pass(10 * kMillisecond);
}

}  // namespace
