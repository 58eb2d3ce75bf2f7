// Renewing the number: at once in memory, later on the tag, whatever becomes of host and chip.
#include <gtest/gtest.h>

#include "peripheral/EventThread.h"
#include "platform/LinkDockBackDoor.h"
#include "tests/manager/ManagerAccess.h"
#include "tests/support/Desk.h"
#include "tests/support/NoArray.h"
#include "tests/support/Seeds.h"

using simulator::PcRoute;
using namespace testing_support;
using Lines = std::vector<std::string>;

namespace {

int Renew(NfcManager& manager, const Number& number) {
    std::uint8_t bytes[32];
    std::copy(number.begin(), number.end(), bytes);
    return manager.WriteRandNum(bytes);
}

simulator::FaultPlan Plan(const std::string& text) {
    std::string error;
    const auto plan = simulator::FaultPlan::Parse(text, error);
    EXPECT_TRUE(plan) << error;
    return plan.value_or(simulator::FaultPlan{});
}

TEST(RandomNumber, ReachesTheTagWithoutKeepingTheHost) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kI2c}, "fm11nt082c");
    desk.Start();
    const std::size_t running = hosted::Live().threads;
    EXPECT_EQ(Renew(*desk.manager, NumberOf(0x11)), 0);
    EXPECT_TRUE(desk.log.Has("WriteRandNum no need to update"));
    EXPECT_EQ(hosted::Live().threads, running);
    Number last = NumberOf(0x11);
    last[31] = 0x12;
    desk.pc.Faults(Plan("write#1+=late:50, read#1+=late:50"));
    for (const std::uint8_t fill : {std::uint8_t{0x12}, std::uint8_t{0x13}, std::uint8_t{0x14}}) {
        const hosted::Micros before = hosted::Now();
        last[31] = fill;
        EXPECT_EQ(Renew(*desk.manager, last), 0);
        EXPECT_EQ(hosted::Now(), before) << "however long the tag takes";
        Desk::Pass(20 * hosted::kMillisecond);
    }
    EXPECT_NE(desk.NumberOnChip(), last);
    EXPECT_TRUE(Desk::WaitForThreads(running));
    EXPECT_EQ(desk.NumberOnChip(), last);
    EXPECT_EQ(desk.log.Count("LocalWriteRand ReadRandNum Successful"), 3U);
    std::uint8_t read[32];
    EXPECT_EQ(desk.manager->ReadRandNum(read), 0);
    EXPECT_TRUE(std::equal(last.begin(), last.end(), read));
    desk.log.Announce("SetRandomNumber");
    EXPECT_EQ(desk.manager->WriteRandNum(NoArray<const std::uint8_t, 32>()), -1);
    AnnounceStop(desk.log);
}

TEST(RandomNumber, OutlivesTheHostsLastPointer) {
    ForEachSeed(50, [] {
        Desk desk({PcRoute::kI2c}, "fm11nt082c");
        hosted::LiveCounts before{};
        for (std::uint8_t fill = 0x21; fill < 0x25; ++fill) {
            desk.Start();
            AnnounceStop(desk.log);
            EXPECT_EQ(Renew(*desk.manager, NumberOf(fill)), 0);
            desk.manager.reset();
            EXPECT_FALSE(g_interruptRunning) << "the event threads are told to stop at once";
            EXPECT_TRUE(Desk::WaitForThreads(1)) << "the deferred call thread stays";
            EXPECT_EQ(desk.NumberOnChip(), NumberOf(fill));
            EXPECT_EQ(desk.log.Count("LocalWriteRand ReadRandNum Successful"), 1U);
            if (before.handles != 0) {
                EXPECT_EQ(hosted::Live().handles, before.handles);
                EXPECT_EQ(hosted::Live().requests, before.requests);
            }
            before = hosted::Live();
            desk.log.Clear();
        }
    });
}

TEST(RandomNumber, TellsWhyItDidNotReachTheTag) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kI2c, PcRoute::kBle}, "fm11nt082c");
    desk.log.Announce("");
    desk.Start();
    const std::size_t running = hosted::Live().threads;
    Number byteTwo{};
    byteTwo[2] = 1;
    struct Case {
        Number number;
        unsigned writesRefused;
        Lines errors;
        std::size_t reads;
    };
    const Lines refused(3, "[NFC] BleClientWrite ERROR");
    Lines allRefused = refused;
    allRefused.insert(allRefused.end(),
                      {"LocalWriteRand WriteNfcContent failed", "LocalWriteRand failed"});
    const Case cases[] = {
        {NumberOf(0x31), 3, allRefused, 0},
        {NumberOf(0x32), 2, Lines(2, refused[0]), 1},
        {byteTwo, 0, {"LocalWriteRand ReadRandNum failed", "LocalWriteRand failed"}, 3},
    };
    for (const Case& one : cases) {
        desk.log.Clear();
        for (unsigned nth = 1; nth <= one.writesRefused; ++nth) {
            LinkDockService::FailCall(LinkDockService::BleCall::kWrite, nth);
        }
        EXPECT_EQ(Renew(*desk.manager, one.number), 0);
        EXPECT_TRUE(Desk::WaitForThreads(running));
        EXPECT_EQ(ErrorsIn(desk.log), one.errors);
        EXPECT_EQ(desk.log.Count("LocalWriteRand begin ReadRandNum"), one.reads);
        EXPECT_EQ(desk.NumberOnChip() == one.number, one.writesRefused < 3);
        EXPECT_EQ(Renew(*desk.manager, one.number), 0);
        EXPECT_TRUE(desk.log.Has("WriteRandNum no need to update")) << "failed or not";
    }
    EXPECT_TRUE(desk.manager->UpdateNfcData()) << "which looks at byte 2 as well";
}

}  // namespace
