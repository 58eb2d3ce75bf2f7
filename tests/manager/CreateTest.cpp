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

TEST(Create, MakesAManagerThatStopsTheThreadsBeforeItsMessageGoes) {
    const auto message = MessageWith(50, 5);
    bool isRunning = true;
    const auto note = [&isRunning](NdefMessage*) { isRunning = g_interruptRunning; };
    EXPECT_NE(NfcManager::Create({message.get(), note}, nullptr), nullptr);
    EXPECT_FALSE(isRunning);
}

const std::string kNoDriver =
    "NFC_Error opening Spb driver, last error = 2, NFC_Error opening any driver, last error = 259";
const std::string kNoDevice = kNoDriver + ", " + kNoDriver + ", " + kNoDriver;
const std::string kNoStart = kNoDevice + ", NfcManager Init DeviceInit failed";
const std::string kZeroReadBack =
    "ReadRandNum value is wrong 0, ReadRandNum value is wrong 1, ReadRandNum value is wrong 2, "
    "UpdateNfcData ReadRandNum failed";
const std::string kNoProxy = "[NFC] IsPassivePC ,m_nfcProxy is nullptr";

// Each operation, and the errors that it logs on a manager that Create has not made, where it
// fails, and where there is no device.
const struct {
    std::function<bool(NfcManager&)> works;
    std::string notMade;
    bool worksWithoutDevice;
    std::string withoutDevice;
} kOperations[] = {
    {[](auto& m) { return m.RegisterListener(&OtherListener), staticCallback == &OtherListener; },
     "RegisterListener failed", true, ""},
    {[](auto& m) { return m.WriteMessage(nullptr) == 0; }, "WriteMessage msg nullptr", false,
     "WriteMessage msg nullptr"},
    {[](auto& m) { return m.ReadMessage(MessageWith(3, 5)) == 0; },
     "ReadMessage ReadNfcContent failed", false,
     "spbDriverOps == nullptr, ReadMessage ReadNfcContent failed"},
    {[](auto& m) { return m.UpdateNfcData(); }, "SetContent nullptr error", false, kZeroReadBack},
    {NfcManagerTestAccess::UpdateNfcContent,
     "SetContent nullptr error, UpdateNfcContent SetContent fail", false, kNoDevice},
    {[](auto& m) { return m.DeviceInit(); }, kNoStart, false, kNoStart},
    {[](auto& m) { return m.BtConnect(7); }, "BtConnect failed", false, ""},
    {[](auto& m) { return m.BtDisconnect(8); }, "BtDisconnect failed", false, "[NFC] btmac error!"},
    {[](auto& m) { return m.IsActivePC(); }, kNoProxy, false, ""},
    {[](auto& m) { return m.SetMcuKbConnectStatus(false); }, kNoProxy, true, ""},
    {[](auto& m) {
         std::uint8_t number[32];
         return m.ReadRandNum(number) == 0;  // over no route
     },
     "ReadRandNum ReadNfc failed", true, ""},
    // These start threads, one of which stays.
    {[](auto& m) { return m.WriteMessage(MessageWith(50, 5)) == 0; },
     "SetContent nullptr error, UpdateNfcData failed", false,
     kZeroReadBack +
         ", UpdateNfcData failed, spbDriverOps == nullptr, NFC WaitOnInterruptLoop return"},
    {[](auto& m) { return Renew(m, NumberOf(9)) == 0; },
     "m_nfcData SetRandomNumber failed, SetRandomNumber fail", true,
     "LocalWriteRand ReadRandNum failed, LocalWriteRand failed"},
};

TEST(Operations, FailAndSayWhyOnAManagerThatCreateHasNotMade) {
    const OneSeed clock;
    LogRecorder log;
    NfcManager notMade(MessageWith(50, 5));
    for (const auto& operation : kOperations) {
        EXPECT_FALSE(operation.works(notMade));
        EXPECT_EQ(Joined(log.TakeUnannounced()), operation.notMade);
    }
    NfcManager empty(nullptr);
    EXPECT_EQ(empty.WriteMessage(MessageWith(50, 5)), -1);
    EXPECT_EQ(Renew(empty, NumberOf(9)), -1);
    EXPECT_EQ(NfcManager::WriteRandThread(&empty), 0xFFFFFFFF);
    EXPECT_EQ(NfcManager::WriteRandThread(nullptr), 0xFFFFFFFF);
    EXPECT_EQ(Joined(log.TakeUnannounced()),
              "WriteMessage m_ndefMessage nullptr, WriteRandNum GetRandomNumber fail, "
              "LocalWriteRand m_nfcProxy is nullptr, LocalWriteRand failed, "
              "WriteRandThread nullptr");
    EXPECT_EQ(emulation::Live().threads, 0U);
}

TEST(Operations, FailAndSayWhyWithoutADevice) {
    const OneSeed clock;
    LogRecorder log;
    const auto manager = NfcManager::Create(MessageWith(50, 5), &PcWithHost::Listen);
    for (const auto& operation : kOperations) {
        EXPECT_EQ(operation.works(*manager), operation.worksWithoutDevice);
        EXPECT_TRUE(PcWithHost::WaitForThreads(1));
        EXPECT_EQ(Joined(log.TakeUnannounced()), operation.withoutDevice);
    }
    EXPECT_EQ(emulation::Now(), 1800 * kMillisecond) << "a pause after each failed start";
}

}  // namespace
