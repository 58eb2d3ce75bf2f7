// The two clocks: exact time, runs that a seed repeats, locks, and the reports of stalled runs.
#include <cstdlib>
#include <mutex>
#include <set>

#include "tests/platform/HostedFixture.h"

namespace {

using namespace hosted_test;
using hosted::kMillisecond;
using hosted::Now;
using testing_support::ForEachSeed;

constexpr platform::LockRank kOuter{1, "outer"};
constexpr platform::LockRank kInner{2, "inner"};

TEST(ScheduledClock, KeepsTimersAndDeadlinesExactAndInOrder) {
    ForEachSeed(5, [] {
        std::string order;
        hosted::After(10 * kMillisecond, [&] { order += 'a'; });
        hosted::After(5 * kMillisecond, [&] {
            order += 'b';
            hosted::After(5 * kMillisecond, [&] { order += 'd'; });  // after a and c, also at 10
        });
        hosted::After(10 * kMillisecond, [&] { order += 'c'; });
        const HANDLE sleeper = StartThread([&] {
            Sleep(10);
            order += 's';
        });
        const HANDLE event = NewEvent(true);
        EXPECT_EQ(WaitForSingleObject(event, 9), WAIT_TIMEOUT);
        EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
        EXPECT_EQ(Now(), 9 * kMillisecond);
        JoinThreads({sleeper});
        EXPECT_EQ(order, "bacds");
        EXPECT_EQ(Now(), 10 * kMillisecond);
    });
}

/// The order in which three threads run with this seed, as the exit status of a child.
int OrderOf(std::uint64_t seed) {
    return testing_support::RunInChild([seed] {
        hosted::ScheduledOptions options;
        options.seed = testing_support::Seed() + seed;
        options.priorityChangePoints = static_cast<unsigned>(seed % 3);
        options.expectedSteps = 200;
        options.maxLateness = static_cast<hosted::Micros>(seed % 2) * kMillisecond;
        hosted::UseScheduledClock(options);
        unsigned order = 0;
        const auto turns = [&order](unsigned mark) {
            for (int turn = 0; turn < 5; ++turn) {
                Sleep(static_cast<DWORD>(hosted::Random() % 3));
                order = order * 3 + mark;
            }
        };
        JoinThreads({StartThread([&] { turns(0); }), StartThread([&] { turns(1); }),
                     StartThread([&] { turns(2); })});
        std::_Exit(static_cast<int>(order % 251));
    });
}

TEST(ScheduledClock, RepeatsARunFromItsSeedAndDiffersBetweenSeeds) {
    constexpr std::size_t kSeeds = 24;
    std::set<int> orders;
    for (std::uint64_t seed = 0; seed < kSeeds; ++seed) {
        const int order = OrderOf(seed);
        EXPECT_EQ(OrderOf(seed), order) << "seed " << seed;
        orders.insert(order);
    }
    EXPECT_GT(orders.size(), kSeeds / 2);
}

TEST(ScheduledClock, EndsAStalledRunWithWhoWaitsForWhat) {
    EXPECT_EXIT(
        {
            hosted::UseScheduledClock({7});
            platform::Mutex mutex(kOuter);
            const HANDLE event = NewEvent(false);
            StartThread([&] {
                hosted::NameThread("reader");
                const platform::Lock lock(mutex);
                Sleep(30);
                WaitForSingleObject(event, INFINITE);
            });
            Sleep(20);
            const platform::Lock lock(mutex);
        },
        ::testing::ExitedWithCode(hosted::kStallExit),
        "seed 7.*host: waits for lock \"outer\" held by reader since 0.020000 s\n"
        "reader: waits for event 0x7a600000 since 0.030000 s, holds \"outer\"");
}

TEST(ScheduledClock, EndsARunThatSpinsButNotALongOne) {
    const auto run = [](unsigned rounds, DWORD pause) {
        hosted::UseScheduledClock({1, 100});
        for (unsigned i = 0; i < rounds; ++i) {
            hosted::Yield();
            Sleep(i % 10 == 0 ? pause : 0);
        }
        std::_Exit(0);
    };
    EXPECT_EXIT(run(1000, 1), ::testing::ExitedWithCode(0), "");
    EXPECT_EXIT(run(1000, 0), ::testing::ExitedWithCode(hosted::kStallExit),
                "step 101.*the clock has stood still.*\nhost: can run");
}

// The layer does not see that the host locks and unlocks the mutex. The thread must wait for it and
// continue after the unlock; if there is none, the run must end.
TEST(NativeLocks, OfTheHostMakeAThreadWait) {
    const auto hold = [](bool release) {
        platform::Mutex mutex(kOuter);
        mutex.native().lock();
        bool taken = false;
        const HANDLE thread = StartThread([&] {
            const platform::Lock lock(mutex);
            taken = true;
        });
        Sleep(20);
        EXPECT_FALSE(taken);
        if (release) {
            mutex.native().unlock();
        }
        while (release && !taken) {
            hosted::Yield();
        }
        JoinThreads({thread});
    };
    ForEachSeed(10, [&] { hold(true); });
    EXPECT_EXIT(
        {
            hosted::UseScheduledClock({});
            hold(false);
        },
        ::testing::ExitedWithCode(hosted::kStallExit),
        "host: waits for thread .*\nthread 2: waits for lock \"outer\" held outside the layer");
}

// The host has the turn and blocks, so only real time can show it.
TEST(NativeLocks, ThatBlockTheHostEndTheRun) {
    EXPECT_EXIT(
        {
            hosted::ScheduledOptions options;
            options.maxSilence = 50 * kMillisecond;
            hosted::UseScheduledClock(options);
            platform::Mutex mutex(kOuter);
            StartThread([&] {
                const platform::Lock lock(mutex);
                Sleep(INFINITE);
            });
            Sleep(20);
            mutex.native().lock();
        },
        ::testing::ExitedWithCode(hosted::kStallExit),
        "host has the turn and has made no call into the layer for 50 ms of real time\n"
        "host: can run\n"
        "thread 2: waits for the end of a sleep.*holds \"outer\"");
}

void LockBoth(bool scheduled, const platform::LockRank& first, const platform::LockRank& second) {
    if (scheduled) {
        hosted::UseScheduledClock({});
    }
    platform::Mutex one(first);
    platform::Mutex other(second);
    const platform::Lock outer(one);
    const platform::Lock inner(other);
    std::_Exit(0);
}

TEST(Locks, DieWhenTakenAgainstTheirOrder) {
    for (const bool scheduled : {false, true}) {
        EXPECT_DEATH(LockBoth(scheduled, kInner, kOuter), "takes \"outer\".*holds \"inner\"");
        EXPECT_DEATH(LockBoth(scheduled, kInner, kInner), "takes \"inner\".*holds \"inner\"");
        EXPECT_EXIT(LockBoth(scheduled, kOuter, kInner), ::testing::ExitedWithCode(0), "");
    }
}

}  // namespace
