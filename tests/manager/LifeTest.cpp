// Stops and starts in close order: each ends with live threads, and nothing is left over.
#include <gtest/gtest.h>

#include "peripheral/EventThread.h"
#include "tests/support/Desk.h"
#include "tests/support/Seeds.h"

using simulator::kDefaultBleAddress;
using simulator::PcRoute;
using namespace testing_support;

namespace {

// A phone comes and goes on the route, and the host hears of it once each way.
void ExpectVisit(Desk& desk, PcRoute route) {
    const std::size_t before = HeardSoFar().size();
    desk.pc.TapPhone(route, 0, 1000 * hosted::kMillisecond);
    EXPECT_TRUE(Desk::WaitForEvents(before + 2, 20 * hosted::kSecond)) << hosted::DescribeThreads();
    ASSERT_EQ(HeardSoFar().size(), before + 2);
    EXPECT_EQ(HeardSoFar()[before].event, 3);
    EXPECT_EQ(HeardSoFar()[before + 1].event, 1);
}

void ExpectNoMoreThan(const hosted::LiveCounts& before) {
    const hosted::LiveCounts now = hosted::Live();
    EXPECT_LE(now.handles, before.handles);
    EXPECT_LE(now.threads, before.threads);
    EXPECT_LE(now.requests, before.requests);
}

TEST(Life, AWriteRightBehindAStop) {
    for (const PcRoute route : {PcRoute::kI2c, PcRoute::kUsb, PcRoute::kHid}) {
        ForEachSeed(100, [route] {
            Desk desk({route}, "fm11nt082c");
            AnnounceStop(desk.log);
            desk.Start();
            ExpectVisit(desk, route);
            Desk::Pass(hosted::kSecond);
            const hosted::LiveCounts before = hosted::Live();
            for (int round = 0; round < 3; ++round) {
                desk.manager.reset();
                desk.Start();
            }
            Desk::Pass(hosted::kSecond);
            ExpectVisit(desk, route);
            Desk::Pass(hosted::kSecond);
            ExpectNoMoreThan(before);
        });
    }
}

// The stop has only just been signalled when the threads are wanted again: a write that fails
// before its first transfer starts them all the same.
TEST(Life, ThreadsThatAreAboutToEndServeOn) {
    ForEachSeed(200, [] {
        Desk desk({PcRoute::kUsb}, "fm11nt082c");
        AnnounceStop(desk.log);
        desk.log.Announce("m_nfcData SetUrl failed");
        desk.log.Announce("SetContent fail");
        desk.log.Announce("UpdateNfcData failed");
        desk.Start();
        Desk::Pass(hosted::kSecond);
        auto other = NfcManager::Create(desk.NewMessage(), &Desk::Listen);
        other.reset();
        for (auto steps = hosted::Random() % 6; steps > 0; --steps) {
            hosted::Yield();
        }
        const auto message = desk.NewMessage();
        message->SetUrl(std::string(253, 'u'));
        EXPECT_EQ(desk.manager->WriteMessage(message), -1);
        Desk::Pass(hosted::kSecond);
        EXPECT_EQ(hosted::Live().threads, 2U);
        ExpectVisit(desk, PcRoute::kUsb);
    });
}

TEST(Life, ReopeningTheHidKeyboard) {
    ForEachSeed(100, [] {
        Desk desk({PcRoute::kHid});
        AnnounceStop(desk.log);
        desk.log.Announce("NFC ReadKeyboardData ReadFile error 0x6");  // between close and open
        desk.Start();
        Desk::Pass(hosted::kSecond);
        const hosted::LiveCounts before = hosted::Live();
        for (int round = 0; round < 3; ++round) {
            EXPECT_TRUE(desk.manager->DeviceInit());
        }
        EXPECT_EQ(desk.log.Count("NFC g_hReadHidThread Create pass") +
                      desk.log.Count("NFC_ g_hReadHidThread already exist"),
                  4U);
        Desk::Pass(hosted::kSecond);
        ExpectVisit(desk, PcRoute::kHid);
        EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x51)), 0);
        Desk::Pass(hosted::kSecond);
        ExpectNoMoreThan(before);
    });
}

TEST(Life, ConnectingTheBluetoothKeyboardAgain) {
    ForEachSeed(100, [] {
        Desk desk({PcRoute::kBle});
        desk.Start();
        Desk::Pass(hosted::kSecond);
        const hosted::LiveCounts before = hosted::Live();
        for (int round = 0; round < 3; ++round) {
            EXPECT_TRUE(desk.manager->BtConnect(kDefaultBleAddress));
        }
        ExpectVisit(desk, PcRoute::kBle);
        EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x52)), 0);
        Desk::Pass(hosted::kSecond);
        ExpectNoMoreThan(before);
        EXPECT_TRUE(desk.manager->BtDisconnect(kDefaultBleAddress));
        EXPECT_EQ(LinkDockService::DeliveryThreads(), 0U);
    });
}

}  // namespace
