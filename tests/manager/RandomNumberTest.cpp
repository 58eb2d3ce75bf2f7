// Renewing the number: at once in memory, later on the tag, whatever becomes of host and chip.
#include <gtest/gtest.h>

#include "events/DriverThreads.h"
#include "manager/ManagerLocks.h"
#include "platform/TraceLog.h"
#include "platform/platform.h"
#include "tagimage/NfcData.h"
#include "tests/manager/ManagerAccess.h"
#include "tests/support/Desk.h"
#include "tests/support/NoArray.h"
#include "tests/support/Seeds.h"

using simulator::PcRoute;
using namespace testing_support;

namespace {

// The interrupt thread and the deferred call thread; number threads come on top.
constexpr std::size_t kEventThreads = 2;

Number NumberInMemory(const Desk& desk) {
    Number number;
    NfcManagerTestAccess::Message(*desk.manager)
        ->GetRandomNumber(reinterpret_cast<std::uint8_t(&)[32]>(number));
    return number;
}

std::string UrlOnChip(Desk& desk) {
    NfcData data;
    EXPECT_TRUE(data.Init() && data.Parse(desk.ImageOnChip(143)));
    return data.GetUrl();
}

TEST(RandomNumber, ReachesTheTagWithoutKeepingTheHost) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kI2c}, "fm11nt082c");
    desk.Start();
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
    EXPECT_TRUE(Desk::WaitForThreads(kEventThreads));
    EXPECT_EQ(desk.NumberOnChip(), last);
    EXPECT_EQ(desk.log.Count("LocalWriteRand ReadRandNum Successful"), 3U);
    desk.log.Announce("SetRandomNumber");
    EXPECT_EQ(desk.manager->WriteRandNum(NoArray<const std::uint8_t, 32>()), -1);
}

void SleepUnlessHost(int /*level*/, const std::wstring& /*line*/, void* /*context*/) {
    if (hosted::ThreadName(hosted::CurrentThread()) != "host") {
        Sleep(200);
    }
}

TEST(RandomNumber, DoesNotWaitForTheLogOfAnotherThread) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kUsb});
    desk.Start();
    TraceLogger::SetSink(&SleepUnlessHost, nullptr);
    OnThread([&desk] { EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x22)), 0); });
    for (std::uint8_t fill = 0x31; fill < 0x41; ++fill) {
        Desk::Pass(150 * hosted::kMillisecond);
        const hosted::Micros before = hosted::Now();
        EXPECT_EQ(Renew(*desk.manager, NumberOf(fill)), 0);
        EXPECT_EQ(hosted::Now(), before);
    }
    EXPECT_TRUE(Desk::WaitForThreads(kEventThreads, 600 * hosted::kSecond));
    EXPECT_EQ(desk.NumberOnChip(), NumberOf(0x40));
}

TEST(RandomNumber, StaysAsItWasWithoutAThreadToWriteIt) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kI2c}, "fm11nt082c");
    desk.Start();
    desk.log.Announce("WriteRandNum CreateThread failed - 8");
    hosted::SetCallHook([](hosted::Call call, hosted::ThreadId) -> DWORD {
        return call == hosted::Call::kCreateThread ? ERROR_NOT_ENOUGH_MEMORY : 0;
    });
    EXPECT_EQ(Renew(*desk.manager, NumberOf(0x41)), -1);
    hosted::SetCallHook({});
    EXPECT_EQ(NumberInMemory(desk), NumberOf(0x11));
    EXPECT_TRUE(desk.manager->UpdateNfcData());
    EXPECT_EQ(desk.NumberOnChip(), NumberOf(0x11));
    EXPECT_EQ(Renew(*desk.manager, NumberOf(0x41)), 0);
    EXPECT_TRUE(Desk::WaitForThreads(kEventThreads));
    EXPECT_EQ(desk.NumberOnChip(), NumberOf(0x41)) << "given again, it is written";
    EXPECT_EQ(desk.log.Count("WriteRandNum CreateThread failed - 8"), 1U);
}

// Memory would have the tag's old number again, and the thread would write that.
TEST(RandomNumber, IsKeptByAReadThatComesBeforeItsThread) {
    ForEachSeed(30, [] {
        Desk desk({PcRoute::kI2c}, "fm11nt082c");
        desk.Start();
        EXPECT_EQ(Renew(*desk.manager, NumberOf(0x41)), 0);
        EXPECT_EQ(desk.manager->ReadMessage(NfcManagerTestAccess::Message(*desk.manager)), 0);
        EXPECT_TRUE(Desk::WaitForThreads(kEventThreads));
        EXPECT_EQ(desk.NumberOnChip(), NumberOf(0x41));
    });
}

// Keeps the number threads waiting for a while.
void HoldWriteMutex() {
    OnThread([] {
        platform::Lock lock(g_writeMutex);
        Sleep(20'000);
    });
    Desk::Pass(hosted::kSecond);
}

// The number that a host puts into its message counts as given when an operation takes it over.
TEST(RandomNumber, OfTheHostsMessageReplacesOneThatWaitsForItsThread) {
    const std::function<bool(NfcManager&)> operations[] = {
        [](NfcManager& m) { return m.UpdateNfcData(); },
        NfcManagerTestAccess::UpdateNfcContent,
        [](NfcManager& m) { return m.ReadMessage(std::make_shared<NdefMessage>()) == 0; },
    };
    for (const auto& takesOver : operations) {
        ForEachSeed(3, [&takesOver] {
            Desk desk({PcRoute::kI2c}, "fm11nt082c");
            desk.Start();
            HoldWriteMutex();
            EXPECT_EQ(Renew(*desk.manager, NumberOf(0x41)), 0);
            const auto message = NfcManagerTestAccess::Message(*desk.manager);
            SetNumber(*message, NumberOf(0x42));
            EXPECT_TRUE(takesOver(*desk.manager));
            EXPECT_EQ(desk.manager->ReadMessage(message), 0);
            EXPECT_EQ(NumberInMemory(desk), NumberOf(0x42));
            EXPECT_TRUE(Desk::WaitForThreads(kEventThreads));
            EXPECT_EQ(desk.NumberOnChip(), NumberOf(0x42));
        });
    }
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

TEST(RandomNumber, OfAManagerThatHasGoneLeavesItsSuccessorsTagAlone) {
    ForEachSeed(20, [] {
        Desk desk({PcRoute::kI2c}, "fm11nt082c");
        desk.Start();
        AnnounceStop(desk.log);
        for (std::uint8_t fill = 0x21; fill < 0x24; ++fill) {
            EXPECT_EQ(Renew(*desk.manager, NumberOf(fill)), 0);
        }
        desk.manager.reset();
        ASSERT_TRUE(desk.Create() && desk.manager->DeviceInit());
        EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x55, 'w')), 0);
        EXPECT_TRUE(Desk::WaitForThreads(kEventThreads));
        EXPECT_EQ(UrlOnChip(desk), std::string(50, 'w'));
        EXPECT_EQ(desk.NumberOnChip(), NumberOf(0x55));
    });
}

TEST(RandomNumber, GivenAfterAnotherManagersWriteReachesTheTag) {
    ForEachSeed(20, [] {
        Desk desk({PcRoute::kI2c}, "fm11nt082c");
        desk.Start();
        AnnounceStop(desk.log);
        const auto other = NfcManager::Create(desk.NewMessage(0x55, 'w'), &Desk::Listen);
        EXPECT_EQ(other->WriteMessage(desk.NewMessage(0x55, 'w')), 0);
        EXPECT_EQ(Renew(*desk.manager, NumberOf(0x21)), 0);
        EXPECT_TRUE(Desk::WaitForThreads(kEventThreads));
        EXPECT_EQ(UrlOnChip(desk), std::string(50, 'u'));
        EXPECT_EQ(desk.NumberOnChip(), NumberOf(0x21));
    });
}

TEST(RandomNumber, IsNotReadIntoAnArrayThatIsNotThere) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kI2c});
    desk.Start();
    desk.log.Clear();
    desk.log.Announce("NFC ReadRandNumber memcpy_s fail");
    desk.log.Announce("ReadRandNum ReadNfc failed");
    EXPECT_EQ(desk.manager->ReadRandNum(NoArray<std::uint8_t, 32>()), -1);
    EXPECT_EQ(ErrorsIn(desk.log), (std::vector<std::string>{"NFC ReadRandNumber memcpy_s fail",
                                                            "ReadRandNum ReadNfc failed"}));
}

}  // namespace
