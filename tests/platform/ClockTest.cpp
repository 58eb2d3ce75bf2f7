// The two clocks: exact time, runs that a seed repeats, locks, and the reports of what went wrong.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <set>
#include <thread>

#include "tests/platform/HostedFixture.h"

namespace {

using namespace hosted_test;
using hosted::kMillisecond;
using hosted::Now;
using testing_support::ForEachSeed;

constexpr platform::LockRank kOuter{1, "outer"};
constexpr platform::LockRank kInner{2, "inner"};

hosted::ScheduledOptions WithSeed(std::uint64_t seed) {
    hosted::ScheduledOptions options;
    options.seed = seed;
    return options;
}

TEST(ScheduledClock, KeepsTimersAndDeadlinesExactAndInOrder) {
    ForEachSeed(5, [] {
        std::string order;
        hosted::After(10 * kMillisecond, [&] { order += 'a'; });
        hosted::After(5 * kMillisecond, [&] {
            order += 'b';
            hosted::After(5 * kMillisecond, [&] { order += 'd'; });  // behind a and c, also at 10
        });
        hosted::After(10 * kMillisecond, [&] {
            order += 'c';
            EXPECT_EQ(hosted::ThreadName(hosted::CurrentThread()), "device");
        });
        const HANDLE sleeper = Go([&] {
            Sleep(10);
            order += 's';
        });
        const HANDLE event = NewEvent(true);
        EXPECT_EQ(WaitForSingleObject(event, 9), WAIT_TIMEOUT);
        EXPECT_EQ(Now(), 9 * kMillisecond);
        EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
        Join(sleeper);
        EXPECT_EQ(order, "bacds");
        EXPECT_EQ(Now(), 10 * kMillisecond);
        Sleep(7350);
        EXPECT_FALSE(hosted::WaitFor([] { return false; }, 1, "nothing"));
        EXPECT_EQ(Now(), 7360 * kMillisecond + 1);
        CloseHandle(event);
    });
}

TEST(ScheduledClock, LetsADeadlineOvertakeByNoMoreThanTheLatenessGiven) {
    const auto nowAfterManyYields = [](hosted::Micros sleep) {
        const HANDLE sleeper = Go([&] { Sleep(static_cast<DWORD>(sleep / kMillisecond)); });
        for (int i = 0; i < 5000; ++i) {
            hosted::Yield();
        }
        const hosted::Micros now = Now();
        Join(sleeper);
        return now;
    };
    hosted::ScheduledOptions late;
    late.maxLateness = 5 * kMillisecond;
    ForEachSeed(
        3, [&] { EXPECT_EQ(nowAfterManyYields(3 * kMillisecond), 3 * kMillisecond); }, late);
    ForEachSeed(
        3, [&] { EXPECT_EQ(nowAfterManyYields(6 * kMillisecond), 0); }, late);
    ForEachSeed(3, [&] { EXPECT_EQ(nowAfterManyYields(3 * kMillisecond), 0); });
}

/// What a small crowd does under these options, as a text.
std::string TraceOf(const hosted::ScheduledOptions& options) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    const int status = testing_support::RunInChild([&] {
        hosted::UseScheduledClock(options);
        std::string trace;
        hosted::SetTracer([&](const hosted::TraceEvent& event) {
            trace += std::to_string(event.thread) + event.text +
                     std::to_string(static_cast<int>(event.kind)) + "@" +
                     std::to_string(event.time) + " ";
        });
        std::mutex mutex;
        std::vector<HANDLE> threads;
        for (int i = 0; i < 3; ++i) {
            threads.push_back(Go([&] {
                for (int turn = 0; turn < 5; ++turn) {
                    const platform::Lock lock(mutex, kOuter);
                    Sleep(static_cast<DWORD>(hosted::Random() % 3));
                }
            }));
        }
        for (const HANDLE thread : threads) {
            Join(thread);
        }
        trace += std::to_string(hosted::StepsTaken());
        EXPECT_EQ(write(ends[1], trace.data(), trace.size()), static_cast<ssize_t>(trace.size()));
    });
    EXPECT_EQ(status, 0);
    close(ends[1]);
    std::string trace(1U << 16U, '\0');
    trace.resize(static_cast<std::size_t>(read(ends[0], trace.data(), trace.size())));
    close(ends[0]);
    return trace;
}

TEST(ScheduledClock, RepeatsARunFromItsSeedAndDiffersBetweenSeeds) {
    constexpr std::size_t kSeeds = 12;
    for (const unsigned changePoints : {0U, 3U}) {
        std::set<std::string> traces;
        for (std::uint64_t seed = 0; seed < kSeeds; ++seed) {
            hosted::ScheduledOptions options = WithSeed(testing_support::Seed() + seed);
            options.priorityChangePoints = changePoints;
            options.expectedSteps = 200;
            options.maxLateness = seed % 2 * kMillisecond;
            const std::string trace = TraceOf(options);
            EXPECT_EQ(TraceOf(options), trace);
            EXPECT_GT(trace.size(), 100U);
            traces.insert(trace);
        }
        EXPECT_GT(traces.size(), kSeeds / 2);
    }
}

TEST(ScheduledClock, EndsAStalledRunWithWhoWaitsForWhat) {
    EXPECT_EXIT(
        {
            hosted::UseScheduledClock(WithSeed(7));
            std::mutex mutex;
            const HANDLE event = NewEvent(false);
            Go([&] {
                hosted::NameThread("reader");
                const platform::Lock lock(mutex, kOuter);
                Sleep(30);
                WaitForSingleObject(event, INFINITE);
            });
            Sleep(20);
            const platform::Lock lock(mutex, kOuter);
        },
        ::testing::ExitedWithCode(hosted::kStallExit),
        "seed 7.*host: waits for lock \"outer\" held by reader since 0.020000 s\n"
        "reader: waits for event 0x7a600000 since 0.030000 s, holds \"outer\"");
    EXPECT_EXIT(
        {
            hosted::ScheduledOptions options;
            options.maxSteps = 100;
            hosted::UseScheduledClock(options);
            hosted::SetStallHandler([](const std::string& report) {
                std::_Exit(report.find("host: can run") != std::string::npos ? 3 : 4);
            });
            for (;;) {
                hosted::Yield();
            }
        },
        ::testing::ExitedWithCode(3), "");
}

TEST(ScheduledClock, RefusesAThreadThatItDoesNotKnow) {
    EXPECT_DEATH(
        {
            hosted::UseScheduledClock({});
            std::thread([] { Sleep(1); }).join();
        },
        "CreateThread did not start");
}

TEST(Locks, DieWhenTakenAgainstTheirOrder) {
    const auto takeBoth = [](const platform::LockRank& first, const platform::LockRank& second) {
        std::mutex one;
        std::mutex other;
        const platform::Lock outer(one, first);
        const platform::Lock inner(other, second);
    };
    for (const bool scheduled : {false, true}) {
        const auto choose = [&] {
            if (scheduled) {
                hosted::UseScheduledClock({});
            }
        };
        EXPECT_DEATH((choose(), takeBoth(kInner, kOuter)), "takes \"outer\".*holds \"inner\"");
        EXPECT_DEATH((choose(), takeBoth(kInner, kInner)), "takes \"inner\".*holds \"inner\"");
        EXPECT_EXIT((choose(), takeBoth(kOuter, kInner), std::exit(0)),
                    ::testing::ExitedWithCode(0), "");
    }
}

TEST(Locks, ProtectACounterAndNeverLoseANotification) {
    OnBothClocks(
        [] {
            std::mutex mutex;
            platform::ConditionVariable changed;
            int tokens = 0;
            int taken = 0;
            std::vector<HANDLE> threads;
            for (int i = 0; i < 3; ++i) {
                threads.push_back(Go([&] {
                    for (int turn = 0; turn < 10; ++turn) {
                        platform::Lock lock(mutex, kOuter);
                        changed.Wait(lock, [&] { return tokens > 0; });
                        --tokens;
                        ++taken;
                    }
                }));
            }
            for (int i = 0; i < 30; ++i) {
                {
                    const platform::Lock lock(mutex, kOuter);
                    ++tokens;
                }
                changed.NotifyAll();
            }
            for (const HANDLE thread : threads) {
                Join(thread);
            }
            EXPECT_EQ(taken, 30);
            EXPECT_EQ(tokens, 0);
        },
        100);
}

TEST(BothClocks, LetTheProcessExitWithThreadsParked) {
    for (const bool scheduled : {false, true}) {
        EXPECT_EXIT(
            {
                if (scheduled) {
                    hosted::UseScheduledClock({});
                }
                static const HANDLE s_event = NewEvent(true);
                static std::mutex s_mutex;
                static auto& s_changed = *new platform::ConditionVariable;  // outlives the process
                Go([] { WaitForSingleObject(s_event, INFINITE); });
                Go([] {
                    platform::Lock lock(s_mutex, kOuter);
                    s_changed.Wait(lock, [] { return false; });
                });
                Go([] { Sleep(INFINITE); });
                hosted::After(3600 * hosted::kSecond, [] {});
                AwaitWaiters(1, "event");
                std::exit(0);
            },
            ::testing::ExitedWithCode(0), "");
    }
}

}  // namespace
