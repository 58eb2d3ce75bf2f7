// Putting a message on the tag: what is merged, what is checked, and what a failed step leaves.
#include <gtest/gtest.h>

#include "events/DriverThreads.h"
#include "platform/LinkDockBackDoor.h"
#include "tagimage/NfcData.h"
#include "tests/manager/ManagerAccess.h"
#include "tests/support/Desk.h"
#include "tests/support/ScriptedBus.h"
#include "tests/support/Seeds.h"

using LinkDockService::BleCall;
using simulator::PcRoute;
using namespace testing_support;

namespace {

const std::string kZeroes =
    "ReadRandNum value is wrong 0, ReadRandNum value is wrong 1, ReadRandNum value is wrong 2";

TEST(WriteMessage, MergesTheCallersFieldsOverTheTags) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kI2c}, "fm11nt082c");
    desk.Start();
    EXPECT_TRUE(HasInOrder(
        desk.log,
        {"NFC_WriteMessage with dynamic delay begin!", "ReadMessage ReadNfcContent failed",
         "WriteMessage Read failed", "UpdateNfcData begin writing Nfc Chip",
         "UpdateNfcData Write Nfc Chip Successful", "UpdateNfcData ReadRandNum Successful",
         "UpdateNfcData success", "NfcThreadCreate start", "NfcThreadCreate pass"}));
    desk.log.Clear();
    // The tag has another URL than the manager's message; an empty one keeps the tag's.
    const auto message = std::make_shared<NdefMessage>();
    message->SetMac({9, 8, 7, 6, 5, 4});
    message->SetModel({1, 2, 3, 4});
    SetNumber(*message, NumberOf(0x22));
    NfcManagerTestAccess::Message(*desk.manager)->SetUrl(std::string(50, 'w'));
    EXPECT_EQ(desk.manager->WriteMessage(message), 0) << "whatever its PC type";
    NfcData data;
    EXPECT_TRUE(data.Init() && data.Parse(desk.ImageOnChip(143)));
    EXPECT_EQ(data.GetUrl(), std::string(50, 'u'));
    EXPECT_EQ(data.GetMacAddr() + data.GetModel(), "\x9\x8\x7\x6\x5\x4\x1\x2\x3\x4");
    EXPECT_EQ(data.GetRandomNumber(), std::string(32, 0x22));
    EXPECT_TRUE(
        HasInOrder(desk.log, {"NFC_ m_staticNotificationThread already exist",
                              "NFC_ m_staticCallThread already exist", "NfcThreadCreate pass"}));
    EXPECT_EQ(hosted::Live().threads, 2U);
    // ReadMessage gives the same fields to a message of the host's, and leaves its PC type.
    const auto target = std::make_shared<NdefMessage>();
    EXPECT_EQ(desk.manager->ReadMessage(target), 0);
    std::string url;
    std::uint8_t type = 1;
    EXPECT_EQ(target->GetUrl(url) + target->GetPcType(type) + type, 0);
    EXPECT_EQ(url, std::string(50, 'u'));
    EXPECT_EQ(desk.manager->ReadMessage(nullptr), -1);
    EXPECT_EQ(Joined(ErrorsIn(desk.log)), "");
    // An image that somebody spoiled is refused by a read and mended by a write.
    constexpr unsigned kUriRecordAt = 18;
    desk.log.Announce("");
    {
        const hosted::DeviceLock lock;
        desk.pc.chip()->BackDoor().SetMemory(kUriRecordAt, {0xD1});
    }
    EXPECT_EQ(desk.manager->ReadMessage(target), -1);
    EXPECT_EQ(ErrorsIn(desk.log).back(), "nfcDataRead init fail");
    EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x22)), 0);
    EXPECT_EQ(desk.manager->ReadMessage(target), 0);
}

// Whole messages and numbers alone.
TEST(WriteMessage, TellsWhichStepFailed) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kI2c, PcRoute::kBle}, "fm11nt082c");
    desk.log.Announce("");
    desk.Start();
    const std::size_t running = hosted::Live().threads;
    // Writes of these are refused so often; 0 for a number alone.
    const auto put = [&](std::size_t urlSize, const Number& number, unsigned refused) {
        desk.log.Clear();
        for (unsigned nth = 1; nth <= refused; ++nth) {
            LinkDockService::FailCall(BleCall::kWrite, nth);
        }
        const auto message = desk.NewMessage();
        message->SetUrl(std::string(urlSize, 'v'));
        SetNumber(*message, number);
        const int result =
            urlSize == 0 ? Renew(*desk.manager, number) : desk.manager->WriteMessage(message);
        EXPECT_TRUE(Desk::WaitForThreads(running));
        const std::string errors = Joined(ErrorsIn(desk.log));
        EXPECT_EQ(result, errors.find("UpdateNfcData failed") == std::string::npos ? 0 : -1);
        EXPECT_TRUE(urlSize == 0 || desk.log.Has("NfcThreadCreate pass")) << "failed or not";
        EXPECT_TRUE(result != 0 || refused == 3 || desk.NumberOnChip() == number);
        EXPECT_TRUE(urlSize != 0 || Renew(*desk.manager, number) == 0);
        EXPECT_EQ(urlSize == 0, desk.log.Has("WriteRandNum no need to update")) << "failed or not";
        return errors;
    };
    const std::string once = "[NFC] BleClientWrite ERROR";
    const std::string twice = once + ", " + once;
    const std::string thrice = twice + ", " + once;
    const std::string noMac = "length error, m_nfcData SetMacAddr failed, SetContent fail, ";
    const std::string noUrl = "m_nfcData SetUrl failed, SetContent fail, UpdateNfcData failed";
    Number middle = NumberOf(0x33);
    middle[0] = middle[1] = middle[2] = middle[31] = 0;
    Number byteTwo{};
    byteTwo[2] = 1;
    EXPECT_EQ(put(50, middle, 0),
              kZeroes + ", UpdateNfcData ReadRandNum failed, UpdateNfcData failed");
    EXPECT_EQ(put(50, byteTwo, 0), "") << "one place is enough";
    EXPECT_EQ(put(50, NumberOf(1), 2), twice);
    EXPECT_EQ(put(50, NumberOf(2), 3),
              thrice + ", UpdateNfcData Write failed, UpdateNfcData failed");
    EXPECT_EQ(put(0, NumberOf(3), 2), twice);
    EXPECT_EQ(put(0, NumberOf(4), 3),
              thrice + ", LocalWriteRand WriteNfcContent failed, LocalWriteRand failed");
    EXPECT_EQ(put(0, byteTwo, 0), "LocalWriteRand ReadRandNum failed, LocalWriteRand failed")
        << "one place less";
    EXPECT_EQ(desk.log.Count("LocalWriteRand begin ReadRandNum"), 3U);
    EXPECT_EQ(put(163, NumberOf(5), 0), "length error, " + noUrl);
    EXPECT_EQ(put(50, NumberOf(6), 0),
              noMac + "WriteMessage Read failed, " + noMac + "UpdateNfcData failed")
        << "an image that has one takes nothing more";
    desk.manager.reset();
    ASSERT_TRUE(desk.Create() && desk.manager->DeviceInit());
    Desk::Pass(hosted::kSecond);
    EXPECT_EQ(put(253, NumberOf(7), 0), noUrl);
    EXPECT_EQ(put(50, NumberOf(8), 0), "") << "beyond the record, and so not kept";
}

// A chip whose mode byte is not 6 starts silent, and takes no frame while it stores a block.
TEST(WriteMessage, SwitchesTheRadioOnBesideANumberThread) {
    ForEachSeed(100, [] {
        constexpr unsigned kModeRegister = 0x038C;
        Desk desk({PcRoute::kI2c});
        {
            const hosted::DeviceLock lock;
            desk.pc.chip()->BackDoor().StickBits(kModeRegister, 0x10, 0x10);
        }
        OnThread([&desk] {
            const auto writes = [&desk] {
                return desk.log.Has("NFC_WriteMessage with dynamic delay begin!");
            };
            hosted::WaitFor(writes, hosted::kForever, "the write");
            Sleep(static_cast<DWORD>(hosted::Random() % 300));
            EXPECT_EQ(Renew(*desk.manager, NumberOf(0x41)), 0);
        });
        desk.Start();
        EXPECT_TRUE(Desk::WaitForThreads(2));
        const hosted::DeviceLock lock;
        EXPECT_TRUE(desk.pc.chip()->BackDoor().RadioOn());
    });
}

TEST(WriteMessage, StartsBothThreadsOrNone) {
    for (const int failing : {1, 2}) {
        ForEachSeed(40, [failing] {
            int threads = 0;
            hosted::SetCallHook([&threads, failing](hosted::Call call, hosted::ThreadId) -> DWORD {
                const bool fails = call == hosted::Call::kCreateThread && ++threads == failing;
                return fails ? ERROR_NOT_ENOUGH_MEMORY : 0;
            });
            Desk desk({PcRoute::kI2c}, "fm11nt082c");
            desk.log.Announce("");
            ASSERT_TRUE(desk.Create() && desk.manager->DeviceInit());
            EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x41)), -1);
            EXPECT_TRUE(HasInOrder(desk.log, {"UpdateNfcData success", "NfcThreadCreate fail"}));
            EXPECT_EQ(desk.log.Has("NfcThreadCreate exit Begin WaitForSingleObject"), failing == 2);
            EXPECT_TRUE(m_staticNotificationThread == nullptr && m_staticCallThread == nullptr);
            EXPECT_EQ(desk.NumberOnChip(), NumberOf(0x41)) << "the tag is written all the same";
            EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x42)), 0);
            desk.pc.TapPhone(0, hosted::kSecond);
            Desk::Pass(20 * hosted::kSecond);
            EXPECT_EQ(EventsHeard(), (std::vector<int>{3, 1})) << "from one thread of each kind";
            // A deferred call thread that was let go of still sleeps until its next wake-up.
            EXPECT_LE(hosted::Live().threads, 2U);
            hosted::SetCallHook({});
        });
    }
}

TEST(WriteMessage, UpdateNfcContentWritesWhatDiffers) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kI2c, PcRoute::kBle}, "fm11nt082c");
    desk.log.Announce("");
    desk.Start();
    const std::string same = desk.ImageOnChip(93);
    EXPECT_TRUE(NfcManagerTestAccess::UpdateNfcContent(*desk.manager));
    EXPECT_EQ(desk.pc.bluetooth()->ImagesStored(), 1U) << "equal content is not written again";
    NfcManagerTestAccess::Message(*desk.manager)->SetUrl("shorter");
    for (const unsigned nth : {1U, 2U, 3U}) {
        LinkDockService::FailCall(BleCall::kWrite, nth);
    }
    EXPECT_FALSE(NfcManagerTestAccess::UpdateNfcContent(*desk.manager));
    EXPECT_EQ(ErrorsIn(desk.log).back(), "UpdateNfcContent reWrite failed");
    EXPECT_TRUE(NfcManagerTestAccess::UpdateNfcContent(*desk.manager));
    EXPECT_TRUE(desk.log.Has("UpdateNfcContent Write Nfc Chip Successful"));
    EXPECT_EQ(desk.pc.bluetooth()->ImagesStored(), 2U);
    EXPECT_NE(desk.ImageOnChip(93), same);
    // The image's head is the first thing read behind the start, the number the last.
    for (const auto& [fault, told] :
         {std::pair{"write#7=fail:31", "UpdateNfcContent ReadNfcContent failed"},
          std::pair{"write#14=fail:31", "ReadRandNum failed"}}) {
        desk.SetFaults(fault);
        desk.log.Clear();
        EXPECT_FALSE(NfcManagerTestAccess::UpdateNfcContent(*desk.manager)) << fault;
        EXPECT_TRUE(desk.log.Has(told)) << Joined(ErrorsIn(desk.log));
    }
}

}  // namespace
