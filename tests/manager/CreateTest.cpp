// How a manager is made, and what its operations give when what they need does not exist.
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

TEST(Create, RefusesAMessageAndSaysWhy) {
    struct Case {
        std::shared_ptr<NdefMessage> message;
        std::string reason;
    };
    const Case cases[] = {
        {nullptr, "SetContent nullptr error"},
        {std::make_shared<NdefMessage>(), "SetModel unsupport!"},
        {MessageWith(1, 4), "SetModel unsupport!"},
        {MessageWith(163, 5), "length error, m_nfcData SetUrl failed, SetContent fail"},
        {MessageWith(253, 5), "m_nfcData SetUrl failed, SetContent fail"},
    };
    LogRecorder log;
    g_pcModel = 8;
    for (const Case& each : cases) {
        staticCallback = nullptr;
        g_interruptRunning = true;
        EXPECT_EQ(NfcManager::Create(each.message, &Desk::Listen), nullptr);
        EXPECT_EQ(Joined(log.TakeUnannounced()),
                  each.reason + ", NfcManager Init SetContent failed, NfcManager:: Create failed");
        EXPECT_EQ(staticCallback, &Desk::Listen) << "it is taken over first";
        EXPECT_FALSE(g_interruptRunning) << "the proxy that was made has ended again";
        EXPECT_EQ(g_pcModel, 8);
    }
}

TEST(Create, ArmsTheProcessForTheNewManager) {
    LogRecorder log;
    g_interruptFirst = g_interruptRunning = g_readHidRunning = false;
    const auto manager = NfcManager::Create(MessageWith(1, 2), nullptr);
    EXPECT_EQ(Joined(log.Texts()),
              "NfcManager::Init(), m_uri size is 1, NfcManager::Init() success");
    EXPECT_EQ(staticCallback, nullptr);
    EXPECT_TRUE(g_interruptFirst && g_interruptRunning && g_readHidRunning);
    EXPECT_EQ(g_pcModel, 2);
    NfcManager::Create(MessageWith(50, 8), &OtherListener);
    EXPECT_EQ(g_pcModel, 8);
    EXPECT_EQ(staticCallback, &OtherListener) << "the listener is the process's";
    EXPECT_FALSE(g_interruptRunning) << "any manager's end stops the threads";
}

TEST(Create, LogsAUriWhoseNumberIsReadBackElsewhere) {
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
                                                        {162, 8, 50}}) {
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
const std::string kPassive = "[NFC] IsPassivePC ,m_nfcProxy is nullptr";
const std::string kReadFailed = "ReadMessage ReadNfcContent failed";
const std::string kNoMessage = "WriteMessage msg nullptr";
const std::string kNotRenewed = "m_nfcData SetRandomNumber failed, SetRandomNumber fail";

int Read(NfcManager& manager) {
    return manager.ReadMessage(MessageWith(3, 5));
}
int RenewToNine(NfcManager& manager) {
    return Renew(manager, NumberOf(9));
}
int ReadNumberUntouched(NfcManager& manager) {
    std::uint8_t number[32] = {0xAB};
    const int result = manager.ReadRandNum(number);
    return number[0] == 0xAB ? result : 1;
}
std::int64_t TimeOfFailedStart(NfcManager& manager) {
    const hosted::Micros before = hosted::Now();
    return manager.DeviceInit() ? -1 : hosted::Now() - before;
}
constexpr hosted::Micros kThreePauses = 900 * hosted::kMillisecond;
bool Register(NfcManager& manager) {
    manager.RegisterListener(&OtherListener);
    return staticCallback == &OtherListener;
}

// What an operation gives and logs.
struct Answer {
    std::int64_t result;
    std::string errors;
};

struct Operation {
    std::function<std::int64_t(NfcManager&)> call;
    Answer bare;   // on a manager that nobody initialized
    Answer ready;  // on a created one, without any device
};

const Operation kOperations[] = {
    {[](NfcManager& m) { return m.WriteMessage(nullptr); }, {-1, kNoMessage}, {-1, kNoMessage}},
    {Read, {-1, kReadFailed}, {-1, "spbDriverOps == nullptr, " + kReadFailed}},
    {&NfcManager::UpdateNfcData, {false, "SetContent nullptr error"}, {false, kZeroReadBack}},
    {NfcManagerTestAccess::UpdateNfcContent,
     {false, "SetContent nullptr error, UpdateNfcContent SetContent fail"},
     {false, kNoDevice}},
    {TimeOfFailedStart, {kThreePauses, kNoStart}, {kThreePauses, kNoStart}},
    {RenewToNine,
     {-1, kNotRenewed},
     {0, "LocalWriteRand ReadRandNum failed, LocalWriteRand failed"}},
    {RenewToNine, {0, ""}, {0, ""}},
    {ReadNumberUntouched, {-1, "ReadRandNum ReadNfc failed"}, {0, ""}},
    {[](NfcManager& m) { return m.BtConnect(7); }, {false, "BtConnect failed"}, {false, ""}},
    {[](NfcManager& m) { return m.BtDisconnect(8); },
     {false, "BtDisconnect failed"},
     {false, "[NFC] btmac error!"}},
    {&NfcManager::IsActivePC, {false, kPassive}, {false, ""}},
    {[](NfcManager& m) { return m.SetMcuKbConnectStatus(false); }, {false, kPassive}, {true, ""}},
    {Register, {false, "RegisterListener failed"}, {true, ""}},
    {[](NfcManager& m) { return m.WriteMessage(MessageWith(50, 5)); },
     {-1, "SetContent nullptr error, UpdateNfcData failed"},
     {-1, kZeroReadBack + ", UpdateNfcData failed, spbDriverOps == nullptr, "
                          "NFC WaitOnInterruptLoop return"}},
};

TEST(Create, OperationsWithoutADevice) {
    hosted::UseScheduledClock({Seed()});
    LogRecorder log;
    NfcManager bare(MessageWith(50, 5));
    const auto ready = NfcManager::Create(MessageWith(50, 5), &Desk::Listen);
    ASSERT_NE(ready, nullptr);
    for (const Operation& each : kOperations) {
        SCOPED_TRACE(each.bare.errors);
        EXPECT_EQ(each.call(bare), each.bare.result);
        EXPECT_EQ(Joined(log.TakeUnannounced()), each.bare.errors);
        EXPECT_EQ(hosted::Live().threads, 0U);
        EXPECT_EQ(each.call(*ready), each.ready.result);
        Desk::Pass(hosted::kSecond);
        EXPECT_EQ(Joined(log.TakeUnannounced()), each.ready.errors);
    }
    EXPECT_TRUE(log.Has("NfcThreadCreate pass")) << "the last write starts them all the same";
    EXPECT_EQ(hosted::Live().threads, 1U) << "the interrupt thread ends at once";
}

TEST(Create, NumberThreadWithoutAManager) {
    LogRecorder log;
    EXPECT_EQ(NfcManager::WriteRandThread(nullptr), 0xFFFFFFFF);
    NfcManager empty(nullptr);
    EXPECT_EQ(Renew(empty, NumberOf(9)), -1);
    EXPECT_EQ(NfcManager::WriteRandThread(&empty), 0xFFFFFFFF);
    EXPECT_EQ(Joined(log.TakeUnannounced()),
              "WriteRandThread nullptr, WriteRandNum GetRandomNumber fail, "
              "LocalWriteRand m_nfcProxy is nullptr, LocalWriteRand failed");
}

}  // namespace
