// Renewing the number: at once in memory, later on the tag, whatever happens to host and chip.
#include <gtest/gtest.h>

#include "events/DriverThreads.h"
#include "manager/ManagerLocks.h"
#include "platform/platform.h"
#include "routes/NfcProxy.h"
#include "tests/manager/ManagerAccess.h"
#include "tests/support/Desk.h"
#include "tests/support/NoArray.h"
#include "tests/support/Seeds.h"

using simulator::PcRoute;
using namespace testing_support;

namespace {

constexpr std::size_t kEventThreads = 2;  // interrupt and deferred call; number threads are extra

// A PC with a tag that holds the number 0x11 and a URL of 'u'.
struct TagWithNumber : Desk {
    TagWithNumber() : Desk({PcRoute::kI2c}, "fm11nt082c") {
        Start();
        AnnounceStop(log);
    }
    int Give(std::uint8_t fill) { return Renew(*manager, NumberOf(fill)); }
    std::uint8_t InMemory() const {
        std::uint8_t number[32] = {};
        NfcManagerTestAccess::Message(*manager)->GetRandomNumber(number);
        return number[0];
    }
    Number OnChipInTheEnd() {
        EXPECT_TRUE(WaitForThreads(kEventThreads, 600 * hosted::kSecond));
        return NumberOnChip();
    }
};

// Keeps the number threads of the next 20 s waiting.
void HoldNumberThreads() {
    OnThread([] {
        platform::Lock lock(NumberThreadMutex());
        Sleep(20'000);
    });
    Desk::Pass(hosted::kMillisecond);
}

TEST(RandomNumber, ReachesTheTagWithoutKeepingTheHost) {
    hosted::UseScheduledClock({Seed()});
    TagWithNumber desk;
    const hosted::ThreadId host = hosted::CurrentThread();
    desk.log.OnLine(
        [host](const std::string& /*text*/) { Sleep(hosted::CurrentThread() == host ? 0 : 200); });
    OnThread([&desk] { EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x22)), 0); });
    for (std::uint8_t fill = 0x31; fill < 0x41; ++fill) {
        Desk::Pass(150 * hosted::kMillisecond);
        const hosted::Micros before = hosted::Now();
        EXPECT_EQ(desk.Give(fill), 0);
        EXPECT_EQ(hosted::Now(), before) << "however long a write and its log take";
    }
    EXPECT_NE(desk.NumberOnChip(), NumberOf(0x40));
    EXPECT_EQ(desk.OnChipInTheEnd(), NumberOf(0x40));
    EXPECT_EQ(desk.log.Count("LocalWriteRand ReadRandNum Successful"), 16U);
}

TEST(RandomNumber, StaysAsItWasWithoutAThreadToWriteIt) {
    hosted::UseScheduledClock({Seed()});
    TagWithNumber desk;
    hosted::SetCallHook([](hosted::Call call, hosted::ThreadId) -> DWORD {
        return call == hosted::Call::kCreateThread ? ERROR_NOT_ENOUGH_MEMORY : 0;
    });
    EXPECT_EQ(desk.Give(0x41), -1);
    hosted::SetCallHook({});
    EXPECT_EQ(desk.log.TakeUnannounced(),
              std::vector<std::string>{"WriteRandNum CreateThread failed - 8"});
    EXPECT_EQ(desk.InMemory(), 0x11);
    EXPECT_TRUE(desk.manager->UpdateNfcData());
    EXPECT_EQ(desk.NumberOnChip(), NumberOf(0x11));
    EXPECT_EQ(desk.Give(0x41), 0);
    EXPECT_EQ(desk.OnChipInTheEnd(), NumberOf(0x41)) << "given again, it is written";
}

TEST(RandomNumber, InAnArrayThatIsNotThere) {
    hosted::UseScheduledClock({Seed()});
    TagWithNumber desk;
    EXPECT_EQ(desk.manager->WriteRandNum(NoArray<const std::uint8_t, 32>()), -1);
    EXPECT_EQ(desk.manager->ReadRandNum(NoArray<std::uint8_t, 32>()), -1);
    EXPECT_EQ(desk.log.TakeUnannounced(),
              (std::vector<std::string>{"SetRandomNumber memcpy_s fail", "SetRandomNumber fail",
                                        "NFC ReadRandNumber memcpy_s fail",
                                        "ReadRandNum ReadNfc failed"}));
}

// The number that a host puts into its message counts as given when an operation takes it over.
TEST(RandomNumber, OfTheHostsMessageReplacesOneThatWaitsForItsThread) {
    hosted::UseScheduledClock({Seed()});
    TagWithNumber desk;
    const auto message = NfcManagerTestAccess::Message(*desk.manager);
    const std::function<bool(NfcManager&)> operations[] = {
        [](NfcManager& m) { return m.UpdateNfcData(); },
        NfcManagerTestAccess::UpdateNfcContent,
        [](NfcManager& m) { return m.ReadMessage(std::make_shared<NdefMessage>()) == 0; },
    };
    std::uint8_t fill = 0x41;
    for (const auto& takesOver : operations) {
        HoldNumberThreads();
        EXPECT_EQ(desk.Give(fill++), 0);
        SetNumber(*message, NumberOf(fill));
        EXPECT_TRUE(takesOver(*desk.manager));
        EXPECT_EQ(desk.manager->ReadMessage(message), 0);
        EXPECT_EQ(desk.InMemory(), fill) << "the tag's may be older";
        EXPECT_EQ(desk.OnChipInTheEnd(), NumberOf(fill++));
    }
}

TEST(RandomNumber, OutlivesTheHostsLastPointer) {
    ForEachSeed(50, [] {
        Desk desk({PcRoute::kI2c}, "fm11nt082c");
        for (std::uint8_t fill = 0x21; fill < 0x24; ++fill) {
            desk.Start();
            AnnounceStop(desk.log);
            EXPECT_EQ(Renew(*desk.manager, NumberOf(fill)), 0);
            desk.manager.reset();
            EXPECT_FALSE(g_interruptRunning) << "the event threads are stopped at once";
            EXPECT_TRUE(Desk::WaitForThreads(1)) << "the deferred call thread stays";
            EXPECT_EQ(desk.NumberOnChip(), NumberOf(fill));
            EXPECT_EQ(desk.log.Count("LocalWriteRand ReadRandNum Successful"), 1U);
            EXPECT_LE(hosted::Live().handles, 2U) << "the device's and that thread's";
            EXPECT_EQ(hosted::Live().requests, 0U);
            desk.log.Clear();
        }
    });
}

TEST(RandomNumber, OfAManagerThatHasGoneLeavesItsSuccessorsTagAlone) {
    hosted::UseScheduledClock({Seed()});
    TagWithNumber desk;
    HoldNumberThreads();
    EXPECT_EQ(desk.Give(0x21), 0);
    EXPECT_EQ(desk.Give(0x22), 0);
    desk.manager.reset();
    ASSERT_TRUE(desk.Create() && desk.manager->DeviceInit());
    EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x55, 'w')), 0);
    const std::string written = desk.ImageOnChip(143);
    desk.OnChipInTheEnd();
    EXPECT_EQ(desk.ImageOnChip(143), written);
    EXPECT_EQ(desk.NumberOnChip(), NumberOf(0x55));
    EXPECT_EQ(
        desk.log.Count("LocalWriteRand leaves the tag alone: another manager has written since"),
        2U);
}

TEST(RandomNumber, GivenAfterAnotherManagersWriteReachesTheTag) {
    hosted::UseScheduledClock({Seed()});
    TagWithNumber desk;
    const auto other = NfcManager::Create(desk.NewMessage(), &Desk::Listen);
    EXPECT_EQ(other->WriteMessage(desk.NewMessage(0x55, 'w')), 0);
    EXPECT_EQ(desk.Give(0x21), 0);
    EXPECT_EQ(desk.OnChipInTheEnd(), NumberOf(0x21));
}

TEST(RandomNumber, GivenAgainWhileItsThreadWaitsIsTheNewest) {
    hosted::UseScheduledClock({Seed()});
    TagWithNumber desk;
    const auto other = NfcManager::Create(desk.NewMessage(0x22), &Desk::Listen);
    HoldNumberThreads();
    EXPECT_EQ(desk.Give(0x41), 0);
    EXPECT_EQ(other->WriteMessage(desk.NewMessage(0x22)), 0);
    EXPECT_EQ(desk.Give(0x41), 0);
    EXPECT_EQ(desk.OnChipInTheEnd(), NumberOf(0x41));
}

// The write of a third manager waits for the tag while two others give numbers.
TEST(RandomNumber, GivenLastStaysWhateverAnOlderMessageWritesInBetween) {
    ForEachSeed(40, [] {
        TagWithNumber desk;
        const auto second = NfcManager::Create(desk.NewMessage(0x22), &Desk::Listen);
        const auto third = NfcManager::Create(desk.NewMessage(0x23), &Desk::Listen);
        OnThread([] {
            platform::Lock lock(NfcProxy::m_contentMutex);
            Sleep(500);
        });
        OnThread([] {
            platform::Lock lock(NumberThreadMutex());
            Sleep(499);
        });
        Desk::Pass(hosted::kMillisecond);
        OnThread([&desk] { desk.manager->UpdateNfcData(); });
        Desk::Pass(hosted::kMillisecond);
        EXPECT_EQ(Renew(*third, NumberOf(0x43)), 0);
        EXPECT_EQ(Renew(*second, NumberOf(0x42)), 0);
        EXPECT_NE(desk.OnChipInTheEnd(), NumberOf(0x43));
    });
}

}  // namespace
