// Ten host threads call every public operation at once, on one manager and on two: the calls end,
// the threads end, and the peripheral still works.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <numeric>

#include "peripheral/EventThread.h"
#include "tests/manager/ManagerAccess.h"
#include "tests/support/Seeds.h"

using simulator::kDefaultBleAddress;
using simulator::PcRoute;
using namespace testing_support;

namespace {

constexpr std::size_t kThreads = 10;

std::atomic<unsigned> g_numberSum{0};

// Reads every byte that it is shown, so that a number changed under it is seen.
void ReadingListener(int /*event*/, const std::uint8_t (&number)[32], int /*route*/) {
    g_numberSum += std::accumulate(std::begin(number), std::end(number), 0U);
}

void TapPhone(Desk& desk, NfcManager& /*manager*/, std::uint8_t fill) {
    desk.pc.TapPhone(fill % 2 == 0 ? PcRoute::kI2c : PcRoute::kBle, 0, 50 * hosted::kMillisecond);
}
void ReadNumber(Desk& /*desk*/, NfcManager& manager, std::uint8_t /*fill*/) {
    std::uint8_t number[32];
    manager.ReadRandNum(number);
}

using Operation = void (*)(Desk& desk, NfcManager& manager, std::uint8_t fill);
const Operation kOperations[] = {
    TapPhone,
    ReadNumber,
    [](Desk& d, NfcManager& m, std::uint8_t fill) { m.WriteMessage(d.NewMessage(fill)); },
    [](Desk&, NfcManager& m, std::uint8_t) { m.ReadMessage(std::make_shared<NdefMessage>()); },
    [](Desk&, NfcManager& m, std::uint8_t) { m.UpdateNfcData(); },
    [](Desk&, NfcManager& m, std::uint8_t fill) { Renew(m, NumberOf(fill)); },
    [](Desk&, NfcManager& m, std::uint8_t fill) { Renew(m, NumberOf(fill)); },
    [](Desk&, NfcManager& m, std::uint8_t) { m.BtConnect(kDefaultBleAddress); },
    [](Desk&, NfcManager& m, std::uint8_t) { m.BtDisconnect(kDefaultBleAddress); },
    [](Desk&, NfcManager& m, std::uint8_t) { m.DeviceInit(); },
    [](Desk&, NfcManager& m, std::uint8_t fill) {
        m.SetMcuKbConnectStatus(m.IsActivePC() && fill % 2);
    },
    [](Desk&, NfcManager& m, std::uint8_t fill) {
        m.RegisterListener(fill % 4 == 0 ? nullptr : &ReadingListener);
    },
    [](Desk& d, NfcManager&, std::uint8_t fill) {
        NfcManager::Create(d.NewMessage(fill), &ReadingListener);
    },
};

struct Caller {
    std::shared_ptr<NfcManager> manager;
    Desk* desk;
    std::uint64_t random;
    std::atomic<unsigned>* running;
    hosted::Micros until;
};

DWORD WINAPI Call(LPVOID argument) {
    Caller& caller = *static_cast<Caller*>(argument);
    while (hosted::Now() < caller.until) {
        caller.random = caller.random * 6364136223846793005U + 1442695040888963407U;
        const std::uint64_t choice = caller.random >> 33U;
        const auto fill = static_cast<std::uint8_t>(1 + choice / 64 % 200);
        kOperations[choice % std::size(kOperations)](*caller.desk, *caller.manager, fill);
    }
    caller.manager.reset();
    --*caller.running;
    return 0;
}

void EveryOperation(std::uint64_t seed, std::size_t managers) {
    Desk desk({PcRoute::kI2c, PcRoute::kBle}, "fm11nt082c");
    desk.log.Announce("");
    desk.Start();
    std::vector<std::shared_ptr<NfcManager>> all = {desk.manager};
    while (all.size() < managers) {
        all.push_back(NfcManager::Create(desk.NewMessage(), &ReadingListener));
    }
    std::atomic<unsigned> running{kThreads};
    std::vector<Caller> callers;
    for (std::size_t i = 0; i < kThreads; ++i) {
        callers.push_back({all[i % managers], &desk, seed * kThreads + i, &running,
                           hosted::Now() + hosted::kSecond});
    }
    for (Caller& caller : callers) {
        CloseHandle(CreateThread(nullptr, 0, Call, &caller, 0, nullptr));
    }
    all.clear();
    // A Bluetooth answer that never comes takes its three seconds for each of those who queue.
    EXPECT_TRUE(hosted::WaitFor([&] { return running == 0; }, 600 * hosted::kSecond, "callers"))
        << hosted::DescribeThreads();
    desk.manager->BtDisconnect(kDefaultBleAddress);
    ASSERT_TRUE(desk.manager->DeviceInit());
    // The number threads of other managers must not come behind the write that follows.
    const std::size_t listening = (m_staticNotificationThread != nullptr ? 1U : 0U) +
                                  (m_staticCallThread != nullptr ? 1U : 0U);
    EXPECT_TRUE(Desk::WaitForThreads(listening)) << hosted::DescribeThreads();
    desk.manager->RegisterListener(&Desk::Listen);
    EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x77)), 0);
    EXPECT_EQ(desk.NumberOnChip(), NumberOf(0x77));
    EXPECT_TRUE(desk.manager->BtConnect(kDefaultBleAddress));
    desk.pc.TapPhone(PcRoute::kBle, 0, 100 * hosted::kMillisecond);
    EXPECT_TRUE(Desk::WaitForEvents(2, 20 * hosted::kSecond)) << hosted::DescribeThreads();
    EXPECT_TRUE(desk.manager->BtDisconnect(kDefaultBleAddress));
    desk.manager.reset();
    EXPECT_TRUE(Desk::WaitForThreads(1)) << hosted::DescribeThreads();
    EXPECT_LE(hosted::Live().handles, 2U) << "the device, and the deferred call thread";
    EXPECT_EQ(hosted::Live().requests, 0U);
}

TEST(EveryOperation, OnOneManager) {
    EveryOperation(Seed(), 1);
}

TEST(EveryOperation, OnTwoManagers) {
    EveryOperation(Seed(), 2);
}

TEST(EveryOperation, UnderManySeeds) {
    const char* const count = std::getenv("TAGPORT_SEEDS");
    ForEachSeed(count == nullptr ? 100 : static_cast<unsigned>(std::atoi(count)),
                [] { EveryOperation(hosted::Random(), 1 + hosted::Random() % 2); });
}

}  // namespace
