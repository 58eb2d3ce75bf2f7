// Ten host threads call every public operation at once, on one manager and on two: the calls end,
// the threads end, and the peripheral still works.
#include <atomic>
#include <numeric>
#include <random>

#include "tests/support/PcWithHost.h"

using simulator::kDefaultBleAddress;
using namespace testing_support;

namespace {

constexpr unsigned kThreads = 10;

std::atomic<unsigned> g_numberSum{0};

// Reads every byte of the number, so that the thread sanitizer sees a change during the call. Keeps
// no event: what an open visit still reports must not pass for the last phone.
void ReadingListener(int /*event*/, const std::uint8_t (&number)[32], int /*route*/) {
    g_numberSum += std::accumulate(std::begin(number), std::end(number), 0U);
}

void DoAny(PcWithHost& setup, NfcManager& manager, std::uint64_t choice) {
    const auto fill = static_cast<std::uint8_t>(1 + choice / 64 % 200);
    const PcRoute route = fill % 2 == 0 ? PcRoute::kI2c : PcRoute::kBle;
    std::uint8_t number[32];
    const std::function<void()> operations[] = {
        [&] { setup.pc.TapPhone(route, 0, 50 * kMillisecond); },
        [&] { manager.ReadRandNum(number); },
        [&] { manager.WriteMessage(setup.NewMessage(fill)); },
        [&] { manager.ReadMessage(std::make_shared<NdefMessage>()); },
        [&] { manager.UpdateNfcData(); },
        [&] { Renew(manager, NumberOf(fill)); },
        [&] { Renew(manager, NumberOf(fill)); },
        [&] { manager.BtConnect(kDefaultBleAddress); },
        [&] { manager.BtDisconnect(kDefaultBleAddress); },
        [&] { manager.DeviceInit(); },
        [&] { manager.SetMcuKbConnectStatus(manager.IsActivePC() && fill % 2); },
        [&] { manager.RegisterListener(fill % 4 ? &ReadingListener : nullptr); },
        [&] { NfcManager::Create(setup.NewMessage(fill), &ReadingListener); },
    };
    operations[choice % std::size(operations)]();
}

void EveryOperation(std::uint64_t seed, std::uint64_t managers) {
    StartedPc setup({PcRoute::kI2c, PcRoute::kBle}, "fm11nt082c");
    std::vector<std::shared_ptr<NfcManager>> all = {setup.manager};
    while (all.size() < managers) {
        all.push_back(NfcManager::Create(setup.NewMessage(), &ReadingListener));
    }
    std::atomic<unsigned> running{kThreads};
    const emulation::Micros until = emulation::Now() + kSecond;
    for (unsigned i = 0; i < kThreads; ++i) {
        std::mt19937_64 random(seed * kThreads + i);
        OnThread([&, manager = all[i % managers], random]() mutable {
            while (emulation::Now() < until) {
                DoAny(setup, *manager, random());
            }
            manager.reset();
            --running;
        });
    }
    all.clear();
    // A Bluetooth answer that never comes takes its three seconds for each of those who queue.
    EXPECT_TRUE(emulation::WaitFor([&] { return running == 0; }, 600 * kSecond, "callers"))
        << emulation::DescribeThreads();
    setup.manager->BtDisconnect(kDefaultBleAddress);
    ASSERT_TRUE(setup.manager->DeviceInit());
    setup.manager->RegisterListener(&PcWithHost::Listen);
    EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage(0x77)), 0);
    EXPECT_EQ(setup.NumberOnChip(), NumberOf(0x77));
    setup.pc.TapPhone(0, 100 * kMillisecond);
    EXPECT_TRUE(PcWithHost::WaitForEvents(2, 20 * kSecond)) << emulation::DescribeThreads();
    setup.manager.reset();
    // The device stays, and the deferred call thread.
    EXPECT_TRUE(emulation::WaitFor([] { return emulation::Live().handles <= 2; }, kSecond, "ends"))
        << emulation::DescribeThreads();
    EXPECT_EQ(emulation::Live().requests, 0U);
    setup.log.TakeUnannounced();  // any of them may come
}

TEST(EveryOperationAtOnce, LeavesAPeripheralThatWorksOnTheRealClock) {
    OneSeed::staysOnRealClock = true;
    EveryOperation(Seed(), 2);
}

TEST(EveryOperationAtOnce, LeavesAPeripheralThatWorksUnderManySeeds) {
    ForEachSeed(100, [] { EveryOperation(emulation::Random(), 1 + emulation::Random() % 2); });
}

}  // namespace
