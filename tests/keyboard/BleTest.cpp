// The Bluetooth keyboard: its link in every state, its notifications, its failures.
#include <gtest/gtest.h>

#include <optional>

#include "peripheral/BlePath.h"
#include "peripheral/PeripheralState.h"
#include "tests/keyboard/TestPeer.h"
#include "tests/support/Desk.h"
#include "tests/support/Seeds.h"

using LinkDockService::BleCall;
using simulator::PcRoute;
using namespace testing_support;
using Lines = std::vector<std::string>;

namespace {

constexpr std::uint64_t kHere = 11;
constexpr std::uint64_t kThere = 12;

TEST(Ble, LinkStates) {
    hosted::UseScheduledClock({Seed()});
    LogRecorder log;
    const auto message = std::make_shared<NdefMessage>();
    message->SetPcType(5);
    const auto manager = NfcManager::Create(message, &Desk::Listen);
    const auto peer = TestPeer::Make();
    log.Announce("[NFC] btmac error!");
    struct Step {
        const char* name;
        bool connect;
        std::uint64_t address;
        std::optional<BleCall> fails;
        bool result;
        bool connected;     // afterwards
        unsigned delivery;  // threads afterwards
        Lines calls;        // that reached the device
        Lines log;
    };
    const Lines connected = {"[NFC] BtConnect enter.", "[NFC] BtConnect succ.",
                             "[NFC] BtDataNotify init succ.",
                             "[NFC] BleClientSubscribeNotify succ."};
    const Lines leave = {"[NFC] BtDisconnect enter."};
    const Step steps[] = {
        {"leave before the first connect",
         false,
         kHere,
         {},
         false,
         false,
         0,
         {},
         {leave[0], "[NFC] btmac error!"}},
        {"refused",
         true,
         kHere,
         BleCall::kConnect,
         false,
         false,
         0,
         {},
         {connected[0], "[NFC] BleClientConnect failed."}},
        {"leave what is not connected",
         false,
         kHere,
         {},
         false,
         false,
         0,
         {},
         {leave[0], "[NFC] BT is not connect!"}},
        {"no subscription",
         true,
         kHere,
         BleCall::kSubscribe,
         false,
         true,
         0,
         {"connect 11"},
         {connected[0], connected[1], connected[2], "[NFC] BleClientSubscribeNotify failed."}},
        {"leave the middle state", false, kHere, {}, true, false, 0, {"disconnect 11"}, leave},
        {"connect", true, kHere, {}, true, true, 1, {"connect 11", "subscribe 11"}, connected},
        {"leave another", false, kThere, {}, false, true, 1, {}, {leave[0], "[NFC] btmac error!"}},
        {"again",
         true,
         kHere,
         {},
         true,
         true,
         1,
         {"connect 11", "unsubscribe 11", "subscribe 11"},
         connected},
        {"to another",
         true,
         kThere,
         {},
         true,
         true,
         1,
         {"connect 12", "unsubscribe 11", "subscribe 12"},
         connected},
        {"refused while connected",
         true,
         kHere,
         BleCall::kConnect,
         false,
         true,
         1,
         {},
         {connected[0], "[NFC] BleClientConnect failed."}},
        {"back",
         true,
         kThere,
         {},
         true,
         true,
         1,
         {"connect 12", "unsubscribe 12", "subscribe 12"},
         connected},
        {"leave", false, kThere, {}, true, false, 0, {"unsubscribe 12", "disconnect 12"}, leave},
        {"leave twice",
         false,
         kThere,
         {},
         false,
         false,
         0,
         {},
         {leave[0], "[NFC] BT is not connect!"}},
        {"once more", true, kHere, {}, true, true, 1, {"connect 11", "subscribe 11"}, connected},
        {"no unsubscription",
         false,
         kHere,
         BleCall::kUnsubscribe,
         true,
         false,
         0,
         {"disconnect 11"},
         leave},
        {"and again", true, kHere, {}, true, true, 1, {"connect 11", "subscribe 11"}, connected},
        {"no disconnection",
         false,
         kHere,
         BleCall::kDisconnect,
         true,
         false,
         0,
         {"unsubscribe 11"},
         {leave[0], "[NFC] BleClientDisConnect failed."}},
    };
    std::size_t heard = HeardSoFar().size();
    for (const Step& step : steps) {
        SCOPED_TRACE(step.name);
        log.Clear();
        peer->calls.clear();
        if (step.fails) {
            LinkDockService::FailCall(*step.fails, 1);
        }
        EXPECT_EQ(
            step.connect ? manager->BtConnect(step.address) : manager->BtDisconnect(step.address),
            step.result);
        EXPECT_EQ(g_isBtConnected, step.connected);
        EXPECT_EQ(LinkDockService::DeliveryThreads(), step.delivery);
        EXPECT_EQ(log.Texts(), step.log);
        // The client keeps a call that fails from the device, and what it ends on its own.
        EXPECT_EQ(peer->calls, step.calls);
        if (step.delivery != 0) {
            peer->Notify({0x2E, 0x02, 0x6E, 0xE6});
            Desk::Pass(hosted::kMillisecond);
            EXPECT_EQ(HeardSoFar().size(), ++heard) << "once, through the one sink there is";
        }
    }
    EXPECT_LE(hosted::Live().handles, 0U);
    LinkDockService::SetNoInstance(true);
    log.Clear();
    EXPECT_FALSE(manager->BtConnect(kHere));
    EXPECT_EQ(log.Texts(), Lines{connected[0]});
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
    const Lines tooShort = {"[NFC] value length is err"};
    const Lines notValid = {"[NFC] not valid data "};
    std::vector<std::uint8_t> stored(32);
    for (unsigned type = 0; type < 256; ++type) {
        for (const auto& code : codes) {
            for (std::size_t size = 0; size <= 64; ++size) {
                std::vector<std::uint8_t> value(64, static_cast<std::uint8_t>(size));
                value[0] = 0x2E;
                value[1] = static_cast<std::uint8_t>(type);
                value[2] = code[0];
                value[3] = code[1];
                value.resize(size);
                value.shrink_to_fit();  // so that a read beyond its end is seen
                desk.log.Clear();
                const std::size_t heard = HeardSoFar().size();
                sink.OnNotify(value);
                Lines expected = notValid;
                int event = 0;
                char text[64];
                if (size < 4 || (type == 3 && size < 34)) {
                    expected = tooShort;
                } else if (type == 3) {
                    std::copy_n(value.begin() + 2, 32, stored.begin());
                    std::snprintf(text, sizeof(text),
                                  "[NFC] randNumber read: %02X%02X%02X%02X%02X%02X%02X%02X",
                                  code[0], code[1], value[4], value[5], value[6], value[7],
                                  value[32], value[33]);
                    expected = {text};
                } else if (type == 2 && code[0] == 0x6E && code[1] == 0xE6) {
                    event = 3;
                    expected = {"NFC_SELECT_IN_FIELD 1st report"};
                } else if (type == 2 && code[0] == 0xE6 && code[1] == 0x6E) {
                    event = 1;
                    expected = {"NFC_defer call done: 0000000000000000"};
                }
                expected.insert(expected.begin(), "[NFC] start size:");
                ASSERT_EQ(desk.log.Texts(), expected) << type << " " << size;
                ASSERT_EQ(HeardSoFar().size(), heard + (event != 0 ? 1 : 0));
                if (event != 0) {
                    EXPECT_EQ(HeardSoFar().back().event, event);
                    EXPECT_EQ(HeardSoFar().back().route, 4);
                }
            }
        }
    }
    const RandomNumber kept = g_btRandNumber.value.Get();
    EXPECT_TRUE(std::equal(kept.begin(), kept.end(), stored.begin()));
    desk.log.Clear();
    sink.OnNotify({0x2F, 0x02, 0x6E, 0xE6});
    EXPECT_EQ(desk.log.Texts().back(), notValid[0]) << "without the mark";
}

TEST(Ble, ALateNumberAnswersTheNextRequest) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kBle});
    desk.Start();
    {
        const hosted::DeviceLock lock;
        desk.pc.bluetooth()->SetAnswerLatency(3500 * hosted::kMillisecond);
        desk.pc.bluetooth()->SetMemory(122, simulator::Bytes(32, 0x91));
    }
    desk.log.Announce("NFC ReadRandNumber fail,");
    std::uint8_t number[32] = {0xCD};
    const hosted::Micros before = hosted::Now();
    EXPECT_EQ(desk.manager->ReadRandNum(number), 0) << "the other routes count";
    EXPECT_EQ(hosted::Now() - before, 3000 * hosted::kMillisecond);
    EXPECT_TRUE(desk.log.Has("[NFC_log] BtReadRandomNum fail "));
    EXPECT_EQ(number[0], 0xCD);
    Desk::Pass(hosted::kSecond);
    {
        const hosted::DeviceLock lock;
        desk.pc.bluetooth()->SetMemory(122, simulator::Bytes(32, 0x92));
    }
    EXPECT_EQ(desk.manager->ReadRandNum(number), 0);
    EXPECT_EQ(hosted::Now() - before, 4000 * hosted::kMillisecond) << "at once";
    EXPECT_EQ(number[0], 0x91);
    AnnounceStop(desk.log);
}

}  // namespace
