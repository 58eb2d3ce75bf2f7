// The HID keyboard at work: its reports, its start and its loss.
#include <gtest/gtest.h>

#include "peripheral/EventThread.h"
#include "tests/support/Desk.h"
#include "tests/support/Seeds.h"

using simulator::PcRoute;
using namespace testing_support;

namespace {

simulator::Bytes Report(std::uint8_t type, std::uint8_t first, std::uint8_t second) {
    simulator::Bytes report(64, 0x5A);
    report[5] = type;
    report[6] = first;
    report[7] = second;
    return report;
}

// What one report leaves: its log lines behind the wait, and the event.
struct Left {
    std::vector<std::string> lines;
    std::vector<int> events;
};

Left Send(Desk& desk, const simulator::Bytes& report) {
    desk.log.Clear();
    const std::size_t before = HeardSoFar().size();
    {
        const hosted::DeviceLock lock;
        desk.pc.keyboard()->SendRaw(report);
    }
    Desk::Pass(5 * hosted::kMillisecond);
    Left left;
    left.lines = desk.log.Texts();
    EXPECT_EQ(left.lines.back(), "NFC Wait For KeyboardData") << "for the next one";
    left.lines.pop_back();
    const std::vector<int> events = EventsHeard(3);
    left.events.assign(events.begin() + static_cast<std::ptrdiff_t>(before), events.end());
    return left;
}

TEST(Hid, JudgesEveryReport) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kHid});
    desk.Start();
    Desk::Pass(hosted::kSecond);
    // Stops no report from coming.
    EXPECT_TRUE(desk.manager->SetMcuKbConnectStatus(false));
    for (unsigned type = 0; type < 256; ++type) {
        if (type == 2 || type == 3) {
            continue;
        }
        const Left left = Send(desk, Report(static_cast<std::uint8_t>(type), 0x6E, 0xE6));
        EXPECT_EQ(left.lines, std::vector<std::string>{"NFC not valid data"}) << type;
        EXPECT_TRUE(left.events.empty());
    }
    EXPECT_TRUE(Send(desk, Report(3, 0xA1, 0xA2)).lines.empty());
    const std::vector<std::uint8_t> ends = {0x00, 0x6D, 0x6E, 0x6F, 0xE5, 0xE6, 0xE7, 0xFF};
    for (const std::uint8_t first : ends) {
        for (const std::uint8_t second : ends) {
            const Left left = Send(desk, Report(2, first, second));
            ASSERT_FALSE(left.lines.empty());
            EXPECT_EQ(left.lines.front(), "NFC Interrupt arrive");
            ASSERT_EQ(left.lines.size(), 2U);
            if (first == 0x6E && second == 0xE6) {
                EXPECT_EQ(left.lines[1], "NFC_SELECT_IN_FIELD 1st report");
                EXPECT_EQ(left.events, std::vector<int>{3});
            } else if (first == 0xE6 && second == 0x6E) {
                EXPECT_EQ(left.lines[1], "NFC_defer call done: A1A25A5A5A5A5A5A");
                EXPECT_EQ(left.events, std::vector<int>{1});
            } else {
                EXPECT_EQ(left.lines[1], "not valid mcu data");
                EXPECT_TRUE(left.events.empty());
            }
        }
    }
    ASSERT_EQ(HeardSoFar().size(), 2U);
    for (const Heard& heard : HeardSoFar()) {
        EXPECT_EQ(heard.number[0], 0xA1);
        EXPECT_EQ(heard.number[31], 0x5A);
    }
    // A missing listener drops the event, and the thread goes on.
    desk.manager->RegisterListener(nullptr);
    desk.log.Announce("NFC staticCallback is null");
    EXPECT_TRUE(Send(desk, Report(2, 0x6E, 0xE6)).events.empty());
    EXPECT_TRUE(desk.log.Has("NFC staticCallback is null"));
    AnnounceStop(desk.log);
}

TEST(Hid, SendsNothingWhileTheKeyboardIsAway) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kHid});
    desk.Start();
    const auto seen = [&desk] {
        const hosted::DeviceLock lock;
        return desk.pc.keyboard()->ReportsSeen();
    };
    const std::size_t before = seen();
    std::uint8_t number[32] = {0xCD};
    desk.manager->SetMcuKbConnectStatus(false);
    EXPECT_EQ(desk.manager->ReadRandNum(number), 0);
    EXPECT_EQ(number[0], 0xCD);
    desk.log.Announce("ReadRandNum value is wrong");
    desk.log.Announce("UpdateNfcData ReadRandNum failed");
    EXPECT_FALSE(desk.manager->UpdateNfcData()) << "nobody gives the number back";
    EXPECT_EQ(seen(), before);
    desk.manager->SetMcuKbConnectStatus(true);
    EXPECT_TRUE(desk.manager->UpdateNfcData());
    EXPECT_EQ(seen(), before + 4) << "an image of three pages, a request of one";
    EXPECT_EQ(desk.pc.keyboard()->DirtyTails(), 0U);
    EXPECT_TRUE(desk.pc.keyboard()->Refusals().empty());
    AnnounceStop(desk.log);
}

TEST(Hid, SurvivesTheCable) {
    ForEachSeed(30, [] {
        Desk desk({PcRoute::kHid});
        desk.log.Announce("");
        desk.Start();
        Desk::Pass(hosted::kSecond);
        const hosted::LiveCounts before = hosted::Live();
        desk.pc.Unplug();
        Desk::Pass(hosted::kSecond);
        EXPECT_TRUE(desk.log.Has("NFC ReadKeyboardDataThread return"));
        EXPECT_EQ(g_hReadHidThread, nullptr);
        EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x61)), -1);
        EXPECT_FALSE(desk.manager->DeviceInit());
        desk.pc.Plug();
        EXPECT_TRUE(desk.manager->DeviceInit());
        EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x62)), 0);
        desk.pc.TapPhone(0, hosted::kSecond);
        EXPECT_TRUE(Desk::WaitForEvents(2, 10 * hosted::kSecond));
        EXPECT_EQ(HeardSoFar()[0].number, NumberOf(0x62));
        Desk::Pass(hosted::kSecond);
        EXPECT_LE(hosted::Live().handles, before.handles);
        EXPECT_EQ(hosted::Live().threads, before.threads);
    });
}

TEST(Hid, AKeyboardThatGoesBetweenTwoPages) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kHid});
    desk.log.Announce("");
    desk.Start();
    simulator::FaultPlan plan;
    plan.faults.push_back({simulator::FaultTarget::kWrite, 2, 2, simulator::FaultAction::kGone, 0});
    desk.pc.Faults(plan);
    desk.log.Clear();
    EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x71)), -1);
    EXPECT_TRUE(HasInOrder(
        desk.log, {"NfcHidWrite fail, page num: i = 2", "NfcHidWrite fail, page num: i = 1",
                   "NfcHidWrite fail, page num: i = 1", "UpdateNfcData Write failed",
                   "UpdateNfcData failed"}));
    EXPECT_EQ(desk.pc.keyboard()->ImagesStored(), 1U) << "half an image is none";
    desk.pc.Faults({});
    ASSERT_TRUE(desk.manager->DeviceInit());
    EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x72)), 0);
    EXPECT_EQ(desk.pc.keyboard()->ImagesStored(), 2U);
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
            desk.log.Announce("NFC_Error opening Spb driver");
            desk.log.Announce("NFC error creating");
            ASSERT_TRUE(desk.Create());
            unsigned calls = 0;
            hosted::SetCallHook([&](hosted::Call call, hosted::ThreadId) -> DWORD {
                return call == one.call && ++calls == one.nth ? ERROR_NOT_ENOUGH_MEMORY : 0;
            });
            EXPECT_TRUE(desk.manager->DeviceInit()) << "the second attempt works";
            EXPECT_TRUE(HasInOrder(desk.log,
                                   {one.line, "InitNfcDevice exit CloseHandle done",
                                    "NFC_ select hid device", "NFC g_hReadHidThread Create pass"}));
            hosted::SetCallHook({});
            desk.manager->SetMcuKbConnectStatus(true);
            std::uint8_t number[32] = {};
            EXPECT_EQ(desk.manager->ReadRandNum(number), 0) << "the read thread lives";
            desk.pc.TapPhone(0, hosted::kSecond);
            EXPECT_TRUE(Desk::WaitForEvents(2, 10 * hosted::kSecond));
            EXPECT_EQ(hosted::Live().threads, 1U);
            AnnounceStop(desk.log);
        });
    }
}

}  // namespace
