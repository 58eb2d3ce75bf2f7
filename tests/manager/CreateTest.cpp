// How a manager is made, and what its operations give when what they need does not exist.
#include "events/DriverThreads.h"
#include "events/Listener.h"
#include "routes/PcType.h"
#include "tests/manager/ManagerAccess.h"
#include "tests/support/PcWithHost.h"

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
    const std::pair<std::shared_ptr<NdefMessage>, std::string> cases[] = {
        {nullptr, "SetContent nullptr error"},
        {std::make_shared<NdefMessage>(), "SetModel unsupport!"},
        {MessageWith(1, 4), "SetModel unsupport!"},
        {MessageWith(163, 5), "length error, m_nfcData SetUrl failed, SetContent fail"},
        {MessageWith(253, 5), "m_nfcData SetUrl failed, SetContent fail"},
    };
    LogRecorder log;
    g_pcModel = 8;
    for (const auto& [message, reason] : cases) {
        staticCallback = nullptr;
        g_interruptRunning = true;
        EXPECT_EQ(NfcManager::Create(message, &PcWithHost::Listen), nullptr);
        EXPECT_EQ(Joined(log.TakeUnannounced()),
                  reason + ", NfcManager Init SetContent failed, NfcManager:: Create failed");
        EXPECT_EQ(staticCallback, &PcWithHost::Listen) << "it is taken over first";
        EXPECT_FALSE(g_interruptRunning) << "the proxy that was made has ended again";
        EXPECT_EQ(g_pcModel, 8);
    }
}

TEST(Create, LogsAUriWhoseNumberIsReadBackElsewhere) {
    LogRecorder log;
    using SizeAndType = std::pair<std::size_t, std::uint8_t>;
    for (const auto& [urlSize, pcType] : {SizeAndType{1, 2}, {2, 2}, {49, 5}, {50, 5}, {51, 8}}) {
        EXPECT_NE(NfcManager::Create(MessageWith(urlSize, pcType), nullptr), nullptr);
    }
    const std::string line = ", but the random number is read back for a size of ";
    EXPECT_EQ(Joined(log.TakeUnannounced()), "uri size is 2" + line + "1, uri size is 49" + line +
                                                 "50, uri size is 51" + line + "50");
}

const std::string kNoDriver =
    "NFC_Error opening Spb driver, last error = 2, NFC_Error opening any driver, last error = "
    "259, ";
const std::string kNoDevice = kNoDriver + kNoDriver + kNoDriver;
const std::string kZeroReadBack =
    "ReadRandNum value is wrong 0, ReadRandNum value is wrong 1, ReadRandNum value is wrong 2, "
    "UpdateNfcData ReadRandNum failed, ";

// Of every operation but those that start threads.
struct Results {
    int writeMessage = -1, readMessage = -1, readRandNum = -1;
    bool updateNfcData = false, updateNfcContent = false, deviceInit = false, btConnect = false;
    bool btDisconnect = false, isActivePc = false, setMcuKbConnectStatus = false;
};

void ExpectResults(NfcManager& manager, const Results& expected) {
    manager.RegisterListener(&OtherListener);
    std::uint8_t number[32];
    EXPECT_EQ(manager.WriteMessage(nullptr), expected.writeMessage);
    EXPECT_EQ(manager.ReadMessage(MessageWith(3, 5)), expected.readMessage);
    EXPECT_EQ(manager.ReadRandNum(number), expected.readRandNum);
    EXPECT_EQ(manager.UpdateNfcData(), expected.updateNfcData);
    EXPECT_EQ(NfcManagerTestAccess::UpdateNfcContent(manager), expected.updateNfcContent);
    EXPECT_EQ(manager.DeviceInit(), expected.deviceInit);
    EXPECT_EQ(manager.BtConnect(7), expected.btConnect);
    EXPECT_EQ(manager.BtDisconnect(8), expected.btDisconnect);
    EXPECT_EQ(manager.IsActivePC(), expected.isActivePc);
    EXPECT_EQ(manager.SetMcuKbConnectStatus(false), expected.setMcuKbConnectStatus);
}

TEST(Operations, FailAndSayWhyOnAManagerThatCreateHasNotMade) {
    const OneSeed clock;
    LogRecorder log;
    NfcManager bare(MessageWith(50, 5));
    ExpectResults(bare, {});
    EXPECT_EQ(bare.WriteMessage(MessageWith(50, 5)), -1);
    EXPECT_EQ(Renew(bare, NumberOf(9)), -1);
    NfcManager empty(nullptr);
    EXPECT_EQ(empty.WriteMessage(MessageWith(50, 5)), -1);
    EXPECT_EQ(Renew(empty, NumberOf(9)), -1);
    EXPECT_EQ(NfcManager::WriteRandThread(&empty), 0xFFFFFFFF);
    EXPECT_EQ(NfcManager::WriteRandThread(nullptr), 0xFFFFFFFF);
    EXPECT_EQ(emulation::Live().threads, 0U);
    EXPECT_EQ(staticCallback, nullptr);
    EXPECT_EQ(Joined(log.TakeUnannounced()),
              "RegisterListener failed, WriteMessage msg nullptr, "
              "ReadMessage ReadNfcContent failed, ReadRandNum ReadNfc failed, "
              "SetContent nullptr error, SetContent nullptr error, "
              "UpdateNfcContent SetContent fail, " +
                  kNoDevice +
                  "NfcManager Init DeviceInit failed, BtConnect failed, BtDisconnect failed, "
                  "[NFC] IsPassivePC ,m_nfcProxy is nullptr, "
                  "[NFC] IsPassivePC ,m_nfcProxy is nullptr, "
                  "SetContent nullptr error, UpdateNfcData failed, "
                  "m_nfcData SetRandomNumber failed, SetRandomNumber fail, "
                  "WriteMessage m_ndefMessage nullptr, WriteRandNum GetRandomNumber fail, "
                  "LocalWriteRand m_nfcProxy is nullptr, "
                  "LocalWriteRand failed, WriteRandThread nullptr");
}

TEST(Operations, FailAndSayWhyWithoutADevice) {
    const OneSeed clock;
    LogRecorder log;
    const auto manager = NfcManager::Create(MessageWith(50, 5), &PcWithHost::Listen);
    Results results;
    results.readRandNum = 0;  // over no route
    results.setMcuKbConnectStatus = true;
    ExpectResults(*manager, results);
    EXPECT_EQ(staticCallback, &OtherListener);
    EXPECT_EQ(emulation::Now(), 1800 * kMillisecond) << "a pause after each failed attempt";
    EXPECT_EQ(Joined(log.TakeUnannounced()),
              "WriteMessage msg nullptr, spbDriverOps == nullptr, "
              "ReadMessage ReadNfcContent failed, " +
                  kZeroReadBack + kNoDevice + kNoDevice +
                  "NfcManager Init DeviceInit failed, [NFC] btmac error!");
    EXPECT_EQ(manager->WriteMessage(MessageWith(50, 5)), -1);
    EXPECT_TRUE(PcWithHost::WaitForThreads(1)) << "the interrupt thread ends at once";
    EXPECT_EQ(Joined(log.TakeUnannounced()),
              kZeroReadBack +
                  "UpdateNfcData failed, spbDriverOps == nullptr, NFC WaitOnInterruptLoop return");
    EXPECT_EQ(Renew(*manager, NumberOf(9)), 0);
    EXPECT_TRUE(PcWithHost::WaitForThreads(1));
    EXPECT_EQ(Joined(log.TakeUnannounced()),
              "LocalWriteRand ReadRandNum failed, LocalWriteRand failed");
}

}  // namespace
