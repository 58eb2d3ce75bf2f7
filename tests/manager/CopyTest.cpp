// Copies of a manager, and a tag whose image somebody spoiled.
#include <gtest/gtest.h>

#include "tests/support/Desk.h"
#include "tests/support/Seeds.h"

using simulator::PcRoute;
using namespace testing_support;

namespace {

// A copy works on the same tag and memory, and event threads end with the last of them.
TEST(Copy, SharesEverythingUntilTheLastOneGoes) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kUsb});
    desk.Start();
    NfcManager copy(*desk.manager);
    NfcManager assigned(nullptr);
    assigned = copy;
    desk.manager.reset();
    const Number renewed = NumberOf(0x77);
    std::uint8_t number[32];
    std::copy(renewed.begin(), renewed.end(), std::begin(number));
    EXPECT_EQ(assigned.WriteRandNum(number), 0);
    Desk::Pass(5 * hosted::kSecond);
    EXPECT_EQ(desk.NumberOnChip(), renewed);
    desk.log.Clear();
    EXPECT_EQ(copy.WriteRandNum(number), 0);
    EXPECT_TRUE(desk.log.Has("WriteRandNum no need to update"));

    AnnounceStop(desk.log);
    copy = NfcManager(nullptr);
    Desk::Pass(hosted::kSecond);
    EXPECT_FALSE(desk.log.Has("NFC WaitOnInterruptLoop return"));
    assigned = copy;
    Desk::Pass(hosted::kSecond);
    EXPECT_TRUE(desk.log.Has("NFC WaitOnInterruptLoop return"));
}

TEST(SpoiltTag, IsRefusedByAReadAndMendedByAWrite) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kI2c});
    desk.Start();
    constexpr unsigned kUriRecordAt = 18;
    {
        const hosted::DeviceLock lock;
        desk.pc.chip()->BackDoor().SetMemory(kUriRecordAt, {0xD1});
    }
    for (const char* line : {"Parse URI record type error : D1", "NFC  HeaderParse error",
                             "nfcDataRead init fail", "WriteMessage Read failed"}) {
        desk.log.Announce(line);
    }
    const auto target = std::make_shared<NdefMessage>();
    EXPECT_EQ(desk.manager->ReadMessage(target), -1);
    EXPECT_TRUE(desk.log.Has("nfcDataRead init fail"));
    std::string url;
    target->GetUrl(url);
    EXPECT_EQ(url, "");
    EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x22)), 0);
    EXPECT_EQ(desk.manager->ReadMessage(target), 0);
    target->GetUrl(url);
    EXPECT_EQ(url, std::string(50, 'u'));
    AnnounceStop(desk.log);
    desk.manager.reset();
    Desk::Pass(hosted::kSecond);
}

}  // namespace
