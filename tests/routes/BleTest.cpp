// The Bluetooth keyboard: its link in every state, its notifications, its failures.
#include <gtest/gtest.h>

#include <cstring>
#include <optional>

#include "platform/LinkDockBackDoor.h"
#include "routes/BleDelivery.h"
#include "routes/BleLink.h"
#include "routes/RouteState.h"
#include "simulator/BlePeerAdapter.h"
#include "tests/support/Desk.h"
#include "tests/support/ScriptedBus.h"
#include "tests/support/Seeds.h"

using LinkDockService::BleCall;
using simulator::PcRoute;
using namespace testing_support;

namespace {

TEST(Ble, LinkStates) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kBle});
    ASSERT_TRUE(desk.Create());
    desk.log.Announce("[NFC] btmac error!");
    const std::string enter = "[NFC] BtConnect enter., ";
    const std::string refused = enter + "[NFC] BleClientConnect failed.";
    const std::string linked = enter + "[NFC] BtConnect succ., [NFC] BtDataNotify init succ., ";
    const std::string connected = linked + "[NFC] BleClientSubscribeNotify succ.";
    const std::string left = "[NFC] BtDisconnect enter.";
    const std::string stuck = left + ", [NFC] BleClientDisConnect failed.";
    const struct {
        const char* operation;  // "+" connects, "-" disconnects, the keyboard or another device
        std::optional<BleCall> fails;
        bool result;
        std::string state;  // afterwards: "L"ibrary and "C"lient connected, "S"ubscribed
        std::string lines;
    } steps[] = {
        {"+", BleCall::kConnect, false, "", refused},
        {"-", {}, false, "", left + ", [NFC] BT is not connect!"},
        {"+", BleCall::kSubscribe, false, "LC", linked + "[NFC] BleClientSubscribeNotify failed."},
        {"-", {}, true, "", left},
        {"+", {}, true, "LCS", connected},
        {"- another", {}, false, "LCS", left + ", [NFC] btmac error!"},
        {"+", {}, true, "LCS", connected},
        {"+", BleCall::kConnect, false, "LCS", refused},
        {"+ another", {}, false, "LCS", refused},
        {"- another", {}, true, "C", stuck},
        {"+", {}, true, "LCS", connected},
        {"-", BleCall::kUnsubscribe, true, "", left},
        {"+", {}, true, "LCS", connected},
        {"-", BleCall::kDisconnect, true, "C", stuck},
    };
    std::size_t heard = 0;
    for (const auto& [operation, fails, result, state, lines] : steps) {
        SCOPED_TRACE(operation + lines);
        desk.log.Clear();
        if (fails) {
            LinkDockService::FailCall(*fails, 1);
        }
        const std::uint64_t address = simulator::kDefaultBleAddress + std::strlen(operation) - 1;
        EXPECT_EQ(operation[0] == '+' ? desk.manager->BtConnect(address)
                                      : desk.manager->BtDisconnect(address),
                  result);
        EXPECT_EQ(std::string(g_isBtConnected ? "L" : "") +
                      (desk.pc.bluetooth()->Connected() ? "C" : "") +
                      (desk.pc.bluetooth()->Subscribed() ? "S" : ""),
                  state);
        EXPECT_EQ(Joined(desk.log.Texts()), lines);
        desk.pc.bluetooth()->SendField(true);
        Desk::Pass(hosted::kMillisecond);
        heard += state == "LCS" ? 1 : 0;
        EXPECT_EQ(HeardSoFar().size(), heard) << "once, through the one sink there is";
    }
    // Another keyboard takes the place of the one that is connected.
    EXPECT_TRUE(desk.manager->BtConnect(simulator::kDefaultBleAddress));
    LinkDockService::SetPeer(
        simulator::BlePeerAdapter::Make(std::make_shared<simulator::BluetoothKeyboard>(11)));
    EXPECT_TRUE(desk.manager->BtConnect(11));
    EXPECT_FALSE(desk.pc.bluetooth()->Subscribed()) << "the sink there was is gone";
    EXPECT_TRUE(desk.manager->BtDisconnect(11));
    EXPECT_EQ(hosted::Live().handles, 0U);
    LinkDockService::SetNoInstance(true);
    EXPECT_FALSE(desk.manager->BtConnect(11));
    EXPECT_EQ(g_bleClient, nullptr);
}

TEST(Ble, JudgesEveryNotification) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({});
    ASSERT_TRUE(desk.Create());
    desk.log.Announce("[NFC] value length is err");
    const std::string tooShort = "[NFC] value length is err";
    const std::string invalid = "[NFC] not valid data ";
    const std::string entered = "NFC_SELECT_IN_FIELD 1st report";
    const std::string left = "NFC_defer call done: ";
    const std::string number = "[NFC] randNumber read: ";
    const struct {
        std::vector<std::uint8_t> head;
        std::size_t size;  // the head followed by bytes of the size
        std::string line;
    } cases[] = {
        {{}, 0, tooShort},
        {{0x2E, 2, 0x6E}, 3, tooShort},
        {{0x2E, 2, 0x6E, 0xE6}, 4, entered},
        {{0x2E, 2, 0xE6, 0x6E}, 4, left + "0000000000000000"},
        {{0x2E, 3}, 33, tooShort},
        {{0x2E, 3, 1, 2}, 34, number + "0102222222222222"},
        {{0x2E, 2, 0xE6, 0x6E}, 64, left + "0102222222222222"},
        {{0x2E, 3, 3}, 64, number + "0340404040404040"},
        {{0x2E, 2, 0x6E, 0xE6}, 64, entered},
        {{0x2E, 2, 0x6E, 0x6E}, 64, invalid},
        {{0x2E, 2, 0xE6, 0xE6}, 64, invalid},
        {{0x2E, 1, 0x6E, 0xE6}, 64, invalid},
        {{0x2E, 4, 0x6E, 0xE6}, 64, invalid},
        {{0x2F, 2, 0x6E, 0xE6}, 64, invalid},
    };
    BtDataNotify sink;
    BleDelivery::Get().SetSink(&sink);
    for (const auto& [head, size, line] : cases) {
        std::vector<std::uint8_t> value(size, static_cast<std::uint8_t>(size));
        std::copy(head.begin(), head.end(), value.begin());
        desk.log.Clear();
        sink.OnNotify(value);
        EXPECT_EQ(Joined(desk.log.Texts()), "[NFC] start size:, " + line) << size << " bytes";
    }
    EXPECT_EQ(EventsHeard(4), (std::vector<int>{3, 1, 1, 3}));
    EXPECT_EQ(HeardSoFar()[3].number[31], 0x40);
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
    EXPECT_EQ(number[0], 0xCD);
    Desk::Pass(hosted::kSecond);
    keyboard.SetMemory(122, simulator::Bytes(32, 0x92));
    EXPECT_EQ(desk.manager->ReadRandNum(number), 0);
    EXPECT_EQ(hosted::Now() - before, 4 * hosted::kSecond) << "at once";
    EXPECT_EQ(number[0], 0x91);
    AnnounceStop(desk.log);
}

}  // namespace
