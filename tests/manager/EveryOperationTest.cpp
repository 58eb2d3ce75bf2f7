// Ten host threads call every public operation at once, on one manager and on two: the calls end,
// the threads end, and the peripheral still works.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>

#include "peripheral/EventThread.h"
#include "tests/support/Desk.h"
#include "tests/support/Seeds.h"

using simulator::kDefaultBleAddress;
using simulator::PcRoute;
using namespace testing_support;

namespace {

constexpr std::size_t kThreads = 10;

struct Caller {
    std::shared_ptr<NfcManager> manager;
    Desk* desk;
    std::uint64_t random;
    std::atomic<unsigned>* running;
    hosted::Micros until;
};

std::atomic<unsigned> g_numberSum{0};

// Reads every byte that it is shown, so that a number changed under it is seen.
void ReadingListener(int /*event*/, const std::uint8_t (&number)[32], int /*route*/) {
    for (const std::uint8_t byte : number) {
        g_numberSum += byte;
    }
}

void CallOne(Caller& caller, std::uint64_t choice) {
    NfcManager& manager = *caller.manager;
    std::uint8_t number[32];
    const auto fill = static_cast<std::uint8_t>(1 + choice / 64 % 200);
    std::fill(std::begin(number), std::end(number), fill);
    switch (choice % 13) {
        case 0:
            manager.WriteMessage(caller.desk->NewMessage(fill));
            break;
        case 1:
            manager.ReadMessage(std::make_shared<NdefMessage>());
            break;
        case 2:
            manager.UpdateNfcData();
            break;
        case 3:
        case 4:
            manager.WriteRandNum(number);
            break;
        case 5:
            manager.ReadRandNum(number);
            break;
        case 6:
            manager.BtConnect(kDefaultBleAddress);
            break;
        case 7:
            manager.BtDisconnect(kDefaultBleAddress);
            break;
        case 8:
            manager.DeviceInit();
            break;
        case 9:
            manager.IsActivePC();
            manager.SetMcuKbConnectStatus(fill % 2 == 0);
            break;
        case 10:
            manager.RegisterListener(fill % 4 == 0 ? nullptr : &ReadingListener);
            break;
        case 11:
            NfcManager::Create(caller.desk->NewMessage(fill), &ReadingListener);
            break;
        default:
            caller.desk->pc.TapPhone(fill % 2 == 0 ? PcRoute::kI2c : PcRoute::kBle, 0,
                                     50 * hosted::kMillisecond);
            break;
    }
}

DWORD WINAPI Call(LPVOID argument) {
    Caller& caller = *static_cast<Caller*>(argument);
    while (hosted::Now() < caller.until) {
        caller.random = caller.random * 6364136223846793005U + 1442695040888963407U;
        CallOne(caller, caller.random >> 33U);
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
