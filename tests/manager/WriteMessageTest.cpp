// Putting a message on the tag: what is merged, what is checked, and what a failed step leaves.
#include <gtest/gtest.h>

#include "peripheral/EventThread.h"
#include "platform/LinkDockBackDoor.h"
#include "tagimage/NfcData.h"
#include "tests/manager/ManagerAccess.h"
#include "tests/support/ScriptedBus.h"
#include "tests/support/Seeds.h"

using LinkDockService::BleCall;
using simulator::PcRoute;
using namespace testing_support;

namespace {

TEST(WriteMessage, MergesTheCallersFieldsOverTheTags) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kI2c}, "fm11nt082c");
    desk.Start();
    EXPECT_TRUE(HasInOrder(
        desk.log,
        {"NFC_WriteMessage with dynamic delay begin!", "NfcProxy::ReadNfcContent",
         "ReadMessage ReadNfcContent failed", "WriteMessage Read failed",
         "UpdateNfcData begin writing Nfc Chip", "UpdateNfcData Write Nfc Chip Successful",
         "UpdateNfcData begin ReadRandNum 0", "UpdateNfcData ReadRandNum Successful",
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
    NdefMessage target;
    const std::shared_ptr<NdefMessage> pointer(&target, [](NdefMessage*) {});
    EXPECT_EQ(desk.manager->ReadMessage(pointer), 0);
    std::string url;
    std::uint8_t type = 1;
    target.GetUrl(url);
    target.GetPcType(type);
    EXPECT_EQ(url + static_cast<char>(type), std::string(50, 'u') + '\0');
    EXPECT_EQ(desk.manager->ReadMessage(nullptr), -1);
    EXPECT_EQ(Joined(ErrorsIn(desk.log)), "");
    AnnounceStop(desk.log);
}

TEST(WriteMessage, TellsWhichStepFailed) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kI2c, PcRoute::kBle}, "fm11nt082c");
    desk.log.Announce("");
    desk.Start();
    Number middle = NumberOf(0x33);
    middle[0] = middle[1] = middle[2] = middle[31] = 0;
    Number byteTwo{};
    byteTwo[2] = 1;
    const std::string refused = "[NFC] BleClientWrite ERROR, ";
    const std::string noMac = "length error, m_nfcData SetMacAddr failed, SetContent fail, ";
    const std::string noUrl = "m_nfcData SetUrl failed, SetContent fail, UpdateNfcData failed";
    const std::string wrong = "ReadRandNum value is wrong ";
    const std::string zeroes = wrong + "0, " + wrong + "1, " + wrong + "2, ";
    struct Case {
        std::size_t urlSize;
        Number number;
        std::string errors;  // a failed write, and only that, ends with its own line
        unsigned writesRefused = 0;
        bool anew = false;  // on a manager of its own
    };
    const Case cases[] = {
        // A number with zeroes where it counts; one place is enough.
        {50, middle, zeroes + "UpdateNfcData ReadRandNum failed, UpdateNfcData failed"},
        {50, byteTwo, ""},
        {50, NumberOf(1),
         refused + refused + refused + "UpdateNfcData Write failed, UpdateNfcData failed", 3},
        {50, NumberOf(2), refused + refused, 2},
        // A URL beyond the image; an image that has one takes nothing more.
        {163, NumberOf(3), "length error, " + noUrl},
        {50, NumberOf(4), noMac + "WriteMessage Read failed, " + noMac + "UpdateNfcData failed"},
        // A URL beyond the record.
        {253, NumberOf(5), noUrl, 0, true},
        {50, NumberOf(6), "", 0, true},
    };
    for (const auto& [urlSize, number, errors, writesRefused, anew] : cases) {
        SCOPED_TRACE(errors);
        if (anew) {
            desk.manager.reset();
            ASSERT_TRUE(desk.Create() && desk.manager->DeviceInit());
            Desk::Pass(hosted::kSecond);
        }
        desk.log.Clear();
        for (unsigned nth = 1; nth <= writesRefused; ++nth) {
            LinkDockService::FailCall(BleCall::kWrite, nth);
        }
        const auto message = desk.NewMessage();
        message->SetUrl(std::string(urlSize, 'v'));
        SetNumber(*message, number);
        const bool fails = desk.manager->WriteMessage(message) != 0;
        std::string told = Joined(ErrorsIn(desk.log));
        EXPECT_EQ(told + (writesRefused == 2 ? ", " : ""), errors);
        EXPECT_EQ(fails, errors.find("UpdateNfcData failed") != std::string::npos);
        EXPECT_TRUE(desk.log.Has("NfcThreadCreate pass")) << "failed or not";
        EXPECT_TRUE(fails || desk.NumberOnChip() == number);
    }
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
    struct Case {
        const char* url;
        bool result;
        unsigned images;
        const char* line;
    };
    for (const auto& [url, result, images, line] :
         {Case{"", true, 1, "UpdateNfcContent ReadNfcContent done"},  // equal: not written again
          Case{"shorter", true, 2, "UpdateNfcContent Write Nfc Chip Successful"},
          Case{"another", false, 2, "UpdateNfcContent reWrite failed"}}) {
        for (unsigned nth = 1; nth <= 3 && !result; ++nth) {
            LinkDockService::FailCall(BleCall::kWrite, nth);
        }
        NfcManagerTestAccess::Message(*desk.manager)->SetUrl(url);
        EXPECT_EQ(NfcManagerTestAccess::UpdateNfcContent(*desk.manager), result);
        EXPECT_TRUE(desk.log.Has(line));
        EXPECT_EQ(desk.pc.bluetooth()->ImagesStored(), images);
        EXPECT_EQ(desk.ImageOnChip(93) == same, images == 1);
    }
}

}  // namespace
