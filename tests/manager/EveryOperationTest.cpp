// Ten host threads call every public operation at once, on one manager and on two: the calls end,
// the threads end, and the peripheral still works.
#include <gtest/gtest.h>

#include <atomic>
#include <numeric>
#include <random>

#include "tests/support/Desk.h"
#include "tests/support/Seeds.h"

using simulator::kDefaultBleAddress;
using simulator::PcRoute;
using namespace testing_support;

namespace {

constexpr unsigned kThreads = 10;

std::atomic<unsigned> g_numberSum{0};

// Reads every byte of the number, so that the thread sanitizer sees a change during the call.
void ReadingListener(int /*event*/, const std::uint8_t (&number)[32], int /*route*/) {
    g_numberSum += std::accumulate(std::begin(number), std::end(number), 0U);
}

using Fill = std::uint8_t;

void (*const kOperations[])(Desk& desk, NfcManager& manager, Fill fill) = {
    [](Desk& d, NfcManager&, Fill fill) {
        d.pc.TapPhone(fill % 2 == 0 ? PcRoute::kI2c : PcRoute::kBle, 0, 50 * hosted::kMillisecond);
    },
    [](Desk&, NfcManager& m, Fill) {
        std::uint8_t number[32];
        m.ReadRandNum(number);
    },
    [](Desk& d, NfcManager& m, Fill fill) { m.WriteMessage(d.NewMessage(fill)); },
    [](Desk&, NfcManager& m, Fill) { m.ReadMessage(std::make_shared<NdefMessage>()); },
    [](Desk&, NfcManager& m, Fill) { m.UpdateNfcData(); },
    [](Desk&, NfcManager& m, Fill fill) { Renew(m, NumberOf(fill)); },
    [](Desk&, NfcManager& m, Fill fill) { Renew(m, NumberOf(fill)); },
    [](Desk&, NfcManager& m, Fill) { m.BtConnect(kDefaultBleAddress); },
    [](Desk&, NfcManager& m, Fill) { m.BtDisconnect(kDefaultBleAddress); },
    [](Desk&, NfcManager& m, Fill) { m.DeviceInit(); },
    [](Desk&, NfcManager& m, Fill fill) { m.SetMcuKbConnectStatus(m.IsActivePC() && fill % 2); },
    [](Desk&, NfcManager& m, Fill fill) {
        m.RegisterListener(fill % 4 ? ReadingListener : nullptr);
    },
    [](Desk& d, NfcManager&, Fill fill) {
        NfcManager::Create(d.NewMessage(fill), ReadingListener);
    },
};

void EveryOperation(std::uint64_t seed, std::uint64_t managers) {
    Desk desk({PcRoute::kI2c, PcRoute::kBle}, "fm11nt082c");
    desk.Start();
    std::vector<std::shared_ptr<NfcManager>> all = {desk.manager};
    while (all.size() < managers) {
        all.push_back(NfcManager::Create(desk.NewMessage(), &ReadingListener));
    }
    std::atomic<unsigned> running{kThreads};
    const hosted::Micros until = hosted::Now() + hosted::kSecond;
    for (unsigned i = 0; i < kThreads; ++i) {
        std::mt19937_64 random(seed * kThreads + i);
        OnThread([&, manager = all[i % managers], random]() mutable {
            while (hosted::Now() < until) {
                const std::uint64_t choice = random();
                kOperations[choice % std::size(kOperations)](
                    desk, *manager, static_cast<Fill>(1 + choice / 64 % 200));
            }
            manager.reset();
            --running;
        });
    }
    all.clear();
    // A Bluetooth answer that never comes takes its three seconds for each of those who queue.
    EXPECT_TRUE(hosted::WaitFor([&] { return running == 0; }, 600 * hosted::kSecond, "callers"))
        << hosted::DescribeThreads();
    desk.manager->BtDisconnect(kDefaultBleAddress);
    ASSERT_TRUE(desk.manager->DeviceInit());
    desk.manager->RegisterListener(&Desk::Listen);
    EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x77)), 0);
    EXPECT_EQ(desk.NumberOnChip(), NumberOf(0x77));
    desk.pc.TapPhone(0, 100 * hosted::kMillisecond);
    EXPECT_TRUE(Desk::WaitForEvents(2, 20 * hosted::kSecond)) << hosted::DescribeThreads();
    desk.manager.reset();
    // The device stays, and the deferred call thread.
    EXPECT_TRUE(
        hosted::WaitFor([] { return hosted::Live().handles <= 2; }, hosted::kSecond, "ends"))
        << hosted::DescribeThreads();
    EXPECT_EQ(hosted::Live().requests, 0U);
    desk.log.TakeUnannounced();  // any of them may come
}

TEST(EveryOperation, OnTheRealClock) {
    EveryOperation(Seed(), 2);
}

TEST(EveryOperation, UnderManySeeds) {
    ForEachSeed(100, [] { EveryOperation(hosted::Random(), 1 + hosted::Random() % 2); });
}

}  // namespace
