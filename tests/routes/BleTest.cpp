// The Bluetooth keyboard: its link in every state, its notifications, its failures.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>

#include "platform/LinkDockBackDoor.h"
#include "simulator/BlePeerAdapter.h"
#include "tests/support/Desk.h"
#include "tests/support/ScriptedBus.h"
#include "tests/support/Seeds.h"

using LinkDockService::BleCall;
using LinkDockService::DeliveryHabits;
using simulator::PcRoute;
using namespace testing_support;

namespace {

constexpr std::uint64_t kKeyboard = simulator::kDefaultBleAddress;
constexpr std::uint64_t kNobody = kKeyboard + 1;

// The link as the keyboard sees it.
enum class Link { kDown, kConnected, kSubscribed };

Link LinkOf(Desk& desk) {
    return desk.pc.bluetooth()->Subscribed()  ? Link::kSubscribed
           : desk.pc.bluetooth()->Connected() ? Link::kConnected
                                              : Link::kDown;
}

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
    constexpr auto connect = &NfcManager::BtConnect;
    constexpr auto disconnect = &NfcManager::BtDisconnect;
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
        desk.log.Clear();
        if (fails) {
            LinkDockService::FailCall(*fails, 1);
        }
        EXPECT_EQ(((*desk.manager).*operation)(address), result);
        EXPECT_EQ(LinkOf(desk), link);
        EXPECT_EQ(Joined(desk.log.Texts()), lines);
        desk.pc.bluetooth()->SendField(true);
        Desk::Pass(hosted::kMillisecond);
        heard += link == Link::kSubscribed ? 1 : 0;
        EXPECT_EQ(HeardSoFar().size(), heard) << "once, through the one sink there is";
    }
    // Another keyboard takes the place of the one that is connected.
    constexpr std::uint64_t another = 11;
    EXPECT_TRUE(desk.manager->BtConnect(kKeyboard));
    LinkDockService::SetPeer(
        simulator::BlePeerAdapter::Make(std::make_shared<simulator::BluetoothKeyboard>(another)));
    EXPECT_TRUE(desk.manager->BtConnect(another));
    EXPECT_FALSE(desk.pc.bluetooth()->Subscribed()) << "the sink there was is gone";
    EXPECT_TRUE(desk.manager->BtDisconnect(another));
    EXPECT_EQ(hosted::Live().handles, 0U);
    LinkDockService::SetNoInstance(true);
    EXPECT_FALSE(desk.manager->BtConnect(another));
}

// A report that the client delivers on its own thread, at once.
void SendFieldNow(Desk& desk, bool enter) {
    desk.pc.bluetooth()->SendField(enter);
    Desk::Pass(hosted::kMillisecond);
}

TEST(Ble, DisconnectsInOrder) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kBle});
    ASSERT_TRUE(desk.Create());
    ASSERT_TRUE(desk.manager->BtConnect(kKeyboard));
    bool connectedAtLastClose = true;
    const hosted::ThreadId host = hosted::CurrentThread();
    hosted::SetCallHook([&, host](hosted::Call call, hosted::ThreadId thread) -> DWORD {
        if (call == hosted::Call::kCloseHandle && thread == host) {
            connectedAtLastClose = desk.pc.bluetooth()->Connected();
        }
        return 0;
    });
    EXPECT_TRUE(desk.manager->BtDisconnect(kKeyboard));
    hosted::SetCallHook({});
    EXPECT_EQ(Joined(desk.pc.bluetooth()->Refusals()), "") << "unsubscribed while connected";
    EXPECT_FALSE(connectedAtLastClose) << "the event is closed after the disconnection";
}

TEST(Ble, ASinkThatTheClientDoesNotLetGoOfFallsSilent) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kBle});
    ASSERT_TRUE(desk.Create());
    DeliveryHabits habits;
    habits.afterRefusedUnsubscribe = true;
    LinkDockService::SetDeliveryHabits(habits);
    ASSERT_TRUE(desk.manager->BtConnect(kKeyboard));
    LinkDockService::FailCall(BleCall::kUnsubscribe, 1);
    LinkDockService::FailCall(BleCall::kDisconnect, 1);
    EXPECT_TRUE(desk.manager->BtDisconnect(kKeyboard));
    SendFieldNow(desk, true);
    EXPECT_EQ(EventsHeard(), std::vector<int>{}) << "after BtDisconnect has returned";
    EXPECT_TRUE(desk.manager->BtConnect(kKeyboard));
    SendFieldNow(desk, false);
    EXPECT_EQ(EventsHeard(), std::vector<int>{1}) << "once";
}

// The client may deliver inside the calls that the library makes. The listener calls the manager
// back whenever a phone has come.
TEST(Ble, AListenerMayCallTheManagerWhereverTheClientDelivers) {
    ForEachSeed(10, [] {
        Desk desk({PcRoute::kBle});
        desk.Start();
        int failures = 0;
        std::uint8_t fill = 0x20;
        ReactToEvents([&](const Heard& heard) {
            std::uint8_t number[32] = {};
            if (heard.event == 3) {
                failures += desk.manager->ReadRandNum(number) != 0 ? 1 : 0;
                failures += desk.manager->WriteMessage(desk.NewMessage(++fill)) != 0 ? 1 : 0;
                failures += Renew(*desk.manager, NumberOf(++fill)) != 0 ? 1 : 0;
            }
        });
        DeliveryHabits habits;
        habits.insideSubscribeMs = habits.insideWriteMs = 20;
        LinkDockService::SetDeliveryHabits(habits);
        const auto visitDuring = [&](const std::function<bool()>& operation) {
            const std::size_t before = EventsHeard().size();
            desk.pc.bluetooth()->SendField(true, 1 * hosted::kMillisecond);
            desk.pc.bluetooth()->SendField(false, 10 * hosted::kMillisecond);
            EXPECT_TRUE(operation());
            Desk::Pass(20 * hosted::kSecond);
            std::vector<int> events = EventsHeard();
            events.erase(events.begin(), events.begin() + static_cast<std::ptrdiff_t>(before));
            EXPECT_EQ(events, (std::vector<int>{3, 1}));
        };
        std::uint8_t number[32] = {};
        visitDuring([&] { return desk.manager->BtConnect(kKeyboard); });
        visitDuring([&] { return desk.manager->ReadRandNum(number) == 0; });
        visitDuring([&] { return desk.manager->WriteMessage(desk.NewMessage(0x31)) == 0; });
        visitDuring([&] { return Renew(*desk.manager, NumberOf(0x32)) == 0; });
        EXPECT_EQ(failures, 0) << "calls of the listener";
    });
}

// Looks at the number twice. A listener is a plain function, so what it finds is the process's.
unsigned g_tornNumbers = 0;
unsigned g_numbersSeen = 0;
void LookTwice(int /*event*/, const std::uint8_t (&number)[32], int /*route*/) {
    Number first;
    std::copy(std::begin(number), std::end(number), first.begin());
    Sleep(5);
    const bool same = std::equal(first.begin(), first.end(), std::begin(number));
    g_tornNumbers += same && first == NumberOf(first[0]) ? 0 : 1;
    ++g_numbersSeen;
}

TEST(Ble, TwoDeliveriesAtOnceShowEachListenerCallItsOwnNumber) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kBle});
    ASSERT_TRUE(desk.Create());
    desk.manager->RegisterListener(&LookTwice);
    DeliveryHabits habits;
    habits.threads = 2;
    LinkDockService::SetDeliveryHabits(habits);
    ASSERT_TRUE(desk.manager->BtConnect(kKeyboard));
    constexpr unsigned visits = 20;
    for (unsigned i = 0; i < visits; ++i) {
        const hosted::Micros at = i * 3 * hosted::kMillisecond;
        desk.pc.bluetooth()->SendNumber(simulator::Bytes(32, static_cast<std::uint8_t>(0x10 + i)),
                                        at);
        desk.pc.bluetooth()->SendField(i % 2 == 0, at + hosted::kMillisecond);
    }
    Desk::Pass(hosted::kSecond);
    EXPECT_EQ(g_numbersSeen, visits);
    EXPECT_EQ(g_tornNumbers, 0U);
}

TEST(Ble, JudgesEveryNotification) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kBle});
    ASSERT_TRUE(desk.Create());
    ASSERT_TRUE(desk.manager->BtConnect(kKeyboard));
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
    for (const auto& [head, size, line] : cases) {
        std::vector<std::uint8_t> value(size, static_cast<std::uint8_t>(size));
        std::copy(head.begin(), head.end(), value.begin());
        desk.log.Clear();
        desk.pc.bluetooth()->SendRaw(value);
        Desk::Pass(hosted::kMillisecond);
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
