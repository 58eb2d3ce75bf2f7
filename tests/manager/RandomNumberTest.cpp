// Renewing the number: at once in memory, later on the tag, whatever becomes of host and chip.
#include <gtest/gtest.h>

#include "events/DriverThreads.h"
#include "tests/manager/ManagerAccess.h"
#include "tests/support/Desk.h"
#include "tests/support/NoArray.h"
#include "tests/support/Seeds.h"

using simulator::PcRoute;
using namespace testing_support;

namespace {

TEST(RandomNumber, ReachesTheTagWithoutKeepingTheHost) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kI2c}, "fm11nt082c");
    desk.Start();
    const std::size_t running = hosted::Live().threads;
    EXPECT_EQ(Renew(*desk.manager, NumberOf(0x11)), 0);
    EXPECT_TRUE(desk.log.Has("WriteRandNum no need to update"));
    Number last = NumberOf(0x11);
    desk.SetFaults("write#1+=late:50, read#1+=late:50");
    for (last[31] = 0x12; last[31] < 0x15; ++last[31]) {
        const hosted::Micros before = hosted::Now();
        EXPECT_EQ(Renew(*desk.manager, last), 0);
        EXPECT_EQ(hosted::Now(), before) << "however long the tag takes";
        Desk::Pass(20 * hosted::kMillisecond);
    }
    last[31] = 0x14;
    EXPECT_NE(desk.NumberOnChip(), last);
    EXPECT_TRUE(Desk::WaitForThreads(running));
    EXPECT_EQ(desk.NumberOnChip(), last);
    EXPECT_EQ(desk.log.Count("LocalWriteRand ReadRandNum Successful"), 3U);
    desk.log.Announce("SetRandomNumber");
    EXPECT_EQ(desk.manager->WriteRandNum(NoArray<const std::uint8_t, 32>()), -1);
}

// Memory would have the tag's old number again, and the thread would write that.
TEST(RandomNumber, IsKeptByAReadThatComesBeforeItsThread) {
    ForEachSeed(30, [] {
        Desk desk({PcRoute::kI2c}, "fm11nt082c");
        desk.Start();
        EXPECT_EQ(Renew(*desk.manager, NumberOf(0x41)), 0);
        EXPECT_EQ(desk.manager->ReadMessage(NfcManagerTestAccess::Message(*desk.manager)), 0);
        EXPECT_TRUE(Desk::WaitForThreads(2));
        EXPECT_EQ(desk.NumberOnChip(), NumberOf(0x41));
    });
}

TEST(RandomNumber, OutlivesTheHostsLastPointer) {
    ForEachSeed(50, [] {
        Desk desk({PcRoute::kI2c}, "fm11nt082c");
        std::size_t handles = 0;
        for (std::uint8_t fill = 0x21; fill < 0x24; ++fill) {
            desk.Start();
            AnnounceStop(desk.log);
            EXPECT_EQ(Renew(*desk.manager, NumberOf(fill)), 0);
            desk.manager.reset();
            EXPECT_FALSE(g_interruptRunning) << "the event threads are told to stop at once";
            EXPECT_TRUE(Desk::WaitForThreads(1)) << "the deferred call thread stays";
            EXPECT_EQ(desk.NumberOnChip(), NumberOf(fill));
            EXPECT_EQ(desk.log.Count("LocalWriteRand ReadRandNum Successful"), 1U);
            EXPECT_TRUE(handles == 0 || hosted::Live().handles == handles);
            EXPECT_EQ(hosted::Live().requests, 0U);
            handles = hosted::Live().handles;
            desk.log.Clear();
        }
    });
}

}  // namespace
