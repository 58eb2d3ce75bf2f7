// Puts a message on the tag: what is merged, what is checked, and what a failed step leaves.
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

constexpr std::size_t kEventThreads = 2;

TEST(WriteMessage, LogsItsSteps) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kI2c}, "fm11nt082c");
    desk.Start();
    EXPECT_TRUE(HasInOrder(
        desk.log,
        {"NFC_WriteMessage with dynamic delay begin!", "ReadMessage ReadNfcContent failed",
         "WriteMessage Read failed", "UpdateNfcData begin writing Nfc Chip",
         "UpdateNfcData Write Nfc Chip Successful", "UpdateNfcData ReadRandNum Successful",
         "UpdateNfcData success", "NfcThreadCreate start", "NfcThreadCreate pass"}));
    EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage()), 0);
    EXPECT_TRUE(HasInOrder(desk.log, {"NFC_ m_staticNotificationThread already exist",
                                      "NFC_ m_staticCallThread already exist"}));
    EXPECT_EQ(hosted::Live().threads, kEventThreads);
}

TEST(WriteMessage, MergesTheCallersFieldsOverTheTags) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kI2c}, "fm11nt082c");
    desk.Start();
    NfcManagerTestAccess::Message(*desk.manager)->SetUrl(std::string(50, 'w'));
    const auto withoutUrl = std::make_shared<NdefMessage>();
    withoutUrl->SetMac({9, 8, 7, 6, 5, 4});
    withoutUrl->SetModel({1, 2, 3, 4});
    SetNumber(*withoutUrl, NumberOf(0x22));
    EXPECT_EQ(desk.manager->WriteMessage(withoutUrl), 0) << "whatever its PC type";
    NfcData data;
    ASSERT_TRUE(data.Init() && data.Parse(desk.ImageOnChip(143)));
    EXPECT_EQ(data.GetUrl(), std::string(50, 'u')) << "the tag's, not the manager's";
    EXPECT_EQ(data.GetMacAddr() + data.GetModel(), "\x9\x8\x7\x6\x5\x4\x1\x2\x3\x4");
    EXPECT_EQ(data.GetRandomNumber(), std::string(32, 0x22));
}

TEST(ReadMessage, RefusesASpoiledImageUntilItIsWrittenAgain) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kI2c}, "fm11nt082c");
    desk.Start();
    {
        constexpr unsigned kUriRecordAt = 18;
        const hosted::DeviceLock lock;
        desk.pc.chip()->BackDoor().SetMemory(kUriRecordAt, {0xD1});
    }
    const auto target = std::make_shared<NdefMessage>();
    EXPECT_EQ(desk.manager->ReadMessage(target), -1);
    EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x22)), 0);
    EXPECT_EQ(desk.log.TakeUnannounced().back(), "nfcDataRead init fail");
    EXPECT_EQ(desk.manager->ReadMessage(target), 0);
    EXPECT_EQ(desk.manager->ReadMessage(nullptr), -1);
    std::uint8_t type = 1;
    target->GetPcType(type);
    EXPECT_EQ(type, 0) << "all but the PC type is filled";
}

constexpr char kRefusedOnce[] = "[NFC] BleClientWrite ERROR";
const std::string kRefusedTwice = std::string(kRefusedOnce) + ", " + kRefusedOnce;
const std::string kRefusedThrice = kRefusedTwice + ", " + kRefusedOnce;

// What is put on the tag, how many writes in a row the keyboard refuses, and the errors of it all.
struct FailingStep {
    Number number;
    unsigned refusedWrites;
    std::string errors;
    std::size_t urlSize = 50;
};

// A number that is zero at the places that the read-back of a message looks at but one.
Number OnlyByteTwo() {
    Number number = NumberOf(0x33);
    number[0] = number[1] = number[31] = 0;
    return number;
}

struct TwoRoutes : Desk {
    TwoRoutes() : Desk({PcRoute::kI2c, PcRoute::kBle}, "fm11nt082c") {
        Start();
        threads = hosted::Live().threads;
    }
    std::string ErrorsOf(const std::function<int()>& operation, unsigned refusedWrites,
                         int expectedResult) {
        log.Clear();
        for (unsigned nth = 1; nth <= refusedWrites; ++nth) {
            LinkDockService::FailCall(BleCall::kWrite, nth);
        }
        EXPECT_EQ(operation(), expectedResult);
        EXPECT_TRUE(WaitForThreads(threads));
        log.TakeUnannounced();
        return Joined(ErrorsIn(log));
    }
    std::size_t threads = 0;
};

TEST(WriteMessage, SaysWhichStepFailed) {
    hosted::UseScheduledClock({Seed()});
    TwoRoutes desk;
    Number zeroes = OnlyByteTwo();
    zeroes[2] = 0;
    const std::string noUrl = "m_nfcData SetUrl failed, SetContent fail, UpdateNfcData failed";
    const std::string noMac = "length error, m_nfcData SetMacAddr failed, SetContent fail";
    const FailingStep steps[] = {
        {zeroes, 0,
         "ReadRandNum value is wrong 0, ReadRandNum value is wrong 1, "
         "ReadRandNum value is wrong 2, UpdateNfcData ReadRandNum failed, UpdateNfcData failed"},
        {OnlyByteTwo(), 0, ""},
        {NumberOf(1), 2, kRefusedTwice},
        {NumberOf(2), 3, kRefusedThrice + ", UpdateNfcData Write failed, UpdateNfcData failed"},
        {NumberOf(3), 0, noUrl, 253},
        {NumberOf(4), 0, ""},  // too long even to be stored, so nothing stays
        {NumberOf(5), 0, "length error, " + noUrl, 163},
        {NumberOf(6), 0, noMac + ", WriteMessage Read failed, " + noMac + ", UpdateNfcData failed"},
    };
    for (const FailingStep& step : steps) {
        SCOPED_TRACE(step.errors);
        const auto message = desk.NewMessage();
        message->SetUrl(std::string(step.urlSize, 'v'));
        SetNumber(*message, step.number);
        const bool fails = step.errors.find("UpdateNfcData failed") != std::string::npos;
        EXPECT_EQ(desk.ErrorsOf([&] { return desk.manager->WriteMessage(message); },
                                step.refusedWrites, fails ? -1 : 0),
                  step.errors);
        EXPECT_TRUE(desk.log.Has("NfcThreadCreate pass")) << "failed or not";
        EXPECT_TRUE(fails || desk.NumberOnChip() == step.number);
    }
    const auto renew = [&desk] { return Renew(*desk.manager, NumberOf(7)); };
    EXPECT_EQ(desk.ErrorsOf(renew, 0, -1),
              "length error, m_nfcData SetRandomNumber failed, SetRandomNumber fail");
    EXPECT_EQ(desk.ErrorsOf(renew, 0, 0), "") << "the message has kept it";
}

TEST(RandomNumberThread, SaysWhichStepFailed) {
    hosted::UseScheduledClock({Seed()});
    TwoRoutes desk;
    const FailingStep steps[] = {
        {NumberOf(3), 2, kRefusedTwice},
        {NumberOf(4), 3,
         kRefusedThrice + ", LocalWriteRand WriteNfcContent failed, LocalWriteRand failed"},
        // It looks at one place less than the write of a message.
        {OnlyByteTwo(), 0, "LocalWriteRand ReadRandNum failed, LocalWriteRand failed"},
    };
    for (const FailingStep& step : steps) {
        SCOPED_TRACE(step.errors);
        const auto renew = [&] { return Renew(*desk.manager, step.number); };
        EXPECT_EQ(desk.ErrorsOf(renew, step.refusedWrites, 0), step.errors);
        EXPECT_FALSE(desk.log.Has("WriteRandNum no need to update"));
        EXPECT_EQ(renew(), 0);
        EXPECT_TRUE(desk.log.Has("WriteRandNum no need to update")) << "failed or not";
    }
    EXPECT_EQ(desk.log.Count("LocalWriteRand begin ReadRandNum"), 3U);
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
        EXPECT_TRUE(Desk::WaitForThreads(kEventThreads));
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
            // A deferred call thread that has no handle left sleeps until its next wake-up.
            EXPECT_LE(hosted::Live().threads, kEventThreads);
            hosted::SetCallHook({});
            desk.log.TakeUnannounced();
        });
    }
}

TEST(WriteMessage, UpdateNfcContentWritesWhatDiffers) {
    hosted::UseScheduledClock({Seed()});
    TwoRoutes desk;
    const std::string same = desk.ImageOnChip(93);
    EXPECT_TRUE(NfcManagerTestAccess::UpdateNfcContent(*desk.manager));
    EXPECT_EQ(desk.pc.bluetooth()->ImagesStored(), 1U) << "equal content is not written again";
    NfcManagerTestAccess::Message(*desk.manager)->SetUrl(std::string(50, 'w'));
    const auto update = [&] { return NfcManagerTestAccess::UpdateNfcContent(*desk.manager); };
    desk.ErrorsOf(update, 3, false);
    EXPECT_EQ(ErrorsIn(desk.log).back(), "UpdateNfcContent reWrite failed");
    EXPECT_TRUE(NfcManagerTestAccess::UpdateNfcContent(*desk.manager));
    EXPECT_TRUE(desk.log.Has("UpdateNfcContent Write Nfc Chip Successful"));
    EXPECT_EQ(desk.pc.bluetooth()->ImagesStored(), 2U);
    EXPECT_NE(desk.ImageOnChip(93), same);
}

}  // namespace
