// How a manager comes to be, and what its operations give when none of what they need is there.
#include <gtest/gtest.h>

#include <functional>

#include "peripheral/EventThread.h"
#include "peripheral/PeripheralState.h"
#include "tests/manager/ManagerAccess.h"
#include "tests/support/Desk.h"
#include "tests/support/Seeds.h"

using namespace testing_support;
using Lines = std::vector<std::string>;

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
    struct Case {
        std::shared_ptr<NdefMessage> message;
        Lines firstErrors;
    };
    const Case cases[] = {
        {nullptr, {"SetContent nullptr error"}},
        {std::make_shared<NdefMessage>(), {"SetModel unsupport!"}},
        {MessageWith(1, 4), {"SetModel unsupport!"}},
        {MessageWith(163, 5), {"length error", "m_nfcData SetUrl failed", "SetContent fail"}},
        {MessageWith(253, 5), {"m_nfcData SetUrl failed", "SetContent fail"}},
    };
    LogRecorder log;
    log.Announce("");
    g_pcModel = 8;
    for (const Case& one : cases) {
        log.Clear();
        staticCallback = nullptr;
        g_interruptRunning = true;
        EXPECT_EQ(NfcManager::Create(one.message, &Desk::Listen), nullptr);
        Lines expected = one.firstErrors;
        expected.emplace_back("NfcManager Init SetContent failed");
        expected.emplace_back("NfcManager:: Create failed");
        EXPECT_EQ(ErrorsIn(log), expected);
        EXPECT_EQ(log.Texts().front(), "NfcManager::Init()");
        // The listener is taken over first; the proxy that was made and ended stops the threads.
        EXPECT_EQ(staticCallback, &Desk::Listen);
        EXPECT_FALSE(g_interruptRunning);
        EXPECT_FALSE(g_readHidRunning);
        EXPECT_EQ(g_pcModel, 8);
    }
    log.Clear();
    g_interruptFirst = false;
    const auto manager = NfcManager::Create(MessageWith(162, 2), nullptr);
    ASSERT_NE(manager, nullptr);
    EXPECT_EQ(log.Texts(),
              (Lines{"NfcManager::Init()", "m_uri size is 162", "NfcManager::Init() success"}));
    EXPECT_EQ(staticCallback, nullptr);
    EXPECT_TRUE(g_interruptFirst && g_interruptRunning && g_readHidRunning);
    EXPECT_EQ(g_pcModel, 2);
    auto bare = std::make_shared<NdefMessage>();
    bare->SetPcType(8);
    EXPECT_NE(NfcManager::Create(bare, &OtherListener), nullptr) << "an empty URL is taken";
    EXPECT_EQ(staticCallback, &OtherListener) << "the listener is the process's";
    EXPECT_FALSE(g_interruptRunning) << "any manager's end stops the threads";
}

// One operation on a manager without a device, as a result and the error lines it leaves.
struct Operation {
    const char* name;
    std::function<std::int64_t(NfcManager&)> call;
    std::int64_t bareResult;
    Lines bareErrors;
    std::int64_t readyResult;
    Lines readyErrors;
};

const Lines kZeroReadBack = {"ReadRandNum value is wrong 0", "ReadRandNum value is wrong 1",
                             "ReadRandNum value is wrong 2", "UpdateNfcData ReadRandNum failed"};

Lines operator+(Lines lines, const Lines& more) {
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

Lines NoDevice(const Lines& last) {
    const Lines once = {"NFC_Error opening Spb driver, last error = 2",
                        "NFC_Error opening any driver, last error = 259"};
    return once + once + once + last;
}

constexpr std::uint64_t kNowhere = 7;

std::vector<Operation> Operations() {
    const Lines isPassive = {"[NFC] IsPassivePC ,m_nfcProxy is nullptr"};
    const auto same = [](NfcManager& m) {
        std::uint8_t number[32];
        NfcManagerTestAccess::Message(m)->GetRandomNumber(number);
        return m.WriteRandNum(number);
    };
    const auto renew = [](NfcManager& m) {
        std::uint8_t number[32] = {};
        NfcManagerTestAccess::Message(m)->GetRandomNumber(number);
        ++number[31];
        const int result = m.WriteRandNum(number);
        std::uint8_t kept[32];
        NfcManagerTestAccess::Message(m)->GetRandomNumber(kept);
        EXPECT_EQ(kept[31], number[31]);
        return result;
    };
    const auto read = [](NfcManager& m) {
        std::uint8_t number[32] = {0xAB};
        const int result = m.ReadRandNum(number);
        EXPECT_EQ(number[0], 0xAB) << "nobody filled it";
        return result;
    };
    return {
        {"WriteMessage, none",
         [](NfcManager& m) { return m.WriteMessage(nullptr); },
         -1,
         {"WriteMessage msg nullptr"},
         -1,
         {"WriteMessage msg nullptr"}},
        {"ReadMessage",
         [](NfcManager& m) { return m.ReadMessage(MessageWith(3, 5)); },
         -1,
         {"ReadMessage ReadNfcContent failed"},
         -1,
         {"spbDriverOps == nullptr", "ReadMessage ReadNfcContent failed"}},
        {"UpdateNfcData",
         [](NfcManager& m) { return m.UpdateNfcData(); },
         0,
         {"SetContent nullptr error"},
         0,
         kZeroReadBack},
        {"UpdateNfcContent",
         [](NfcManager& m) { return NfcManagerTestAccess::UpdateNfcContent(m); },
         0,
         {"SetContent nullptr error", "UpdateNfcContent SetContent fail"},
         0,
         NoDevice({})},
        {"DeviceInit", [](NfcManager& m) { return m.DeviceInit(); }, 0,
         NoDevice({"NfcManager Init DeviceInit failed"}), 0,
         NoDevice({"NfcManager Init DeviceInit failed"})},
        {"WriteRandNum, same", same, 0, {}, 0, {}},
        {"WriteRandNum, new",
         renew,
         -1,
         {"m_nfcData SetRandomNumber failed", "SetRandomNumber fail"},
         0,
         {"LocalWriteRand ReadRandNum failed", "LocalWriteRand failed"}},
        {"ReadRandNum", read, -1, {"ReadRandNum ReadNfc failed"}, 0, {}},
        {"WriteRandThread, none",
         [](NfcManager&) {
             return static_cast<std::int64_t>(NfcManager::WriteRandThread(nullptr));
         },
         0xFFFFFFFF,
         {"WriteRandThread nullptr"},
         0xFFFFFFFF,
         {"WriteRandThread nullptr"}},
        {"BtConnect",
         [](NfcManager& m) { return m.BtConnect(kNowhere); },
         0,
         {"BtConnect failed"},
         0,
         {}},
        {"BtDisconnect",
         [](NfcManager& m) { return m.BtDisconnect(kNowhere + 1); },
         0,
         {"BtDisconnect failed"},
         0,
         {"[NFC] btmac error!"}},
        {"IsActivePC", [](NfcManager& m) { return m.IsActivePC(); }, 0, isPassive, 0, {}},
        {"SetMcuKbConnectStatus",
         [](NfcManager& m) { return m.SetMcuKbConnectStatus(false); },
         0,
         isPassive,
         1,
         {}},
        {"RegisterListener",
         [](NfcManager& m) {
             staticCallback = nullptr;
             m.RegisterListener(&OtherListener);
             return staticCallback == &OtherListener;
         },
         0,
         {"RegisterListener failed"},
         1,
         {}},
    };
}

TEST(Create, OperationsWithoutADevice) {
    hosted::UseScheduledClock({Seed()});
    LogRecorder log;
    log.Announce("");
    NfcManager bare(MessageWith(3, 5));
    const auto ready = NfcManager::Create(MessageWith(3, 5), &Desk::Listen);
    ASSERT_NE(ready, nullptr);
    for (const Operation& operation : Operations()) {
        SCOPED_TRACE(operation.name);
        for (const bool isReady : {false, true}) {
            log.Clear();
            const hosted::Micros before = hosted::Now();
            EXPECT_EQ(operation.call(isReady ? *ready : bare),
                      isReady ? operation.readyResult : operation.bareResult);
            const Lines expected = isReady ? operation.readyErrors : operation.bareErrors;
            if (expected.size() > 5) {
                EXPECT_GE(hosted::Now() - before, 900 * hosted::kMillisecond);
            }
            EXPECT_TRUE(Desk::WaitForThreads(0));
            EXPECT_EQ(ErrorsIn(log), expected);
        }
    }
    // A write runs into the missing number. The threads are started all the same on a ready one.
    log.Clear();
    EXPECT_EQ(bare.WriteMessage(MessageWith(3, 5)), -1);
    EXPECT_EQ(ErrorsIn(log), (Lines{"SetContent nullptr error", "UpdateNfcData failed"}));
    EXPECT_EQ(hosted::Live().threads, 0U);
    log.Clear();
    EXPECT_EQ(ready->WriteMessage(MessageWith(3, 5)), -1);
    EXPECT_TRUE(HasInOrder(log, Lines{"Nfc_ReadMessage not need"} + kZeroReadBack +
                                    Lines{"UpdateNfcData failed", "NfcThreadCreate start",
                                          "NfcThreadCreate pass", "spbDriverOps == nullptr"}));
    EXPECT_TRUE(Desk::WaitForThreads(1)) << "the interrupt thread ends at once";
    EXPECT_EQ(m_staticNotificationThread, nullptr);
    EXPECT_NE(m_staticCallThread, nullptr);
}

}  // namespace
