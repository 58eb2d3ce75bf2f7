// How a manager comes to be, and what its operations give when none of what they need is there.
#include <gtest/gtest.h>

#include <functional>

#include "events/DriverThreads.h"
#include "events/EventState.h"
#include "events/Visit.h"
#include "routes/HidReports.h"
#include "routes/RouteState.h"
#include "tests/manager/ManagerAccess.h"
#include "tests/support/Desk.h"
#include "tests/support/ScriptedBus.h"
#include "tests/support/Seeds.h"

using namespace testing_support;

namespace {

void OtherListener(int /*event*/, const std::uint8_t (&/*number*/)[32], int /*route*/) {}

std::shared_ptr<NdefMessage> MessageWith(std::size_t urlSize, std::uint8_t pcType) {
    auto message = std::make_shared<NdefMessage>();
    message->SetUrl(std::string(urlSize, 'x'));
    message->SetPcType(pcType);
    return message;
}

TEST(Create, TellsWhyAMessageIsRefused) {
    hosted::UseScheduledClock({Seed()});
    LogRecorder log;
    log.Announce("");
    g_pcModel = 8;
    const std::pair<std::shared_ptr<NdefMessage>, std::string> cases[] = {
        {nullptr, "SetContent nullptr error"},
        {std::make_shared<NdefMessage>(), "SetModel unsupport!"},
        {MessageWith(1, 4), "SetModel unsupport!"},
        {MessageWith(163, 5), "length error, m_nfcData SetUrl failed, SetContent fail"},
        {MessageWith(253, 5), "m_nfcData SetUrl failed, SetContent fail"},
    };
    for (const auto& [message, why] : cases) {
        log.Clear();
        staticCallback = nullptr;
        g_interruptRunning = true;
        EXPECT_EQ(NfcManager::Create(message, &Desk::Listen), nullptr);
        EXPECT_EQ(Joined(ErrorsIn(log)),
                  why + ", NfcManager Init SetContent failed, NfcManager:: Create failed");
        // The listener is taken over first; the proxy that was made and ended stops the threads.
        EXPECT_TRUE(staticCallback == &Desk::Listen && !g_interruptRunning && g_pcModel == 8);
    }
    log.Clear();
    g_interruptFirst = false;
    const auto manager = NfcManager::Create(MessageWith(162, 2), nullptr);
    ASSERT_NE(manager, nullptr);
    EXPECT_EQ(Joined(log.Texts()),
              "NfcManager::Init(), m_uri size is 162, "
              "uri size is 162, but the random number is read back for a size of 1, "
              "NfcManager::Init() success");
    EXPECT_EQ(staticCallback, nullptr);
    EXPECT_TRUE(g_interruptFirst && g_interruptRunning && g_readHidRunning);
    EXPECT_EQ(g_pcModel, 2);
    const auto bare = std::make_shared<NdefMessage>();
    bare->SetPcType(8);
    EXPECT_NE(NfcManager::Create(bare, &OtherListener), nullptr) << "an empty URL is taken";
    EXPECT_EQ(staticCallback, &OtherListener) << "the listener is the process's";
    EXPECT_FALSE(g_interruptRunning) << "any manager's end stops the threads";
}

TEST(Create, TellsOfAUriWhoseNumberIsReadBackElsewhere) {
    struct Case {
        std::size_t urlSize;
        std::uint8_t pcType;
        std::size_t readBackSize;
    };
    for (const auto& [urlSize, pcType, readBackSize] : {Case{1, 2, 1},
                                                        {2, 2, 1},
                                                        {0, 5, 50},
                                                        {49, 5, 50},
                                                        {50, 5, 50},
                                                        {50, 8, 50},
                                                        {51, 8, 50}}) {
        LogRecorder log;
        EXPECT_NE(NfcManager::Create(MessageWith(urlSize, pcType), nullptr), nullptr);
        const std::string line = "uri size is " + std::to_string(urlSize) +
                                 ", but the random number is read back for a size of " +
                                 std::to_string(readBackSize);
        EXPECT_EQ(Joined(log.TakeUnannounced()), urlSize == readBackSize ? "" : line);
    }
}

const std::string kZeroReadBack =
    "ReadRandNum value is wrong 0, ReadRandNum value is wrong 1, ReadRandNum value is wrong 2, "
    "UpdateNfcData ReadRandNum failed";
const std::string kNoDriver =
    "NFC_Error opening Spb driver, last error = 2, NFC_Error opening any driver, last error = 259";
const std::string kNoDevice = kNoDriver + ", " + kNoDriver + ", " + kNoDriver;
const std::string kNoStart = kNoDevice + ", NfcManager Init DeviceInit failed";
const std::string kNoMessage = "WriteMessage msg nullptr";
const std::string kPassive = "[NFC] IsPassivePC ,m_nfcProxy is nullptr";

TEST(Create, OperationsWithoutADevice) {
    hosted::UseScheduledClock({Seed()});
    LogRecorder log;
    log.Announce("");
    NfcManager bare(MessageWith(50, 5));
    const auto ready = NfcManager::Create(MessageWith(50, 5), &Desk::Listen);
    ASSERT_NE(ready, nullptr);
    // What it gives and tells on a manager that nobody initialized, and on a ready one.
    const auto expect = [&](const std::function<std::int64_t(NfcManager&)>& call,
                            std::int64_t bareResult, const std::string& bareErrors,
                            std::int64_t readyResult, const std::string& readyErrors) {
        SCOPED_TRACE(bareErrors);
        log.Clear();
        EXPECT_EQ(call(bare), bareResult);
        EXPECT_EQ(Joined(ErrorsIn(log)), bareErrors);
        log.Clear();
        EXPECT_EQ(call(*ready), readyResult);
        EXPECT_TRUE(Desk::WaitForThreads(0));
        EXPECT_EQ(Joined(ErrorsIn(log)), readyErrors);
    };
    expect([](NfcManager& m) { return m.WriteMessage(nullptr); }, -1, kNoMessage, -1, kNoMessage);
    expect([](NfcManager& m) { return m.ReadMessage(MessageWith(50, 5)); }, -1,
           "ReadMessage ReadNfcContent failed", -1,
           "spbDriverOps == nullptr, ReadMessage ReadNfcContent failed");
    expect([](NfcManager& m) { return m.UpdateNfcData(); }, 0, "SetContent nullptr error", 0,
           kZeroReadBack);
    expect(NfcManagerTestAccess::UpdateNfcContent, 0,
           "SetContent nullptr error, UpdateNfcContent SetContent fail", 0, kNoDevice);
    expect([](NfcManager& m) { return m.DeviceInit(); }, 0, kNoStart, 0, kNoStart);
    EXPECT_EQ(hosted::Now(), 2700 * hosted::kMillisecond) << "nine pauses behind failed attempts";
    expect([](NfcManager& m) { return Renew(m, NumberOf(9)); }, -1,
           "m_nfcData SetRandomNumber failed, SetRandomNumber fail", 0,
           "LocalWriteRand ReadRandNum failed, LocalWriteRand failed");
    expect([](NfcManager& m) { return Renew(m, NumberOf(9)); }, 0, "", 0, "");
    std::uint8_t number[32] = {0xAB};
    expect([&](NfcManager& m) { return m.ReadRandNum(number); }, -1, "ReadRandNum ReadNfc failed",
           0, "");
    EXPECT_EQ(number[0], 0xAB) << "nobody filled it";
    EXPECT_EQ(NfcManager::WriteRandThread(nullptr), 0xFFFFFFFF);
    log.Clear();
    NfcManager empty(nullptr);
    EXPECT_EQ(Renew(empty, NumberOf(9)), -1);
    EXPECT_EQ(NfcManager::WriteRandThread(&empty), 0xFFFFFFFF);
    EXPECT_EQ(Joined(ErrorsIn(log)),
              "WriteRandNum GetRandomNumber fail, LocalWriteRand m_nfcProxy is nullptr, "
              "LocalWriteRand failed");
    expect([](NfcManager& m) { return m.BtConnect(7); }, 0, "BtConnect failed", 0, "");
    expect([](NfcManager& m) { return m.BtDisconnect(8); }, 0, "BtDisconnect failed", 0,
           "[NFC] btmac error!");
    expect([](NfcManager& m) { return m.IsActivePC(); }, 0, kPassive, 0, "");
    expect([](NfcManager& m) { return m.SetMcuKbConnectStatus(false); }, 0, kPassive, 1, "");
    const auto registered = [](NfcManager& m) {
        m.RegisterListener(&OtherListener);
        return staticCallback == &OtherListener;
    };
    expect(registered, 0, "RegisterListener failed", 1, "");
    // A write runs into the missing number. The threads are started all the same on a ready one.
    log.Clear();
    EXPECT_EQ(bare.WriteMessage(MessageWith(50, 5)), -1);
    EXPECT_EQ(Joined(ErrorsIn(log)), "SetContent nullptr error, UpdateNfcData failed");
    EXPECT_EQ(hosted::Live().threads, 0U);
    log.Clear();
    EXPECT_EQ(ready->WriteMessage(MessageWith(50, 5)), -1);
    EXPECT_TRUE(HasInOrder(log, {"Nfc_ReadMessage not need", "UpdateNfcData ReadRandNum failed",
                                 "UpdateNfcData failed", "NfcThreadCreate start",
                                 "NfcThreadCreate pass", "spbDriverOps == nullptr"}));
    EXPECT_TRUE(Desk::WaitForThreads(1)) << "the interrupt thread ends at once";
}

}  // namespace
