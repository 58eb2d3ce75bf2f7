// Renewing the number: at once in memory, later on the tag, whatever happens to host and chip.
#include "manager/ManagerLocks.h"
#include "platform/platform.h"
#include "routes/NfcProxy.h"
#include "tests/manager/ManagerAccess.h"
#include "tests/support/NoArray.h"
#include "tests/support/PcWithHost.h"

using namespace testing_support;

namespace {

// A PC with a tag that holds the number 0x11 and a URL of 'u'.
struct TagWithNumber : StartedPc {
    TagWithNumber() : StartedPc({PcRoute::kI2c}, "fm11nt082c") {}
    int Give(std::uint8_t fill) { return Renew(*manager, NumberOf(fill)); }
    Number OnChipInTheEnd() {
        EXPECT_TRUE(WaitForThreads(2, 600 * kSecond));  // interrupt and deferred call stay
        return NumberOnChip();
    }
};

// Keeps those who need the lock waiting for a time, the number threads by default.
void Hold(DWORD milliseconds = 20'000, platform::Mutex& mutex = NumberThreadMutex()) {
    OnThread([milliseconds, &mutex] {
        const platform::Lock lock(mutex);
        Sleep(milliseconds);
    });
    PcWithHost::Pass(kMillisecond);
}

TEST(RandomNumber, ReachesTheTagWithoutKeepingTheHost) {
    TagWithNumber setup;
    const emulation::ThreadId host = emulation::CurrentThread();
    setup.log.OnLine([host](const std::string& /*text*/) {
        Sleep(emulation::CurrentThread() == host ? 0 : 200);
    });
    setup.log.Announce("NFC ", "Nfc ", "NfcRead", "WriteMessage Read", "ReadMessage");
    setup.SetFaults("read#3=fail:31");  // the write reads first, and goes on
    OnThread([&setup] { EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage(0x22)), 0); });
    for (std::uint8_t fill = 0x31; fill < 0x51; ++fill) {
        PcWithHost::Pass(150 * kMillisecond);
        const emulation::Micros before = emulation::Now();
        EXPECT_EQ(setup.Give(fill), 0);
        EXPECT_EQ(emulation::Now(), before) << "however long a write and its log take";
    }
    EXPECT_TRUE(setup.log.Has("WriteMessage Read failed"));
    EXPECT_NE(setup.NumberOnChip(), NumberOf(0x50));
    EXPECT_EQ(setup.OnChipInTheEnd(), NumberOf(0x50));
    EXPECT_EQ(setup.log.Count("LocalWriteRand ReadRandNum Successful"), 32U);
}

TEST(RandomNumber, IsRefusedInANullReferenceOrWithoutAThread) {
    TagWithNumber setup;
    {
        const RefusedCalls refused(emulation::Call::kCreateThread);
        EXPECT_EQ(setup.Give(0x41), -1);
    }
    EXPECT_EQ(Joined(setup.log.TakeUnannounced()), "WriteRandNum CreateThread failed - 8");
    EXPECT_EQ(setup.manager->WriteRandNum(NoArray<const std::uint8_t, 32>()), -1);
    EXPECT_EQ(setup.manager->ReadRandNum(NoArray<std::uint8_t, 32>()), -1);
    EXPECT_EQ(setup.log.TakeUnannounced(),
              (Texts{"SetRandomNumber memcpy_s fail", "SetRandomNumber fail",
                     "NFC ReadRandNumber memcpy_s fail", "ReadRandNum ReadNfc failed"}));
}

// The number that a host puts into its message counts as given when an operation takes it over.
TEST(RandomNumber, OfTheHostsMessageReplacesOneThatWaitsForItsThread) {
    TagWithNumber setup;
    const auto message = NfcManagerTestAccess::Message(*setup.manager);
    const std::function<bool(NfcManager&)> operations[] = {
        [](NfcManager& m) { return m.UpdateNfcData(); },
        NfcManagerTestAccess::UpdateNfcContent,
        [](NfcManager& m) { return m.ReadMessage(std::make_shared<NdefMessage>()) == 0; },
    };
    std::uint8_t fill = 0x41;
    for (const auto& takesOver : operations) {
        Hold();
        EXPECT_EQ(setup.Give(fill++), 0);
        SetNumber(*message, NumberOf(fill));
        EXPECT_TRUE(takesOver(*setup.manager));
        EXPECT_EQ(setup.manager->ReadMessage(message), 0);
        EXPECT_EQ(NumberIn(*message), NumberOf(fill)) << "the tag's may be older";
        EXPECT_EQ(setup.OnChipInTheEnd(), NumberOf(fill++));
    }
}

TEST(RandomNumber, GivenWhileAnUpdateFillsTheImageIsNotLost) {
    TagWithNumber setup;
    bool given = false;
    setup.log.OnLine([&](const std::string& text) {
        if (!given && text.rfind("m_uri size is", 0) == 0) {
            given = true;
            OnThread([&setup] { EXPECT_EQ(setup.Give(0x41), 0); });
            Sleep(10);
        }
    });
    EXPECT_TRUE(setup.manager->UpdateNfcData());
    EXPECT_EQ(setup.OnChipInTheEnd(), NumberOf(0x41));
}

TEST(RandomNumber, GivenAgainWhileItsThreadWaitsIsTheNewest) {
    TagWithNumber setup;
    const auto other = NfcManager::Create(setup.NewMessage(0x22), &PcWithHost::Listen);
    Hold();
    EXPECT_EQ(setup.Give(0x41), 0);
    EXPECT_EQ(other->WriteMessage(setup.NewMessage(0x22)), 0);
    EXPECT_EQ(setup.Give(0x41), 0);
    EXPECT_EQ(setup.OnChipInTheEnd(), NumberOf(0x41));
}

TEST(RandomNumber, GivenAgainDuringAWriteIsNewerThanTheMessages) {
    TagWithNumber setup;
    OnThread([&setup] { EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage(0x22)), 0); });
    PcWithHost::Pass(20 * kMillisecond);
    EXPECT_EQ(setup.Give(0x11), 0);
    EXPECT_EQ(setup.OnChipInTheEnd(), NumberOf(0x11));
}

TEST(RandomNumber, ThatWaitsLeavesTheTagToAnotherManagersUpdate) {
    TagWithNumber setup;
    const auto other = NfcManager::Create(setup.NewMessage(0x22), &PcWithHost::Listen);
    const std::function<bool(NfcManager&)> updates[] = {
        NfcManagerTestAccess::UpdateNfcContent,
        [](NfcManager& m) { return m.UpdateNfcData(); },
    };
    std::uint8_t fill = 0x41;
    for (const auto& update : updates) {
        Hold();
        EXPECT_EQ(setup.Give(fill++), 0);
        EXPECT_TRUE(update(*other));
        setup.log.Clear();
        EXPECT_EQ(setup.OnChipInTheEnd(), NumberOf(0x22));
        EXPECT_FALSE(setup.log.Has("LocalWriteRand ReadRandNum Successful")) << "nothing to read";
    }
    const auto own = NfcManagerTestAccess::Message(*setup.manager);
    EXPECT_EQ(setup.manager->ReadMessage(own), 0);
    EXPECT_EQ(NumberIn(*own), NumberOf(0x22)) << "no number of its own waits any more";
}

// The write of a third manager waits for the tag while two others give numbers.
TEST(RandomNumber, GivenLastStaysWhateverAnOlderMessageWritesInBetween) {
    ForEachSeed(40, [] {
        TagWithNumber setup;
        const auto second = NfcManager::Create(setup.NewMessage(0x22), &PcWithHost::Listen);
        const auto third = NfcManager::Create(setup.NewMessage(0x23), &PcWithHost::Listen);
        Hold(500, ContentLock::m_mutex);
        Hold(498);
        OnThread([&setup] { setup.manager->UpdateNfcData(); });
        PcWithHost::Pass(kMillisecond);
        EXPECT_EQ(Renew(*third, NumberOf(0x43)), 0);
        EXPECT_EQ(Renew(*second, NumberOf(0x42)), 0);
        EXPECT_NE(setup.OnChipInTheEnd(), NumberOf(0x43));
    });
}

}  // namespace
