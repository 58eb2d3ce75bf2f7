// The Bluetooth keyboard: its link in every state, its notifications, its failures.
#include <algorithm>
#include <numeric>
#include <optional>

#include "platform/services/standin/ClientBackDoor.h"
#include "simulator/BlePeerAdapter.h"
#include "tests/support/PcWithHost.h"

using LinkDockService::BleCall;
using namespace testing_support;

namespace {

constexpr std::uint64_t kKeyboard = simulator::kDefaultBleAddress;
constexpr std::uint64_t kNobody = kKeyboard + 1;  // until another keyboard is there

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

// Each step begins with the link that the one before has left.
TEST(Ble, ConnectsAndDisconnectsFromEveryStateOfTheLink) {
    PcWithHost setup({PcRoute::kBle});
    ASSERT_TRUE(setup.Create());
    setup.log.Announce("[NFC] btmac error!");
    const std::string enter = "[NFC] BtConnect enter., ";
    const std::string refused = enter + "[NFC] BleClientConnect failed.";
    const std::string linked = enter + "[NFC] BtConnect succ., [NFC] BtDataNotify init succ., ";
    const std::string connected = linked + "[NFC] BleClientSubscribeNotify succ.";
    const std::string left = "[NFC] BtDisconnect enter.";
    const std::string stuck = left + ", [NFC] BleClientDisConnect failed.";
    const std::string notConnected = left + ", [NFC] BT is not connect!";
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
        {disconnect, kKeyboard, {}, false, Link::kDown, notConnected},
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
        {disconnect, kKeyboard, {}, false, Link::kDown, notConnected},
        {connect, kKeyboard, {}, true, Link::kSubscribed, connected},
        {disconnect, kKeyboard, BleCall::kDisconnect, true, Link::kConnected, stuck},
    };
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
        EXPECT_EQ(TakeEvents().size(), link == Link::kSubscribed ? 1U : 0U)
            << "once, through the one sink there is";
    }
}

TEST(Ble, ConnectsAnotherKeyboardInPlaceOfTheOneThatIsConnected) {
    StartedPc setup({PcRoute::kBle});
    const auto another = std::make_shared<simulator::BluetoothKeyboard>(kNobody);
    LinkDockService::SetPeer(simulator::BlePeerAdapter::Make(another));
    EXPECT_TRUE(setup.manager->BtConnect(kNobody));
    EXPECT_FALSE(setup.pc.bluetooth()->Subscribed()) << "the sink there was is gone";
    EXPECT_TRUE(setup.manager->BtDisconnect(kNobody));
}

TEST(Ble, HearsNothingThroughTheSinkOfAClientThatIsGone) {
    StartedPc setup({PcRoute::kBle});
    LinkDockService::SetNoInstance(true);
    EXPECT_FALSE(setup.manager->BtConnect(kKeyboard));
    EXPECT_FALSE(setup.manager->BtDisconnect(kKeyboard));
    SendFieldNow(setup, true);
    EXPECT_EQ(EventNumbers(), std::vector<int>{});
}

TEST(Ble, DisconnectsBetweenTheUnsubscriptionAndTheEndOfTheEvent) {
    StartedPc setup({PcRoute::kBle});
    bool connectedAtLastClose = true;
    emulation::SetCallHook([&](emulation::Call call, emulation::ThreadId /*thread*/) -> DWORD {
        if (call == emulation::Call::kCloseHandle) {
            connectedAtLastClose = setup.pc.bluetooth()->Connected();
        }
        return 0;
    });
    EXPECT_TRUE(setup.manager->BtDisconnect(kKeyboard));
    emulation::SetCallHook({});
    EXPECT_EQ(Joined(setup.pc.bluetooth()->Refusals()), "");
    EXPECT_FALSE(connectedAtLastClose);
}

TEST(Ble, ASinkThatTheClientDoesNotLetGoOfFallsSilent) {
    StartedPc setup({PcRoute::kBle});
    LinkDockService::SetDeliveryHabits({0, 0, 1, true});  // after a refused unsubscription
    LinkDockService::FailCall(BleCall::kUnsubscribe, 1);
    LinkDockService::FailCall(BleCall::kDisconnect, 1);
    bool returned = false;
    ReactToEvents([&](const ReceivedEvent& /*event*/) {
        Sleep(40);
        returned = true;
    });
    SendFieldNow(setup, true);
    EXPECT_TRUE(setup.manager->BtDisconnect(kKeyboard));
    EXPECT_TRUE(returned) << "no event is under way any more";
    TakeEvents();
    setup.log.Clear();
    EXPECT_EQ(LinkDockService::DeliveryThreads(), 1U) << "the client goes on";
    SendFieldNow(setup, true);
    EXPECT_EQ(EventNumbers(), std::vector<int>{}) << "after BtDisconnect has returned";
    EXPECT_FALSE(setup.log.Has("[NFC] start size:")) << "a number would not be taken either";
    EXPECT_TRUE(setup.manager->BtConnect(kKeyboard));
    SendFieldNow(setup, false);
    EXPECT_EQ(EventNumbers(), std::vector<int>{1}) << "once";
}

// A report that the client notifies just when an operation ends, or while one delivers.
TEST(Ble, OnlyWhatIsNotifiedInsideACallComesOnTheCallersThread) {
    ForEachSeed(100, [] {
        StartedPc setup({PcRoute::kBle});
        simulator::BluetoothKeyboard& keyboard = *setup.pc.bluetooth();
        keyboard.SetAnswerLatency(kSecond);
        std::uint8_t number[32] = {};
        for (int i = 0; i < 10; ++i) {
            keyboard.SendNumber(simulator::Bytes(32, 0x22), kMillisecond);
            keyboard.SendField(i % 2 == 0, kMillisecond);
            EXPECT_EQ(setup.manager->ReadRandNum(number), 0);
            PcWithHost::Pass(2 * kSecond);
            setup.manager->ReadRandNum(number);  // takes the answer that came late
        }
        for (const ReceivedEvent& heard : TakeEvents()) {
            EXPECT_NE(heard.thread, emulation::CurrentThread());
        }
        ReactToEvents([](const ReceivedEvent& /*event*/) { Sleep(40); });
        keyboard.SetAnswerLatency(2 * kMillisecond);
        LinkDockService::SetDeliveryHabits({0, 20});  // inside a write
        keyboard.SendField(true, 1 * kMillisecond);
        keyboard.SendField(false, 20 * kMillisecond);
        EXPECT_EQ(setup.manager->ReadRandNum(number), 0);
        PcWithHost::Pass(kSecond);
        ASSERT_EQ(EventNumbers(), (std::vector<int>{3, 1}));
        EXPECT_EQ(EventsSoFar()[0].thread, emulation::CurrentThread());
        EXPECT_NE(EventsSoFar()[1].thread, emulation::CurrentThread());
    });
}

TEST(Ble, AnEventInsideACallDoesNotHoldUpALaterOneUntilTheOperationEnds) {
    StartedPc setup({PcRoute::kBle});
    setup.pc.bluetooth()->SetAnswerLatency(kSecond);
    LinkDockService::SetDeliveryHabits({0, 20});
    setup.pc.bluetooth()->SendField(true, 1 * kMillisecond);
    setup.pc.bluetooth()->SendField(false, 30 * kMillisecond);
    std::uint8_t number[32] = {};
    EXPECT_EQ(setup.manager->ReadRandNum(number), 0);
    ASSERT_EQ(EventNumbers(), (std::vector<int>{3, 1}));
    EXPECT_NE(EventsSoFar()[0].thread, emulation::CurrentThread());
}

TEST(Ble, NeitherConnectNorDisconnectTakesTheAnswerFromAReadThatWaits) {
    ForEachSeed(20, [] {
        StartedPc setup({PcRoute::kBle});
        setup.pc.bluetooth()->SetAnswerLatency(500 * kMillisecond);
        const std::size_t threads = emulation::Live().threads;
        for (const auto operation : {&NfcManager::BtConnect, &NfcManager::BtDisconnect}) {
            std::uint8_t number[32] = {};
            OnThread([&] { EXPECT_EQ(setup.manager->ReadRandNum(number), 0); });
            PcWithHost::Pass(100 * kMillisecond);
            EXPECT_TRUE(((*setup.manager).*operation)(kKeyboard));
            EXPECT_TRUE(PcWithHost::WaitForThreads(threads));
            EXPECT_EQ(number[0], 0x11);
        }
    });
}

TEST(Ble, TwoDeliveriesAtOnceShowEachListenerCallItsOwnNumber) {
    PcWithHost setup({PcRoute::kBle});
    LinkDockService::SetDeliveryHabits({0, 0, 2});  // threads
    setup.Start();
    ReactToEvents([](const ReceivedEvent& /*event*/) { Sleep(5); });
    constexpr std::uint8_t kVisits = 20;
    for (std::uint8_t i = 0; i < kVisits; ++i) {
        const emulation::Micros at = kMillisecond * 3 * i;
        setup.pc.bluetooth()->SendNumber(simulator::Bytes(32, i), at);
        setup.pc.bluetooth()->SendField(i % 2 == 0, at + kMillisecond);
    }
    PcWithHost::Pass(kSecond);
    EXPECT_EQ(EventsSoFar().size(), kVisits);
    for (const ReceivedEvent& heard : EventsSoFar()) {
        EXPECT_EQ(heard.number, NumberOf(heard.number[0])) << "whole";
    }
}

TEST(Ble, SixtyFourEventsWaitForABusyListener) {
    PcWithHost setup({PcRoute::kBle});
    constexpr unsigned kThreads = 70;
    LinkDockService::SetDeliveryHabits({0, 0, kThreads});
    setup.Start();
    ReactToEvents([](const ReceivedEvent& /*event*/) { Sleep(1000); });
    SendFieldNow(setup, true);
    for (unsigned i = 1; i < kThreads; ++i) {
        setup.pc.bluetooth()->SendField(true);
    }
    PcWithHost::Pass(2 * kThreads * kSecond);
    EXPECT_EQ(EventsSoFar().size(), 1U + 64) << "and the one that is being delivered";
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
        std::size_t size;  // the bytes after the head count from it
        std::string line;
    } cases[] = {
        {{}, 0, tooShort},
        {{0x2E, 2, 0x6E}, 3, tooShort},
        {{0x2E, 2, 0x6E, 0xE6}, 4, entered},
        {{0x2E, 2, 0xE6, 0x6E}, 4, left + "1111111111111111"},
        {{0x2E, 3}, 33, tooShort},
        {{0x2E, 3, 1, 2}, 34, number + "0102262728294243"},
        {{0x2E, 2, 0xE6, 0x6E}, 64, left + "0102262728292A2B"},
        {{0x2E, 3, 3}, 64, number + "0343444546476061"},
        {{0x2E, 2, 0x6E, 0xE6}, 64, entered},
        {{0x2E, 2, 0x6E, 0x6E}, 64, invalid},
        {{0x2E, 1, 0x6E, 0xE6}, 64, invalid},
        {{0x2F, 2, 0x6E, 0xE6}, 64, invalid},
    };
    for (const auto& [head, size, line] : cases) {
        std::vector<std::uint8_t> value(size);
        std::iota(value.begin(), value.end(), static_cast<std::uint8_t>(size));
        std::copy(head.begin(), head.end(), value.begin());
        setup.log.Clear();
        setup.pc.bluetooth()->SendRaw(value);
        PcWithHost::Pass(kMillisecond);
        EXPECT_EQ(Joined(setup.log.TextsSoFar()), "[NFC] start size:, " + line) << size << " bytes";
    }
    EXPECT_EQ(EventNumbers(4), (std::vector<int>{3, 1, 1, 3}));
    EXPECT_EQ(EventsSoFar()[3].number[31], 0x61);
}

TEST(Ble, ALateNumberAnswersTheNextRequest) {
    StartedPc setup({PcRoute::kBle});
    simulator::BluetoothKeyboard& keyboard = *setup.pc.bluetooth();
    keyboard.SetAnswerLatency(3500 * kMillisecond);
    keyboard.SetMemory(setup.NumberRegister(), simulator::Bytes(32, 0x91));
    setup.log.Announce("NFC ReadRandNumber fail,");
    std::uint8_t number[32] = {0xCD};
    const emulation::Micros before = emulation::Now();
    EXPECT_EQ(setup.manager->ReadRandNum(number), 0) << "the other routes count";
    EXPECT_EQ(emulation::Now() - before, 3 * kSecond);
    EXPECT_EQ(number[0], 0xCD);
    PcWithHost::Pass(kSecond);
    keyboard.SetMemory(setup.NumberRegister(), simulator::Bytes(32, 0x92));
    EXPECT_EQ(setup.manager->ReadRandNum(number), 0);
    EXPECT_EQ(emulation::Now() - before, 4 * kSecond) << "at once";
    EXPECT_EQ(number[0], 0x91);
}

// The client may deliver inside the calls that the library makes. The listener calls the manager
// back whenever a phone has come.
TEST(Ble, AListenerMayCallTheManagerWhereverTheClientDelivers) {
    ForEachSeed(10, [] {
        StartedPc setup({PcRoute::kBle});
        std::uint8_t number[32] = {};
        std::uint8_t fill = 0x20;
        unsigned onHost = 0;
        ReactToEvents([&](const ReceivedEvent& heard) {
            if (heard.event == 3) {
                std::uint8_t read[32];
                EXPECT_EQ(setup.manager->ReadRandNum(read), 0);
                EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage(++fill)), 0);
                EXPECT_EQ(Renew(*setup.manager, NumberOf(++fill)), 0);
            }
        });
        LinkDockService::SetDeliveryHabits({20, 20});  // inside both
        const std::function<bool()> operations[] = {
            [&] { return setup.manager->BtConnect(kKeyboard); },
            [&] { return setup.manager->ReadRandNum(number) == 0; },
            [&] { return setup.manager->WriteMessage(setup.NewMessage(0x31)) == 0; },
            [&] { return setup.manager->UpdateNfcData(); },
            [&] { return Renew(*setup.manager, NumberOf(0x32)) == 0; },
        };
        for (const auto& operation : operations) {
            TakeEvents();
            setup.pc.bluetooth()->SendField(true, 1 * kMillisecond);
            setup.pc.bluetooth()->SendField(false, 10 * kMillisecond);
            EXPECT_TRUE(operation());
            PcWithHost::Pass(20 * kSecond);
            EXPECT_EQ(EventNumbers(), (std::vector<int>{3, 1}));
            onHost += EventsSoFar()[0].thread == emulation::CurrentThread() ? 1 : 0;
        }
        EXPECT_EQ(onHost, 4U) << "where the client has delivered in a call of the host's thread";
    });
}

}  // namespace
