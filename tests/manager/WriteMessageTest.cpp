// Puts a message on the tag: what is merged, what is checked, and what a failed step leaves.
#include <gtest/gtest.h>

#include "events/DriverThreads.h"
#include "platform/LinkDockBackDoor.h"
#include "tagimage/NfcData.h"
#include "tests/manager/ManagerAccess.h"
#include "tests/support/PcWithHost.h"

using LinkDockService::BleCall;
using simulator::PcRoute;
using namespace testing_support;

namespace {

constexpr std::size_t kEventThreads = 2;

struct StartedPc : PcWithHost {
    StartedPc() : PcWithHost({PcRoute::kI2c}, "fm11nt082c") { Start(); }
};

TEST(WriteMessage, LogsItsSteps) {
    StartedPc setup;
    EXPECT_TRUE(HasInOrder(
        setup.log,
        {"NFC_WriteMessage with dynamic delay begin!", "ReadMessage ReadNfcContent failed",
         "WriteMessage Read failed", "UpdateNfcData begin writing Nfc Chip",
         "UpdateNfcData Write Nfc Chip Successful", "UpdateNfcData ReadRandNum Successful",
         "UpdateNfcData success", "NfcThreadCreate start", "NfcThreadCreate pass"}));
    EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage()), 0);
    EXPECT_TRUE(HasInOrder(setup.log, {"NFC_ m_staticNotificationThread already exist",
                                       "NFC_ m_staticCallThread already exist"}));
    EXPECT_EQ(hosted::Live().threads, kEventThreads);
}

TEST(WriteMessage, MergesTheCallersFieldsOverTheTags) {
    StartedPc setup;
    NfcManagerTestAccess::Message(*setup.manager)->SetUrl(std::string(50, 'w'));
    const auto withoutUrl = std::make_shared<NdefMessage>();
    withoutUrl->SetMac({9, 8, 7, 6, 5, 4});
    withoutUrl->SetModel({1, 2, 3, 4});
    SetNumber(*withoutUrl, NumberOf(0x22));
    EXPECT_EQ(setup.manager->WriteMessage(withoutUrl), 0) << "whatever its PC type";
    NfcData data;
    ASSERT_TRUE(data.Init() && data.Parse(setup.ImageOnChip(143)));
    EXPECT_EQ(data.GetUrl(), std::string(50, 'u')) << "the tag's, not the manager's";
    EXPECT_EQ(data.GetMacAddr() + data.GetModel(), "\x9\x8\x7\x6\x5\x4\x1\x2\x3\x4");
    EXPECT_EQ(data.GetRandomNumber(), std::string(32, 0x22));
}

TEST(ReadMessage, RefusesASpoiledImageUntilItIsWrittenAgain) {
    StartedPc setup;
    {
        constexpr unsigned kUriRecordAt = 18;
        const hosted::DeviceLock lock;
        setup.pc.chip()->BackDoor().SetMemory(kUriRecordAt, {0xD1});
    }
    const auto target = std::make_shared<NdefMessage>();
    EXPECT_EQ(setup.manager->ReadMessage(target), -1);
    EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage(0x22)), 0);
    EXPECT_EQ(setup.log.TakeUnannounced().back(), "nfcDataRead init fail");
    EXPECT_EQ(setup.manager->ReadMessage(target), 0);
    EXPECT_EQ(setup.manager->ReadMessage(nullptr), -1);
    std::uint8_t type = 1;
    target->GetPcType(type);
    EXPECT_EQ(type, 0) << "all but the PC type is filled";
}

struct TwoRoutes : PcWithHost {
    TwoRoutes() : PcWithHost({PcRoute::kI2c, PcRoute::kBle}, "fm11nt082c") {
        Start();
        log.Clear();
        threads = hosted::Live().threads;
    }
    // The next three that go over Bluetooth.
    static void RefuseThreeWrites() {
        for (const unsigned nth : {1U, 2U, 3U}) {
            LinkDockService::FailCall(BleCall::kWrite, nth);
        }
    }
    std::string ErrorsInTheEnd() {
        EXPECT_TRUE(WaitForThreads(threads));
        return Joined(log.TakeUnannounced());
    }
    std::size_t threads = 0;
};

const std::string kRefusedThrice =
    "[NFC] BleClientWrite ERROR, [NFC] BleClientWrite ERROR, [NFC] BleClientWrite ERROR, ";

// A number that is zero at the places that the read-back of a message looks at but one. The number
// thread does not look there.
Number OnlyByteTwo() {
    Number number = NumberOf(0x33);
    number[0] = number[1] = number[31] = 0;
    return number;
}

TEST(WriteMessage, SaysWhichStepFailed) {
    TwoRoutes setup;
    const auto message = setup.NewMessage(0x22);
    TwoRoutes::RefuseThreeWrites();
    EXPECT_EQ(setup.manager->WriteMessage(message), -1);
    EXPECT_EQ(setup.ErrorsInTheEnd(),
              kRefusedThrice + "UpdateNfcData Write failed, UpdateNfcData failed");
    EXPECT_TRUE(setup.log.Has("NfcThreadCreate pass")) << "failed or not";
    SetNumber(*message, OnlyByteTwo());
    EXPECT_EQ(setup.manager->WriteMessage(message), 0);
    EXPECT_EQ(setup.ErrorsInTheEnd(), "");
    message->SetUrl(std::string(163, 'v'));
    EXPECT_EQ(setup.manager->WriteMessage(message), -1);
    EXPECT_EQ(setup.ErrorsInTheEnd(),
              "length error, m_nfcData SetUrl failed, SetContent fail, UpdateNfcData failed");
    // The URL stays in memory, so that a number does not fit either.
    EXPECT_EQ(Renew(*setup.manager, NumberOf(4)), -1);
    EXPECT_EQ(setup.ErrorsInTheEnd(),
              "length error, m_nfcData SetRandomNumber failed, SetRandomNumber fail");
}

TEST(RandomNumberThread, SaysWhichStepFailed) {
    TwoRoutes setup;
    TwoRoutes::RefuseThreeWrites();
    EXPECT_EQ(Renew(*setup.manager, NumberOf(4)), 0);
    EXPECT_EQ(setup.ErrorsInTheEnd(),
              kRefusedThrice + "LocalWriteRand WriteNfcContent failed, LocalWriteRand failed");
    EXPECT_EQ(Renew(*setup.manager, OnlyByteTwo()), 0);
    EXPECT_EQ(setup.ErrorsInTheEnd(), "LocalWriteRand ReadRandNum failed, LocalWriteRand failed");
    EXPECT_EQ(setup.log.Count("LocalWriteRand begin ReadRandNum"), 3U);
    EXPECT_EQ(Renew(*setup.manager, OnlyByteTwo()), 0);
    EXPECT_TRUE(setup.log.Has("WriteRandNum no need to update")) << "given again after a failure";
}

// A chip whose mode byte is not 6 starts silent, and takes no frame while it stores a block.
TEST(WriteMessage, SwitchesTheRadioOnBesideANumberThread) {
    ForEachSeed(100, [] {
        constexpr unsigned kModeRegister = 0x038C;
        PcWithHost setup({PcRoute::kI2c});
        {
            const hosted::DeviceLock lock;
            setup.pc.chip()->BackDoor().StickBits(kModeRegister, 0x10, 0x10);
        }
        ASSERT_TRUE(setup.Create() && setup.manager->DeviceInit());
        OnThread([&setup] {
            Sleep(static_cast<DWORD>(1 + hosted::Random() % 300));
            EXPECT_EQ(Renew(*setup.manager, NumberOf(0x41)), 0);
        });
        EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage()), 0);
        EXPECT_TRUE(PcWithHost::WaitForThreads(kEventThreads));
        setup.log.TakeUnannounced();
        const hosted::DeviceLock lock;
        EXPECT_TRUE(setup.pc.chip()->BackDoor().RadioOn());
    });
}

TEST(WriteMessage, StartsBothThreadsOrNone) {
    ForEachSeed(80, [] {
        int threadsUntilFailure = 1 + static_cast<int>(hosted::Random() % 2);
        hosted::SetCallHook([&threadsUntilFailure](hosted::Call call, hosted::ThreadId) -> DWORD {
            const bool fails = call == hosted::Call::kCreateThread && --threadsUntilFailure == 0;
            return fails ? ERROR_NOT_ENOUGH_MEMORY : 0;
        });
        PcWithHost setup({PcRoute::kI2c}, "fm11nt082c");
        ASSERT_TRUE(setup.Create() && setup.manager->DeviceInit());
        EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage(0x41)), -1);
        EXPECT_TRUE(HasInOrder(setup.log, {"UpdateNfcData success", "NfcThreadCreate fail"}));
        EXPECT_TRUE(m_staticNotificationThread == nullptr && m_staticCallThread == nullptr);
        PcWithHost::Pass(kSecond);
        EXPECT_EQ(hosted::Live().requests + hosted::Live().threads, 0U) << "the other one ends";
        EXPECT_EQ(setup.NumberOnChip(), NumberOf(0x41)) << "the tag is written all the same";
        EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage(0x42)), 0);
        setup.pc.TapPhone(0, kSecond);
        PcWithHost::Pass(20 * kSecond);
        EXPECT_EQ(EventNumbers(), (std::vector<int>{3, 1})) << "from one thread of each kind";
        EXPECT_EQ(hosted::Live().threads, kEventThreads);
        hosted::SetCallHook({});
        setup.log.TakeUnannounced();
    });
}

TEST(UpdateNfcContent, WritesWhatDiffers) {
    TwoRoutes setup;
    const auto update = [&setup] { return NfcManagerTestAccess::UpdateNfcContent(*setup.manager); };
    EXPECT_TRUE(update());
    EXPECT_EQ(setup.pc.bluetooth()->ImagesStored(), 1U) << "equal content is not written again";
    SetNumber(*NfcManagerTestAccess::Message(*setup.manager), NumberOf(0x22));
    TwoRoutes::RefuseThreeWrites();
    EXPECT_FALSE(update());
    EXPECT_EQ(setup.log.TakeUnannounced().back(), "UpdateNfcContent reWrite failed");
    EXPECT_TRUE(update());
    EXPECT_TRUE(setup.log.Has("UpdateNfcContent Write Nfc Chip Successful"));
    EXPECT_EQ(setup.pc.bluetooth()->ImagesStored(), 2U);
    EXPECT_EQ(setup.NumberOnChip(), NumberOf(0x22));
}

}  // namespace
