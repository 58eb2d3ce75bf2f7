// The HID keyboard at work: its reports, its start, and silence while it is away.
#include <gtest/gtest.h>

#include "tests/support/Desk.h"
#include "tests/support/ScriptedBus.h"
#include "tests/support/Seeds.h"

using simulator::PcRoute;
using namespace testing_support;

namespace {

// What one report leaves: its log lines, the wait for the next one among them.
std::string Send(Desk& desk, unsigned type, unsigned first, unsigned second) {
    desk.log.Clear();
    simulator::Bytes report(64, 0x5A);
    report[5] = static_cast<std::uint8_t>(type);
    report[6] = static_cast<std::uint8_t>(first);
    report[7] = static_cast<std::uint8_t>(second);
    desk.pc.keyboard()->SendRaw(report);
    Desk::Pass(5 * hosted::kMillisecond);
    return Joined(desk.log.Texts());
}

TEST(Hid, JudgesEveryReport) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kHid});
    desk.Start();
    Desk::Pass(hosted::kSecond);
    EXPECT_TRUE(desk.manager->SetMcuKbConnectStatus(false));  // stops no report from coming
    const std::string wait = "NFC Wait For KeyboardData";
    for (unsigned type = 0; type < 256; ++type) {
        if (type != 2 && type != 3) {
            ASSERT_EQ(Send(desk, type, 0x6E, 0xE6), "NFC not valid data, " + wait) << type;
        }
    }
    EXPECT_EQ(Send(desk, 3, 0xA1, 0xA2), wait);
    for (const unsigned first : {0x00, 0x6D, 0x6E, 0x6F, 0xE5, 0xE6, 0xE7, 0xFF}) {
        for (const unsigned second : {0x00, 0x6D, 0x6E, 0x6F, 0xE5, 0xE6, 0xE7, 0xFF}) {
            const unsigned both = first * 256 + second;
            const std::string line = both == 0x6EE6   ? "NFC_SELECT_IN_FIELD 1st report, "
                                     : both == 0xE66E ? "NFC_defer call done: A1A25A5A5A5A5A5A, "
                                                      : "not valid mcu data, ";
            EXPECT_EQ(Send(desk, 2, first, second), "NFC Interrupt arrive, " + line + wait);
        }
    }
    EXPECT_EQ(EventsHeard(3), (std::vector<int>{3, 1}));
    for (const Heard& heard : HeardSoFar()) {
        EXPECT_EQ(heard.number[0], 0xA1);
        EXPECT_EQ(heard.number[31], 0x5A);
    }
    // A missing listener drops the event, and the thread goes on.
    desk.manager->RegisterListener(nullptr);
    desk.log.Announce("NFC staticCallback is null");
    EXPECT_EQ(Send(desk, 2, 0x6E, 0xE6),
              "NFC Interrupt arrive, NFC_SELECT_IN_FIELD 1st report, NFC staticCallback is null, " +
                  wait);
    EXPECT_EQ(EventsHeard().size(), 2U);
    AnnounceStop(desk.log);
}

TEST(Hid, SendsNothingWhileTheKeyboardIsAway) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kHid});
    desk.Start();
    const simulator::KeyboardMcu& keyboard = *desk.pc.keyboard();
    const std::size_t before = keyboard.ReportsSeen();
    std::uint8_t number[32] = {0xCD};
    desk.manager->SetMcuKbConnectStatus(false);
    EXPECT_EQ(desk.manager->ReadRandNum(number), 0);
    EXPECT_EQ(number[0], 0xCD);
    desk.log.Announce("ReadRandNum value is wrong");
    desk.log.Announce("UpdateNfcData ReadRandNum failed");
    EXPECT_FALSE(desk.manager->UpdateNfcData()) << "nobody gives the number back";
    EXPECT_EQ(keyboard.ReportsSeen(), before);
    desk.manager->SetMcuKbConnectStatus(true);
    EXPECT_TRUE(desk.manager->UpdateNfcData());
    EXPECT_EQ(keyboard.ReportsSeen(), before + 4) << "an image of three pages, a request of one";
    EXPECT_EQ(keyboard.DirtyTails() + keyboard.Refusals().size(), 0U);
    AnnounceStop(desk.log);
}

TEST(Hid, AStartThatCannotBegin) {
    struct Case {
        hosted::Call call;
        unsigned nth;
        const char* line;
    };
    for (const Case& one :
         {Case{hosted::Call::kCreateEvent, 1, "NFC error creating I / O event - 8"},
          Case{hosted::Call::kCreateEvent, 2, "NFC error creating g_RandEvent - 8"},
          Case{hosted::Call::kCreateThread, 1, "NFC g_hReadHidThread Create fail"}}) {
        ForEachSeed(1, [&one] {
            Desk desk({PcRoute::kHid});
            desk.log.Announce("");
            unsigned calls = 0;
            hosted::SetCallHook([&](hosted::Call call, hosted::ThreadId) -> DWORD {
                return call == one.call && ++calls == one.nth ? ERROR_NOT_ENOUGH_MEMORY : 0;
            });
            desk.Start();  // the second attempt works, and the read thread lives
            EXPECT_TRUE(HasInOrder(desk.log,
                                   {one.line, "InitNfcDevice exit CloseHandle done",
                                    "NFC_ select hid device", "NFC g_hReadHidThread Create pass"}));
            hosted::SetCallHook({});
            desk.pc.TapPhone(0, hosted::kSecond);
            EXPECT_TRUE(Desk::WaitForEvents(2, 10 * hosted::kSecond));
            EXPECT_EQ(hosted::Live().threads, 2U);
        });
    }
}

}  // namespace
