// The emulation's own rules: the scheduled clock and the reports of stalled runs, locks, what is
// read as a file and found in a directory, drivers and handle values, and forked children.
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <mutex>
#include <set>

#include "tests/platform/TestDevice.h"

namespace {

using namespace emulation_test;
using emulation::kMillisecond;
using emulation::ScheduledOptions;
using testing_support::ForEachSeed;
using testing_support::RunInChild;

constexpr platform::LockRank kOuter{1, "outer"};
constexpr platform::LockRank kInner{2, "inner"};

TEST(ScheduledClock, KeepsTimersAndDeadlinesExactAndInOrder) {
    ForEachSeed(5, [] {
        std::string order;
        emulation::After(10 * kMillisecond, [&] { order += 'b'; });
        emulation::After(10 * kMillisecond, [&] { order += 'c'; });
        emulation::After(5 * kMillisecond, [&] { order += 'a'; });
        const HANDLE sleeper = StartThread([&] {
            Sleep(10);
            order += 's';
        });
        EXPECT_EQ(WaitForSingleObject(sleeper, 9), WAIT_TIMEOUT);
        EXPECT_EQ(emulation::Now(), 9 * kMillisecond);
        JoinThreads({sleeper});
        EXPECT_EQ(order, "abcs");
        EXPECT_EQ(emulation::Now(), 10 * kMillisecond);
    });
}

TEST(ScheduledClock, RepeatsARunFromItsSeedAndDiffersBetweenSeeds) {
    auto& order = testing_support::Shared<unsigned>();  // of two threads, a bit for each turn
    const auto play = [&order](std::uint64_t seed) {
        ScheduledOptions options;
        options.seed = seed;
        options.priorityChangePoints = static_cast<unsigned>(seed % 3);
        options.expectedSteps = 200;
        emulation::UseScheduledClock(options);
        order = static_cast<unsigned>(emulation::Random() % 2) + 2;
        const auto turns = [&order](unsigned mark) {
            for (int turn = 0; turn < 5; ++turn) {
                Sleep(0);
                order = order * 2 + mark;
            }
        };
        JoinThreads({StartThread([&] { turns(0); }), StartThread([&] { turns(1); })});
    };
    std::set<unsigned> orders;
    for (std::uint64_t seed = 0; seed < 24; ++seed) {
        EXPECT_EQ(RunInChild([&] { play(seed); }), 0);
        const unsigned first = order;
        EXPECT_EQ(RunInChild([&] { play(seed); }), 0);
        EXPECT_EQ(order, first) << seed;
        orders.insert(order % 1024);
    }
    EXPECT_GT(orders.size(), 9U);  // a third of the seeds, 8, draws without priorities
}

/// Expects that the layer ends a run of this body with this report.
void ExpectStall(const char* report, const std::function<void()>& body,
                 const ScheduledOptions& options = {}) {
    const auto run = [&] {
        emulation::UseScheduledClock(options);
        body();
    };
    EXPECT_EXIT(run(), ::testing::ExitedWithCode(emulation::kStallExit), report);
}

TEST(Stall, IsReportedWithWhoWaitsForWhat) {
    const auto stall = [] {
        platform::Mutex outer(kOuter);
        platform::Mutex inner(kInner);
        inner.native().lock();
        StartThread([&] {
            emulation::NameThread("reader");
            const platform::Lock held(outer);
            Sleep(30);
            const platform::Lock never(inner);
        });
        Sleep(20);
        const platform::Lock never(outer);
    };
    ExpectStall(
        "seed 1.*host: waits for lock \"outer\" held by reader since 0.020000 s\n"
        "reader: waits for lock \"inner\" held outside the layer since 0.030000 s, "
        "holds \"outer\"",
        stall);
}

TEST(Stall, IsARunThatSpinsOrExceedsItsBoundButNotALongOne) {
    ScheduledOptions options;
    options.maxStepsPerInstant = 100;
    const auto yieldOften = [](DWORD pause) {
        for (unsigned i = 0; i < 1000; ++i) {
            emulation::Yield();
            Sleep(i % 10 == 0 ? pause : 0);
        }
    };
    const auto run = [&] { yieldOften(1); };
    const auto spin = [&] { yieldOften(0); };
    ForEachSeed(1, run, options);
    ExpectStall("step 101.*the clock has stood still", spin, options);
    options.maxSteps = 500;
    ExpectStall("step 501.*all the steps that it may take", run, options);
}

TEST(NativeLocks, OfTheHostMakeAThreadWait) {
    ForEachSeed(10, [] {
        platform::Mutex mutex(kOuter);
        mutex.native().lock();
        const HANDLE thread = StartThread([&] { const platform::Lock lock(mutex); });
        EXPECT_EQ(WaitForSingleObject(thread, 20), WAIT_TIMEOUT);
        mutex.native().unlock();  // which the layer does not see
        while (WaitForSingleObject(thread, 0) != WAIT_OBJECT_0) {
            emulation::Yield();
        }
        CloseHandle(thread);
    });
}

// The host has the turn and blocks, so only real time can show it.
TEST(NativeLocks, ThatBlockTheHostEndTheRun) {
    ScheduledOptions options;
    options.maxSilence = 50 * kMillisecond;
    const auto block = [] {
        platform::Mutex mutex(kOuter);
        StartThread([&] {
            const platform::Lock lock(mutex);
            Sleep(INFINITE);
        });
        Sleep(20);
        mutex.native().lock();
    };
    ExpectStall(
        "host has the turn and has called neither library nor simulator for 50 ms of real time; "
        "tagport::Advance makes a pause\n",
        block, options);
}

void LockBoth(bool scheduled, const platform::LockRank& first, const platform::LockRank& second) {
    if (scheduled) {
        emulation::UseScheduledClock({});
    }
    platform::Mutex one(first);
    platform::Mutex other(second);
    const platform::Lock outer(one);
    const platform::Lock inner(other);
}

TEST(Locks, DieWhenTakenAgainstTheirOrder) {
    for (const bool scheduled : {false, true}) {
        EXPECT_DEATH(LockBoth(scheduled, kInner, kOuter), "takes \"outer\".*holds \"inner\"");
        EXPECT_DEATH(LockBoth(scheduled, kInner, kInner), "takes \"inner\".*holds \"inner\"");
    }
}

TEST(Files, AreRegularAndAtMostOneMebibyteLong) {
    constexpr std::uintmax_t kMostBytes = 1U << 20;
    const auto file = TemporaryPath();
    std::ofstream(file) << "[PC_URI]\nkey=v\n;";
    std::filesystem::resize_file(file, kMostBytes);
    EXPECT_EQ(ReadKey(file.wstring()), "v");
    std::filesystem::resize_file(file, kMostBytes + 1);
    EXPECT_EQ(ReadKey(file.wstring()), "?5");
    std::filesystem::remove(file);
    ASSERT_EQ(mkfifo(file.c_str(), S_IRUSR), 0);  // an open that waits for a writer would hang
    EXPECT_EQ(ReadKey(file.wstring()), "?5");
    std::filesystem::remove(file);
    EXPECT_EQ(ReadKey(L"/dev/zero"), "?5");
}

// A wide text cannot hold the first three names as they are; the third is the UTF-8 form of the
// value that stands for a byte.
TEST(CurrentDirectory, LeadsToItsFilesWhateverBytesItsNameHas) {
    const auto base = TemporaryPath();
    for (const char* const name : {"a\\b", "\xFF\xC3\xA9\xC3", "\xED\xB3\xBF", "\xC3\xA9"}) {
        const auto directory = base / name;
        std::filesystem::create_directories(directory / "config");
        std::ofstream(directory / "config" / "x.ini") << "[PC_URI]\nkey=v";
        const auto readConfig = [&] {
            EXPECT_EQ(chdir(directory.c_str()), 0);
            WCHAR current[260] = {};
            const DWORD length = GetCurrentDirectoryW(260, current);
            EXPECT_EQ(ReadKey(std::wstring(current, length) + L"\\config\\x.ini"), "v") << name;
        };
        EXPECT_EQ(RunInChild(readConfig), 0);
    }
    std::filesystem::remove_all(base);
}

TEST(Drivers, FailTheRequestsOfALastHandleAlsoOnceTheirDeviceIsRemoved) {
    WithTestDevice([](TestDevice& device) {
        device.Read();
        emulation::RemoveDevice(kPath);
        EXPECT_EQ(device.Outcome(), ERROR_IO_INCOMPLETE) << "an open handle keeps its device";
        CloseHandle(device.handle);
        EXPECT_EQ(device.Outcome(), ERROR_DEVICE_NOT_CONNECTED);
    });
}

TEST(Handles, AreNeverGivenOutAgain) {
    OnBothClocks([] {
        const HANDLE closed = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        CloseHandle(closed);
        const HANDLE next = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        EXPECT_NE(next, closed);
        CloseHandle(next);
    });
}

TEST(Fork, LeavesTheLayerToTheParent) {
    OnBothClocks([] {
        Sleep(1);
        EXPECT_DEATH(Sleep(1), "forked from one that had used the layer");
        Sleep(1);
    });
}

}  // namespace
