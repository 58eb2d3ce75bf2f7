// Stops and starts in close order: each ends with live threads, and nothing is left over.
#include <gtest/gtest.h>

#include "tests/support/Desk.h"
#include "tests/support/Seeds.h"

using simulator::PcRoute;
using namespace testing_support;

namespace {

// A phone comes and goes on the route, and the host hears of it once each way.
void ExpectVisit(Desk& desk) {
    std::vector<int> expected = EventsHeard();
    expected.insert(expected.end(), {3, 1});
    desk.pc.TapPhone(0, hosted::kSecond);
    EXPECT_TRUE(Desk::WaitForEvents(expected.size(), 20 * hosted::kSecond))
        << hosted::DescribeThreads();
    Desk::Pass(hosted::kSecond);
    EXPECT_EQ(EventsHeard(), expected);
}

// What a host does three times over leaves no more behind than it found, and a route that works.
void ThreeTimes(PcRoute route, void (*act)(Desk&)) {
    ForEachSeed(100, [route, act] {
        Desk desk({route}, "fm11nt082c");
        AnnounceStop(desk.log);
        desk.log.Announce("NFC ReadKeyboardData ReadFile error 0x6");  // between close and open
        desk.Start();
        Desk::Pass(hosted::kSecond);
        const hosted::LiveCounts before = hosted::Live();
        for (int round = 0; round < 3; ++round) {
            act(desk);
        }
        Desk::Pass(hosted::kSecond);
        ExpectVisit(desk);
        EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x51)), 0);
        Desk::Pass(hosted::kSecond);
        const hosted::LiveCounts after = hosted::Live();
        EXPECT_LE(after.handles, before.handles);
        EXPECT_LE(after.threads, before.threads);
        EXPECT_LE(after.requests, before.requests);
    });
}

TEST(Life, AWriteRightBehindAStop) {
    for (const PcRoute route : {PcRoute::kI2c, PcRoute::kUsb, PcRoute::kHid}) {
        ThreeTimes(route, [](Desk& desk) {
            desk.manager.reset();
            desk.Start();
        });
    }
}

TEST(Life, OpeningAKeyboardAgain) {
    for (const PcRoute route : {PcRoute::kHid, PcRoute::kBle}) {
        ThreeTimes(route, [](Desk& desk) { EXPECT_TRUE(desk.StartDevices(*desk.manager)); });
    }
}

// The stop has only just been signalled when the threads are wanted again: a write that fails
// before its first transfer starts them all the same.
TEST(Life, ThreadsThatAreAboutToEndServeOn) {
    ForEachSeed(100, [] {
        Desk desk({PcRoute::kUsb}, "fm11nt082c");
        desk.log.Announce("");
        desk.Start();
        Desk::Pass(hosted::kSecond);
        NfcManager::Create(desk.NewMessage(), &Desk::Listen);  // and lets go of it
        for (auto steps = hosted::Random() % 6; steps > 0; --steps) {
            hosted::Yield();
        }
        const auto message = desk.NewMessage();
        message->SetUrl(std::string(253, 'u'));
        EXPECT_EQ(desk.manager->WriteMessage(message), -1);
        Desk::Pass(hosted::kSecond);
        EXPECT_EQ(hosted::Live().threads, 2U);
        ExpectVisit(desk);
    });
}

// A copy works on the same tag and memory, and event threads end with the last of them.
TEST(Life, CopiesShareEverythingUntilTheLastOneGoes) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kUsb});
    desk.Start();
    NfcManager copy(*desk.manager);
    NfcManager assigned(nullptr);
    assigned = copy;
    desk.manager.reset();
    EXPECT_EQ(Renew(assigned, NumberOf(0x77)), 0);
    Desk::Pass(5 * hosted::kSecond);
    EXPECT_EQ(desk.NumberOnChip(), NumberOf(0x77));
    EXPECT_EQ(Renew(copy, NumberOf(0x77)), 0);
    EXPECT_TRUE(desk.log.Has("WriteRandNum no need to update"));

    AnnounceStop(desk.log);
    copy = NfcManager(nullptr);
    Desk::Pass(hosted::kSecond);
    EXPECT_FALSE(desk.log.Has("NFC WaitOnInterruptLoop return"));
    assigned = copy;
    Desk::Pass(hosted::kSecond);
    EXPECT_TRUE(desk.log.Has("NFC WaitOnInterruptLoop return"));
}

}  // namespace
