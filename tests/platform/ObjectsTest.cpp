// Events, threads and handles, on both clocks.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <set>

#include "tests/platform/HostedFixture.h"

namespace {

using namespace hosted_test;

TEST(Events, ReleaseAllOrExactlyOneEvenWhenResetAtOnce) {
    for (const bool manual : {true, false}) {
        const auto release = [manual] {
            const HANDLE event = NewEvent(manual);
            std::atomic<int> released{0};
            const auto wait = [&] {
                EXPECT_EQ(WaitForSingleObject(event, INFINITE), WAIT_OBJECT_0);
                ++released;
            };
            const std::vector<HANDLE> threads = {StartThread(wait), StartThread(wait),
                                                 StartThread(wait)};
            AwaitEventWaiters(3);
            SetEvent(event);
            ResetEvent(event);  // those that were released stay released
            const std::size_t left = manual ? 0 : 2;
            EXPECT_TRUE(hosted::WaitFor([&] { return hosted::Live().threads == left; },
                                        hosted::kForever, "the end of the released threads"));
            EXPECT_EQ(released, manual ? 3 : 1);
            SetEvent(event);
            SetEvent(event);
            JoinThreads(threads);
            if (manual) {
                ResetEvent(event);
            }
            EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
            SetEvent(event);  // nobody waits: it stays set
            EXPECT_EQ(WaitForSingleObject(event, 5), WAIT_OBJECT_0);
            EXPECT_EQ(WaitForSingleObject(event, 1), manual ? WAIT_OBJECT_0 : WAIT_TIMEOUT);
            CloseHandle(event);
        };
        OnBothClocks(release);
    }
}

TEST(LastError, IsPerThreadAndKeptBySuccess) {
    OnBothClocks([] {
        SetLastError(77);
        JoinThreads({StartThread([] { EXPECT_EQ(GetLastError(), 0U); })});
        EXPECT_EQ(GetLastError(), 77U);
    });
}

void AreRefusedOnceClosed() {
    std::set<HANDLE> seen = {nullptr, INVALID_HANDLE_VALUE};
    for (int i = 0; i < 100; ++i) {
        const HANDLE event = NewEvent(true);
        EXPECT_TRUE(seen.insert(event).second);
        EXPECT_TRUE(CloseHandle(event));
    }
    int foreign = 0;
    seen.insert(&foreign);
    const auto refused = [](bool failed) {
        const DWORD error = GetLastError();
        SetLastError(0);
        return failed && error == ERROR_INVALID_HANDLE;
    };
    for (const HANDLE handle : seen) {
        OVERLAPPED overlapped{};
        DWORD moved = 0;
        EXPECT_TRUE(refused(!SetEvent(handle)));
        EXPECT_TRUE(refused(!ResetEvent(handle)));
        EXPECT_TRUE(refused(WaitForSingleObject(handle, INFINITE) == WAIT_FAILED));
        EXPECT_TRUE(refused(!CloseHandle(handle)));
        EXPECT_TRUE(refused(!ReadFile(handle, &foreign, 1, nullptr, &overlapped)));
        EXPECT_TRUE(refused(!GetOverlappedResult(handle, &overlapped, &moved, TRUE)));
        EXPECT_TRUE(refused(!CancelIoEx(handle, &overlapped)));
    }
}

TEST(Handles, AreNeverGivenOutAgainAndRefusedOnceClosed) {
    OnBothClocks(&AreRefusedOnceClosed, 3);
}

// Threads close the event that the others wait on, and replace it by another.
TEST(Handles, MayBeClosedWhileOthersWait) {
    const auto close = [] {
        std::atomic<HANDLE> event{NewEvent(false)};
        const auto work = [&event] {
            for (int turn = 0; turn < 5; ++turn) {
                SetEvent(event);
                const DWORD result = WaitForSingleObject(event, 1);
                EXPECT_TRUE(result != WAIT_FAILED || GetLastError() == ERROR_INVALID_HANDLE);
                EXPECT_TRUE(CloseHandle(event.exchange(NewEvent(turn % 2 == 0))));
            }
        };
        JoinThreads({StartThread(work), StartThread(work), StartThread(work), StartThread(work)});
        CloseHandle(event);
    };
    hosted::ScheduledOptions options;
    options.maxLateness = 2 * hosted::kMillisecond;
    OnBothClocks(close, 1000, options);
}

TEST(Fork, LeavesTheLayerToTheParent) {
    const auto useAndFork = [](bool scheduled) {
        if (scheduled) {
            hosted::UseScheduledClock({});
        }
        Sleep(1);
        if (fork() == 0) {
            Sleep(1);
            std::_Exit(0);
        }
        wait(nullptr);
        Sleep(1);
        std::_Exit(0);
    };
    for (const bool scheduled : {false, true}) {
        EXPECT_EXIT(useAndFork(scheduled), ::testing::ExitedWithCode(0),
                    "forked from one that had used the layer");
    }
}

}  // namespace
