// Ten host threads call every public operation at once, on one manager and on two: the calls end,
// the threads end, and the peripheral still works.
#include <gtest/gtest.h>

#include <atomic>
#include <numeric>
#include <random>

#include "tests/support/PcWithHost.h"

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

void (*const kOperations[])(PcWithHost& setup, NfcManager& manager, Fill fill) = {
    [](PcWithHost& d, NfcManager&, Fill fill) {
        d.pc.TapPhone(fill % 2 == 0 ? PcRoute::kI2c : PcRoute::kBle, 0, 50 * kMillisecond);
    },
    [](PcWithHost&, NfcManager& m, Fill) {
        std::uint8_t number[32];
        m.ReadRandNum(number);
    },
    [](PcWithHost& d, NfcManager& m, Fill fill) { m.WriteMessage(d.NewMessage(fill)); },
    [](PcWithHost&, NfcManager& m, Fill) { m.ReadMessage(std::make_shared<NdefMessage>()); },
    [](PcWithHost&, NfcManager& m, Fill) { m.UpdateNfcData(); },
    [](PcWithHost&, NfcManager& m, Fill fill) { Renew(m, NumberOf(fill)); },
    [](PcWithHost&, NfcManager& m, Fill fill) { Renew(m, NumberOf(fill)); },
    [](PcWithHost&, NfcManager& m, Fill) { m.BtConnect(kDefaultBleAddress); },
    [](PcWithHost&, NfcManager& m, Fill) { m.BtDisconnect(kDefaultBleAddress); },
    [](PcWithHost&, NfcManager& m, Fill) { m.DeviceInit(); },
    [](PcWithHost&, NfcManager& m, Fill fill) {
        m.SetMcuKbConnectStatus(m.IsActivePC() && fill % 2);
    },
    [](PcWithHost&, NfcManager& m, Fill fill) {
        m.RegisterListener(fill % 4 ? ReadingListener : nullptr);
    },
    [](PcWithHost& d, NfcManager&, Fill fill) {
        NfcManager::Create(d.NewMessage(fill), ReadingListener);
    },
};

void EveryOperation(std::uint64_t seed, std::uint64_t managers) {
    PcWithHost setup({PcRoute::kI2c, PcRoute::kBle}, "fm11nt082c");
    setup.Start();
    std::vector<std::shared_ptr<NfcManager>> all = {setup.manager};
    while (all.size() < managers) {
        all.push_back(NfcManager::Create(setup.NewMessage(), &ReadingListener));
    }
    std::atomic<unsigned> running{kThreads};
    const hosted::Micros until = hosted::Now() + kSecond;
    for (unsigned i = 0; i < kThreads; ++i) {
        std::mt19937_64 random(seed * kThreads + i);
        OnThread([&, manager = all[i % managers], random]() mutable {
            while (hosted::Now() < until) {
                const std::uint64_t choice = random();
                kOperations[choice % std::size(kOperations)](
                    setup, *manager, static_cast<Fill>(1 + choice / 64 % 200));
            }
            manager.reset();
            --running;
        });
    }
    all.clear();
    // A Bluetooth answer that never comes takes its three seconds for each of those who queue.
    EXPECT_TRUE(hosted::WaitFor([&] { return running == 0; }, 600 * kSecond, "callers"))
        << hosted::DescribeThreads();
    setup.manager->BtDisconnect(kDefaultBleAddress);
    ASSERT_TRUE(setup.manager->DeviceInit());
    setup.manager->RegisterListener(&PcWithHost::Listen);
    EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage(0x77)), 0);
    EXPECT_EQ(setup.NumberOnChip(), NumberOf(0x77));
    setup.pc.TapPhone(0, 100 * kMillisecond);
    EXPECT_TRUE(PcWithHost::WaitForEvents(2, 20 * kSecond)) << hosted::DescribeThreads();
    setup.manager.reset();
    // The device stays, and the deferred call thread.
    EXPECT_TRUE(hosted::WaitFor([] { return hosted::Live().handles <= 2; }, kSecond, "ends"))
        << hosted::DescribeThreads();
    EXPECT_EQ(hosted::Live().requests, 0U);
    setup.log.TakeUnannounced();  // any of them may come
}

TEST(EveryOperation, OnTheRealClock) {
    OneSeed::staysOnRealClock = true;
    EveryOperation(Seed(), 2);
}

TEST(EveryOperation, UnderManySeeds) {
    ForEachSeed(100, [] { EveryOperation(hosted::Random(), 1 + hosted::Random() % 2); });
}

}  // namespace
