// The Bluetooth keyboard: its link in every state, its notifications, its failures.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>

#include "platform/LinkDockBackDoor.h"
#include "simulator/BlePeerAdapter.h"
#include "tests/support/PcWithHost.h"

using LinkDockService::BleCall;
using LinkDockService::DeliveryHabits;
using simulator::PcRoute;
using namespace testing_support;

namespace {

constexpr std::uint64_t kKeyboard = simulator::kDefaultBleAddress;
constexpr std::uint64_t kNobody = kKeyboard + 1;

enum class Link { kDown, kConnected, kSubscribed };

Link LinkOf(const simulator::BluetoothKeyboard& keyboard) {
    return keyboard.Subscribed()  ? Link::kSubscribed
           : keyboard.Connected() ? Link::kConnected
                                  : Link::kDown;
}

// A report that the client delivers on its own thread, at once.
void SendFieldNow(PcWithHost& setup, bool enter) {
    setup.pc.bluetooth()->SendField(enter);
    PcWithHost::Pass(kMillisecond);
}

TEST(Ble, LinkStates) {
    PcWithHost setup({PcRoute::kBle});
    ASSERT_TRUE(setup.Create());
    setup.log.Announce("[NFC] btmac error!");
    const std::string enter = "[NFC] BtConnect enter., ";
    const std::string refused = enter + "[NFC] BleClientConnect failed.";
    const std::string linked = enter + "[NFC] BtConnect succ., [NFC] BtDataNotify init succ., ";
    const std::string connected = linked + "[NFC] BleClientSubscribeNotify succ.";
    const std::string left = "[NFC] BtDisconnect enter.";
    const std::string stuck = left + ", [NFC] BleClientDisConnect failed.";
    const auto connect = &NfcManager::BtConnect;
    const auto disconnect = &NfcManager::BtDisconnect;
    const struct {
        bool (NfcManager::*operation)(std::uint64_t address);
        std::uint64_t address;
        std::optional<BleCall> fails;
        bool result;
        Link link;  // afterwards
        std::string lines;
    } steps[] = {
        {connect, kKeyboard, BleCall::kConnect, false, Link::kDown, refused},
        {disconnect, kKeyboard, {}, false, Link::kDown, left + ", [NFC] BT is not connect!"},
        {connect, kKeyboard, BleCall::kSubscribe, false, Link::kConnected,
         linked + "[NFC] BleClientSubscribeNotify failed."},
        {disconnect, kKeyboard, {}, true, Link::kDown, left},
        {connect, kKeyboard, {}, true, Link::kSubscribed, connected},
        {disconnect, kNobody, {}, false, Link::kSubscribed, left + ", [NFC] btmac error!"},
        {connect, kKeyboard, {}, true, Link::kSubscribed, connected},
        {connect, kKeyboard, BleCall::kConnect, false, Link::kSubscribed, refused},
        {connect, kNobody, {}, false, Link::kSubscribed, refused},
        {disconnect, kNobody, {}, true, Link::kConnected, stuck},
        {connect, kKeyboard, {}, true, Link::kSubscribed, connected},
        {disconnect, kKeyboard, BleCall::kUnsubscribe, true, Link::kDown, left},
        {connect, kKeyboard, {}, true, Link::kSubscribed, connected},
        {disconnect, kKeyboard, BleCall::kDisconnect, true, Link::kConnected, stuck},
    };
    std::size_t heard = 0;
    for (const auto& [operation, address, fails, result, link, lines] : steps) {
        SCOPED_TRACE(lines);
        setup.log.Clear();
        if (fails) {
            LinkDockService::FailCall(*fails, 1);
        }
        EXPECT_EQ(((*setup.manager).*operation)(address), result);
        EXPECT_EQ(LinkOf(*setup.pc.bluetooth()), link);
        EXPECT_EQ(Joined(setup.log.TextsSoFar()), lines);
        SendFieldNow(setup, true);
        heard += link == Link::kSubscribed ? 1 : 0;
        EXPECT_EQ(EventsSoFar().size(), heard) << "once, through the one sink there is";
    }
    // Another keyboard takes the place of the one that is connected.
    constexpr std::uint64_t kAnother = 11;
    EXPECT_TRUE(setup.manager->BtConnect(kKeyboard));
    LinkDockService::SetPeer(
        simulator::BlePeerAdapter::Make(std::make_shared<simulator::BluetoothKeyboard>(kAnother)));
    EXPECT_TRUE(setup.manager->BtConnect(kAnother));
    EXPECT_FALSE(setup.pc.bluetooth()->Subscribed()) << "the sink there was is gone";
    EXPECT_TRUE(setup.manager->BtDisconnect(kAnother));
    EXPECT_EQ(hosted::Live().handles, 0U);
    LinkDockService::SetNoInstance(true);
    EXPECT_FALSE(setup.manager->BtConnect(kAnother));
}

TEST(Ble, DisconnectsInOrder) {
    StartedPc setup({PcRoute::kBle});
    bool connectedAtLastClose = true;
    const hosted::ThreadId host = hosted::CurrentThread();
    hosted::SetCallHook([&, host](hosted::Call call, hosted::ThreadId thread) -> DWORD {
        if (call == hosted::Call::kCloseHandle && thread == host) {
            connectedAtLastClose = setup.pc.bluetooth()->Connected();
        }
        return 0;
    });
    EXPECT_TRUE(setup.manager->BtDisconnect(kKeyboard));
    hosted::SetCallHook({});
    EXPECT_EQ(Joined(setup.pc.bluetooth()->Refusals()), "") << "unsubscribed while connected";
    EXPECT_FALSE(connectedAtLastClose) << "the event is closed after the disconnection";
}

TEST(Ble, ASinkThatTheClientDoesNotLetGoOfFallsSilent) {
    StartedPc setup({PcRoute::kBle});
    DeliveryHabits habits;
    habits.afterRefusedUnsubscribe = true;
    LinkDockService::SetDeliveryHabits(habits);
    LinkDockService::FailCall(BleCall::kUnsubscribe, 1);
    LinkDockService::FailCall(BleCall::kDisconnect, 1);
    EXPECT_TRUE(setup.manager->BtDisconnect(kKeyboard));
    setup.log.Clear();
    SendFieldNow(setup, true);
    EXPECT_EQ(EventNumbers(), std::vector<int>{}) << "after BtDisconnect has returned";
    EXPECT_FALSE(setup.log.Has("[NFC] start size:")) << "a number would not be taken either";
    EXPECT_TRUE(setup.manager->BtConnect(kKeyboard));
    SendFieldNow(setup, false);
    EXPECT_EQ(EventNumbers(), std::vector<int>{1}) << "once";
}

// The client may deliver inside the calls that the library makes. The listener calls the manager
// back whenever a phone has come.
TEST(Ble, AListenerMayCallTheManagerWhereverTheClientDelivers) {
    ForEachSeed(10, [] {
        PcWithHost setup({PcRoute::kBle});
        setup.Start();
        std::uint8_t number[32] = {};
        std::uint8_t fill = 0x20;
        ReactToEvents([&](const ReceivedEvent& heard) {
            std::uint8_t read[32] = {};
            if (heard.event == 3) {
                EXPECT_EQ(setup.manager->ReadRandNum(read), 0);
                EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage(++fill)), 0);
                EXPECT_EQ(Renew(*setup.manager, NumberOf(++fill)), 0);
            }
        });
        DeliveryHabits habits;
        habits.insideSubscribeMs = habits.insideWriteMs = 20;
        LinkDockService::SetDeliveryHabits(habits);
        const std::function<bool()> operations[] = {
            [&] { return setup.manager->BtConnect(kKeyboard); },
            [&] { return setup.manager->ReadRandNum(number) == 0; },
            [&] { return setup.manager->WriteMessage(setup.NewMessage(0x31)) == 0; },
            [&] { return Renew(*setup.manager, NumberOf(0x32)) == 0; },
        };
        for (const auto& operation : operations) {
            TakeEvents();
            setup.pc.bluetooth()->SendField(true, 1 * kMillisecond);
            setup.pc.bluetooth()->SendField(false, 10 * kMillisecond);
            EXPECT_TRUE(operation());
            PcWithHost::Pass(20 * kSecond);
            EXPECT_EQ(EventNumbers(), (std::vector<int>{3, 1}));
        }
    });
}

// Numbers that a call of the listener has looked at twice, and those that were not whole or not the
// same. A listener is a plain function, so they are the process's.
unsigned g_seenNumbers = 0;
unsigned g_tornNumbers = 0;
void LookTwice(int /*event*/, const std::uint8_t (&number)[32], int /*route*/) {
    const Number expected = NumberOf(number[0]);
    const auto isWhole = [&] { return std::equal(expected.begin(), expected.end(), number); };
    const bool wasWhole = isWhole();
    Sleep(5);
    g_tornNumbers += wasWhole && isWhole() ? 0 : 1;
    ++g_seenNumbers;
}

TEST(Ble, TwoDeliveriesAtOnceShowEachListenerCallItsOwnNumber) {
    PcWithHost setup({PcRoute::kBle});
    DeliveryHabits habits;
    habits.threads = 2;
    LinkDockService::SetDeliveryHabits(habits);
    setup.Start();
    setup.manager->RegisterListener(&LookTwice);
    constexpr std::uint8_t kVisits = 20;
    for (std::uint8_t i = 0; i < kVisits; ++i) {
        const hosted::Micros at = kMillisecond * 3 * i;
        setup.pc.bluetooth()->SendNumber(simulator::Bytes(32, i), at);
        setup.pc.bluetooth()->SendField(i % 2 == 0, at + kMillisecond);
    }
    PcWithHost::Pass(kSecond);
    EXPECT_EQ(g_seenNumbers, kVisits);
    EXPECT_EQ(g_tornNumbers, 0U);
}

TEST(Ble, JudgesEveryNotification) {
    StartedPc setup({PcRoute::kBle});
    const std::string tooShort = "[NFC] value length is err";
    setup.log.Announce(tooShort);
    PcWithHost::Pass(kMillisecond);  // the interrupt thread, which no driver serves, ends
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
        {{0x2E, 2, 0xE6, 0x6E}, 4, left + "1111111111111111"},
        {{0x2E, 3}, 33, tooShort},
        {{0x2E, 3, 1, 2}, 34, number + "0102222222222222"},
        {{0x2E, 2, 0xE6, 0x6E}, 64, left + "0102222222222222"},
        {{0x2E, 3, 3}, 64, number + "0340404040404040"},
        {{0x2E, 2, 0x6E, 0xE6}, 64, entered},
        {{0x2E, 2, 0x6E, 0x6E}, 64, invalid},
        {{0x2E, 1, 0x6E, 0xE6}, 64, invalid},
        {{0x2F, 2, 0x6E, 0xE6}, 64, invalid},
    };
    for (const auto& [head, size, line] : cases) {
        std::vector<std::uint8_t> value(size, static_cast<std::uint8_t>(size));
        std::copy(head.begin(), head.end(), value.begin());
        setup.log.Clear();
        setup.pc.bluetooth()->SendRaw(value);
        PcWithHost::Pass(kMillisecond);
        EXPECT_EQ(Joined(setup.log.TextsSoFar()), "[NFC] start size:, " + line) << size << " bytes";
    }
    EXPECT_EQ(EventNumbers(4), (std::vector<int>{3, 1, 1, 3}));
    EXPECT_EQ(EventsSoFar()[3].number[31], 0x40);
}

TEST(Ble, ALateNumberAnswersTheNextRequest) {
    StartedPc setup({PcRoute::kBle});
    simulator::BluetoothKeyboard& keyboard = *setup.pc.bluetooth();
    keyboard.SetAnswerLatency(3500 * kMillisecond);
    keyboard.SetMemory(122, simulator::Bytes(32, 0x91));
    setup.log.Announce("NFC ReadRandNumber fail,");
    std::uint8_t number[32] = {0xCD};
    const hosted::Micros before = hosted::Now();
    EXPECT_EQ(setup.manager->ReadRandNum(number), 0) << "the other routes count";
    EXPECT_EQ(hosted::Now() - before, 3 * kSecond);
    EXPECT_EQ(number[0], 0xCD);
    PcWithHost::Pass(kSecond);
    keyboard.SetMemory(122, simulator::Bytes(32, 0x92));
    EXPECT_EQ(setup.manager->ReadRandNum(number), 0);
    EXPECT_EQ(hosted::Now() - before, 4 * kSecond) << "at once";
    EXPECT_EQ(number[0], 0x91);
}

TEST(Ble, ADisconnectWithoutAClientSilencesTheSinkOfTheConnectBefore) {
    PcWithHost setup({PcRoute::kBle});
    ASSERT_TRUE(setup.Create());
    ASSERT_TRUE(setup.manager->BtConnect(kKeyboard));
    LinkDockService::SetNoInstance(true);
    EXPECT_FALSE(setup.manager->BtConnect(kKeyboard));
    EXPECT_FALSE(setup.manager->BtDisconnect(kKeyboard));
    SendFieldNow(setup, true);
    EXPECT_EQ(EventNumbers(), std::vector<int>{});
}

// Reports come faster than the listener returns, the first one inside a call of the client.
TEST(Ble, AKeyboardThatReportsWithoutEndKeepsNoOperation) {
    PcWithHost setup({PcRoute::kBle});
    ASSERT_TRUE(setup.Create());
    ASSERT_TRUE(setup.manager->BtConnect(kKeyboard));
    DeliveryHabits habits;
    habits.insideWriteMs = 20;
    LinkDockService::SetDeliveryHabits(habits);
    ReactToEvents([](const ReceivedEvent& /*event*/) { Sleep(40); });
    for (int i = 0; i < 600; ++i) {
        setup.pc.bluetooth()->SendField(i % 2 == 0, (1 + i * 30) * kMillisecond);
    }
    std::uint8_t number[32];
    const hosted::Micros begin = hosted::Now();
    EXPECT_EQ(setup.manager->ReadRandNum(number), 0);
    EXPECT_LT(hosted::Now() - begin, 5 * kSecond);
    EXPECT_TRUE(setup.manager->BtDisconnect(kKeyboard));
}

}  // namespace
