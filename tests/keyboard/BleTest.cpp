// The Bluetooth keyboard: its link in every state, its notifications, its failures.
#include <gtest/gtest.h>

#include <optional>

#include "peripheral/BlePath.h"
#include "peripheral/PeripheralState.h"
#include "tests/keyboard/TestPeer.h"
#include "tests/support/Desk.h"
#include "tests/support/ScriptedBus.h"
#include "tests/support/Seeds.h"

using LinkDockService::BleCall;
using simulator::PcRoute;
using namespace testing_support;

namespace {

TEST(Ble, LinkStates) {
    hosted::UseScheduledClock({Seed()});
    LogRecorder log;
    const auto message = std::make_shared<NdefMessage>();
    message->SetPcType(5);
    const auto manager = NfcManager::Create(message, &Desk::Listen);
    const auto peer = TestPeer::Make();
    log.Announce("[NFC] btmac error!");
    struct Step {
        const char* operation;  // "+" connects, "-" disconnects, to or from which address
        std::optional<BleCall> fails;
        bool result;
        bool connected;  // afterwards, and whether its sink is told
        bool told;
        const char*
            calls;  // that reached the device: no failed one, and what the client ends itself
        const char* line;  // the last in the log
    };
    const char* const connected = "[NFC] BleClientSubscribeNotify succ.";
    const char* const refused = "[NFC] BleClientConnect failed.";
    const char* const leave = "[NFC] BtDisconnect enter.";
    const char* const wrong = "[NFC] btmac error!";
    const char* const notThere = "[NFC] BT is not connect!";
    const Step steps[] = {
        {"-11", {}, false, false, false, "", wrong},
        {"+11", BleCall::kConnect, false, false, false, "", refused},
        {"-11", {}, false, false, false, "", notThere},
        {"+11", BleCall::kSubscribe, false, true, false, "connect 11",
         "[NFC] BleClientSubscribeNotify failed."},
        {"-11", {}, true, false, false, "disconnect 11", leave},
        {"+11", {}, true, true, true, "connect 11, subscribe 11", connected},
        {"-12", {}, false, true, true, "", wrong},
        {"+11", {}, true, true, true, "connect 11, unsubscribe 11, subscribe 11", connected},
        {"+12", {}, true, true, true, "connect 12, unsubscribe 11, subscribe 12", connected},
        {"+11", BleCall::kConnect, false, true, true, "", refused},
        {"+12", {}, true, true, true, "connect 12, unsubscribe 12, subscribe 12", connected},
        {"-12", {}, true, false, false, "unsubscribe 12, disconnect 12", leave},
        {"-12", {}, false, false, false, "", notThere},
        {"+11", {}, true, true, true, "connect 11, subscribe 11", connected},
        {"-11", BleCall::kUnsubscribe, true, false, false, "disconnect 11", leave},
        {"+11", {}, true, true, true, "connect 11, subscribe 11", connected},
        {"-11", BleCall::kDisconnect, true, false, false, "unsubscribe 11",
         "[NFC] BleClientDisConnect failed."},
    };
    std::size_t heard = HeardSoFar().size();
    for (const Step& step : steps) {
        SCOPED_TRACE(&step - steps);
        log.Clear();
        peer->calls.clear();
        if (step.fails) {
            LinkDockService::FailCall(*step.fails, 1);
        }
        const std::uint64_t address = std::stoull(step.operation + 1);
        const bool connects = step.operation[0] == '+';
        EXPECT_EQ(connects ? manager->BtConnect(address) : manager->BtDisconnect(address),
                  step.result);
        EXPECT_EQ(g_isBtConnected, step.connected);
        EXPECT_EQ(LinkDockService::DeliveryThreads(), step.told ? 1U : 0U);
        EXPECT_EQ(log.Texts().front(), connects ? "[NFC] BtConnect enter." : leave);
        EXPECT_EQ(log.Texts().back(), step.line);
        if (step.result && connects) {
            EXPECT_EQ(Joined(log.Texts()),
                      "[NFC] BtConnect enter., [NFC] BtConnect succ., [NFC] BtDataNotify init "
                      "succ., [NFC] BleClientSubscribeNotify succ.");
        }
        EXPECT_EQ(Joined(peer->calls), step.calls);
        if (step.told) {
            peer->Notify({0x2E, 0x02, 0x6E, 0xE6});
            Desk::Pass(hosted::kMillisecond);
            EXPECT_EQ(HeardSoFar().size(), ++heard) << "once, through the one sink there is";
        }
    }
    EXPECT_EQ(hosted::Live().handles, 0U);
    LinkDockService::SetNoInstance(true);
    EXPECT_FALSE(manager->BtConnect(11));
    EXPECT_EQ(log.Texts().back(), "[NFC] BtConnect enter.");
    EXPECT_EQ(g_bleClient, nullptr);
    LinkDockService::ClearFaults();
    LinkDockService::SetPeer(nullptr);
}

TEST(Ble, JudgesEveryNotification) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({});
    ASSERT_TRUE(desk.Create());
    desk.log.Announce("[NFC] value length is err");
    BtDataNotify sink;
    const std::uint8_t codes[][2] = {{0x6E, 0xE6}, {0xE6, 0x6E}, {0x6E, 0x6E}, {0xE6, 0xE6}};
    std::vector<std::uint8_t> stored(32);
    std::vector<int> events;
    for (unsigned type = 0; type < 256; ++type) {
        for (const auto& code : codes) {
            for (std::size_t size = 0; size <= 64; ++size) {
                std::vector<std::uint8_t> value(64, static_cast<std::uint8_t>(size));
                value[0] = 0x2E;
                value[1] = static_cast<std::uint8_t>(type);
                std::copy_n(code, 2, value.begin() + 2);
                value.resize(size);
                value.shrink_to_fit();  // so that a read beyond its end is seen
                desk.log.Clear();
                sink.OnNotify(value);
                std::string line = "[NFC] not valid data ";
                if (size < 4 || (type == 3 && size < 34)) {
                    line = "[NFC] value length is err";
                } else if (type == 3) {
                    std::copy_n(value.begin() + 2, 32, stored.begin());
                    char text[64];
                    const unsigned fill = value[4];
                    std::snprintf(text, sizeof(text), "%02X%02X%02X%02X%02X%02X%02X%02X", code[0],
                                  code[1], fill, fill, fill, fill, fill, fill);
                    line = "[NFC] randNumber read: " + std::string(text);
                } else if (type == 2 && code[0] + code[1] == 0x6E + 0xE6) {
                    const bool enters = code[0] == 0x6E;
                    events.push_back(enters ? 3 : 1);
                    line = enters ? "NFC_SELECT_IN_FIELD 1st report"
                                  : "NFC_defer call done: 0000000000000000";
                }
                ASSERT_EQ(Joined(desk.log.Texts()), "[NFC] start size:, " + line)
                    << type << " " << size;
                ASSERT_EQ(HeardSoFar().size(), events.size());
            }
        }
    }
    EXPECT_EQ(EventsHeard(4), events);
    const RandomNumber kept = g_btRandNumber.value.Get();
    EXPECT_TRUE(std::equal(kept.begin(), kept.end(), stored.begin()));
    sink.OnNotify({0x2F, 0x02, 0x6E, 0xE6});
    EXPECT_EQ(desk.log.Texts().back(), "[NFC] not valid data ") << "without the mark";
}

TEST(Ble, ALateNumberAnswersTheNextRequest) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kBle});
    desk.Start();
    simulator::BluetoothKeyboard& keyboard = *desk.pc.bluetooth();
    keyboard.SetAnswerLatency(3500 * hosted::kMillisecond);
    keyboard.SetMemory(122, simulator::Bytes(32, 0x91));
    desk.log.Announce("NFC ReadRandNumber fail,");
    std::uint8_t number[32] = {0xCD};
    const hosted::Micros before = hosted::Now();
    EXPECT_EQ(desk.manager->ReadRandNum(number), 0) << "the other routes count";
    EXPECT_EQ(hosted::Now() - before, 3 * hosted::kSecond);
    EXPECT_TRUE(desk.log.Has("[NFC_log] BtReadRandomNum fail "));
    EXPECT_EQ(number[0], 0xCD);
    Desk::Pass(hosted::kSecond);
    keyboard.SetMemory(122, simulator::Bytes(32, 0x92));
    EXPECT_EQ(desk.manager->ReadRandNum(number), 0);
    EXPECT_EQ(hosted::Now() - before, 4 * hosted::kSecond) << "at once";
    EXPECT_EQ(number[0], 0x91);
    AnnounceStop(desk.log);
}

}  // namespace
