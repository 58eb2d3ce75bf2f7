// Putting a message on the tag: what is merged, what is checked, and what a failed step leaves.
#include <gtest/gtest.h>

#include <algorithm>

#include "peripheral/EventThread.h"
#include "platform/LinkDockBackDoor.h"
#include "tagimage/NfcData.h"
#include "tests/manager/ManagerAccess.h"
#include "tests/support/Desk.h"
#include "tests/support/Seeds.h"

using LinkDockService::BleCall;
using simulator::PcRoute;
using namespace testing_support;
using Lines = std::vector<std::string>;

namespace {

constexpr std::size_t kImageSize = 143;  // of a message with a URL of 50 bytes

NfcData OnTag(Desk& desk, std::size_t size = kImageSize) {
    NfcData data;
    EXPECT_TRUE(data.Init() && data.Parse(desk.ImageOnChip(size)));
    return data;
}

void SetNumber(NdefMessage& message, const Number& number) {
    std::uint8_t bytes[32];
    std::copy(number.begin(), number.end(), bytes);
    message.SetRandomNumber(bytes);
}

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
    auto message = std::make_shared<NdefMessage>();
    const std::uint8_t mac[6] = {9, 8, 7, 6, 5, 4};
    const std::uint8_t model[4] = {1, 2, 3, 4};
    message->SetMac(mac);
    message->SetModel(model);
    SetNumber(*message, NumberOf(0x22));
    NfcManagerTestAccess::Message(*desk.manager)->SetUrl(std::string(50, 'w'));
    EXPECT_EQ(desk.manager->WriteMessage(message), 0) << "whatever its PC type";
    NfcData data = OnTag(desk);
    EXPECT_EQ(data.GetUrl(), std::string(50, 'u'));
    EXPECT_EQ(data.GetMacAddr(), std::string(std::begin(mac), std::end(mac)));
    EXPECT_EQ(data.GetModel(), std::string(std::begin(model), std::end(model)));
    EXPECT_EQ(data.GetRandomNumber(), std::string(32, 0x22));
    EXPECT_TRUE(
        HasInOrder(desk.log, {"NFC_ m_staticNotificationThread already exist",
                              "NFC_ m_staticCallThread already exist", "NfcThreadCreate pass"}));
    EXPECT_EQ(hosted::Live().threads, 2U);
    // ReadMessage gives the same fields to a message of the host's, and leaves its PC type.
    auto target = std::make_shared<NdefMessage>();
    EXPECT_EQ(desk.manager->ReadMessage(target), 0);
    std::string url;
    std::uint8_t type = 1;
    target->GetUrl(url);
    target->GetPcType(type);
    EXPECT_EQ(url, std::string(50, 'u'));
    EXPECT_EQ(type, 0);
    EXPECT_EQ(ErrorsIn(desk.log), Lines{});
    EXPECT_EQ(desk.manager->ReadMessage(nullptr), -1);
    EXPECT_EQ(ErrorsIn(desk.log), Lines{});
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
    struct Case {
        const char* name;
        std::size_t urlSize;
        Number number;
        unsigned writesRefused;
        int result;
        Lines errors;
        bool anew = false;  // on a manager of its own
    };
    const std::string refused = "[NFC] BleClientWrite ERROR";
    const Case cases[] = {
        {"a number with zeroes where it counts",
         50,
         middle,
         0,
         -1,
         {"ReadRandNum value is wrong 0", "ReadRandNum value is wrong 1",
          "ReadRandNum value is wrong 2", "UpdateNfcData ReadRandNum failed",
          "UpdateNfcData failed"}},
        {"one place is enough", 50, byteTwo, 0, 0, {}},
        {"three writes",
         50,
         NumberOf(1),
         3,
         -1,
         {refused, refused, refused, "UpdateNfcData Write failed", "UpdateNfcData failed"}},
        {"the third write", 50, NumberOf(2), 2, 0, {refused, refused}},
        {"a URL beyond the image",
         163,
         NumberOf(3),
         0,
         -1,
         {"length error", "m_nfcData SetUrl failed", "SetContent fail", "UpdateNfcData failed"}},
        {"an image that has one takes nothing more",
         50,
         NumberOf(4),
         0,
         -1,
         {"length error", "m_nfcData SetMacAddr failed", "SetContent fail",
          "WriteMessage Read failed", "length error", "m_nfcData SetMacAddr failed",
          "SetContent fail", "UpdateNfcData failed"}},
        {"a URL beyond the record",
         253,
         NumberOf(5),
         0,
         -1,
         {"m_nfcData SetUrl failed", "SetContent fail", "UpdateNfcData failed"},
         true},
        {"another manager", 50, NumberOf(6), 0, 0, {}, true},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        if (one.anew) {
            desk.manager.reset();
            ASSERT_TRUE(desk.Create() && desk.manager->DeviceInit());
            Desk::Pass(hosted::kSecond);
        }
        desk.log.Clear();
        for (unsigned nth = 1; nth <= one.writesRefused; ++nth) {
            LinkDockService::FailCall(BleCall::kWrite, nth);
        }
        const auto message = desk.NewMessage();
        message->SetUrl(std::string(one.urlSize, 'v'));
        SetNumber(*message, one.number);
        EXPECT_EQ(desk.manager->WriteMessage(message), one.result);
        EXPECT_EQ(ErrorsIn(desk.log), one.errors);
        EXPECT_TRUE(desk.log.Has("NfcThreadCreate pass")) << "failed or not";
        if (one.result == 0) {
            EXPECT_EQ(desk.NumberOnChip(), one.number);
        }
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
            EXPECT_EQ(m_staticNotificationThread, nullptr);
            EXPECT_EQ(m_staticCallThread, nullptr);
            EXPECT_EQ(desk.NumberOnChip(), NumberOf(0x41)) << "the tag is written all the same";
            EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x42)), 0);
            desk.pc.TapPhone(0, 1000 * hosted::kMillisecond);
            EXPECT_TRUE(Desk::WaitForEvents(2, 10 * hosted::kSecond));
            Desk::Pass(20 * hosted::kSecond);
            EXPECT_EQ(EventsHeard(), (std::vector<int>{3, 1})) << "from one thread of each kind";
            // A deferred call thread that was let go of still sleeps until its next wake-up.
            EXPECT_TRUE(Desk::WaitForThreads(2));
            hosted::SetCallHook({});
        });
    }
}

TEST(WriteMessage, UpdateNfcContentWritesWhatDiffers) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kI2c, PcRoute::kBle}, "fm11nt082c");
    desk.log.Announce("");
    desk.Start();
    NfcManager& manager = *desk.manager;
    const auto images = [&desk] {
        const hosted::DeviceLock lock;
        return desk.pc.bluetooth()->ImagesStored();
    };
    const std::size_t before = images();
    desk.log.Clear();
    EXPECT_TRUE(NfcManagerTestAccess::UpdateNfcContent(manager));
    EXPECT_TRUE(HasInOrder(
        desk.log, {"NfcManager::UpdateNfcContent()", "DeviceHandle already exist",
                   "NfcManager::InitNfcDevice done", "UpdateNfcContent ReadNfcContent done"}));
    EXPECT_EQ(images(), before) << "equal content is not written again";
    NfcManagerTestAccess::Message(manager)->SetUrl("shorter");
    EXPECT_TRUE(NfcManagerTestAccess::UpdateNfcContent(manager));
    EXPECT_TRUE(HasInOrder(desk.log, {"UpdateNfcContent: Writing NfcContent",
                                      "UpdateNfcContent Write Nfc Chip Successful"}));
    EXPECT_EQ(images(), before + 1);
    EXPECT_EQ(OnTag(desk, 100).GetUrl(), "shorter");
    NfcManagerTestAccess::Message(manager)->SetUrl("another");
    for (const unsigned nth : {1U, 2U, 3U}) {
        LinkDockService::FailCall(BleCall::kWrite, nth);
    }
    EXPECT_FALSE(NfcManagerTestAccess::UpdateNfcContent(manager));
    EXPECT_EQ(ErrorsIn(desk.log).back(), "UpdateNfcContent reWrite failed");
}

}  // namespace
