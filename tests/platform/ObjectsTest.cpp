// Events, threads and handles, on both clocks.
#include <atomic>
#include <set>

#include "tests/platform/HostedFixture.h"

namespace {

using namespace hosted_test;

TEST(Events, ReleaseWhoWaitsEvenWhenResetAtOnce) {
    OnBothClocks([] {
        const HANDLE event = NewEvent(true);
        std::vector<HANDLE> threads;
        for (int i = 0; i < 3; ++i) {
            threads.push_back(
                Go([&] { EXPECT_EQ(WaitForSingleObject(event, INFINITE), WAIT_OBJECT_0); }));
        }
        AwaitWaiters(3, "event");
        SetEvent(event);
        ResetEvent(event);
        for (const HANDLE thread : threads) {
            Join(thread);
        }
        EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
        SetEvent(event);
        EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
        EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
        CloseHandle(event);
    });
}

TEST(Events, OfTheAutoResetKindReleaseExactlyOne) {
    OnBothClocks([] {
        const HANDLE event = NewEvent(false);
        std::atomic<int> released{0};
        const auto wait = [&] {
            WaitForSingleObject(event, INFINITE);
            ++released;
        };
        const HANDLE first = Go(wait);
        const HANDLE second = Go(wait);
        AwaitWaiters(2, "event");
        SetEvent(event);
        ResetEvent(event);  // takes nothing from the one that was released
        EXPECT_TRUE(hosted::WaitFor([&] { return hosted::Live().threads == 1; }, hosted::kForever,
                                    "the first one's end"));
        EXPECT_EQ(released, 1);
        SetEvent(event);
        Join(first);
        Join(second);
        SetEvent(event);  // nobody waits: it stays set for the next one, once
        EXPECT_EQ(WaitForSingleObject(event, 5), WAIT_OBJECT_0);
        EXPECT_EQ(WaitForSingleObject(event, 1), WAIT_TIMEOUT);
        CloseHandle(event);
    });
}

TEST(LastError, IsPerThreadAndKeptBySuccess) {
    OnBothClocks([] {
        SetLastError(77);
        const HANDLE event = NewEvent(false);
        SetEvent(event);
        WaitForSingleObject(event, 10);
        Join(Go([] {
            EXPECT_EQ(GetLastError(), 0U);
            SetLastError(78);
        }));
        CloseHandle(event);
        EXPECT_EQ(GetLastError(), 77U);
    });
}

TEST(Handles, AreNeverGivenOutAgainAndRefusedOnceClosed) {
    OnBothClocks(
        [] {
            std::set<HANDLE> seen = {nullptr, INVALID_HANDLE_VALUE};
            for (int i = 0; i < 100; ++i) {
                const HANDLE event = NewEvent(true);
                EXPECT_TRUE(seen.insert(event).second);
                EXPECT_TRUE(CloseHandle(event));
            }
            int foreign = 0;
            seen.insert(&foreign);
            GUID hid;
            HidD_GetHidGuid(&hid);
            const HDEVINFO list =
                SetupDiGetClassDevsW(&hid, nullptr, nullptr, DIGCF_DEVICEINTERFACE);
            seen.insert(list);  // not for any of these
            for (const HANDLE handle : seen) {
                OVERLAPPED overlapped{};
                overlapped.hEvent = handle;
                DWORD moved = 0;
                const auto refused = [](auto result) {
                    const bool failed = result == 0 || static_cast<DWORD>(result) == WAIT_FAILED;
                    const DWORD error = GetLastError();
                    SetLastError(0);
                    return failed && error == ERROR_INVALID_HANDLE;
                };
                EXPECT_TRUE(refused(SetEvent(handle)));
                EXPECT_TRUE(refused(ResetEvent(handle)));
                EXPECT_TRUE(refused(WaitForSingleObject(handle, INFINITE)));
                EXPECT_TRUE(refused(CloseHandle(handle)));
                EXPECT_TRUE(refused(ReadFile(handle, &foreign, 1, nullptr, &overlapped)));
                EXPECT_TRUE(refused(GetOverlappedResult(handle, &overlapped, &moved, TRUE)));
                EXPECT_TRUE(refused(CancelIoEx(handle, &overlapped)));
                EXPECT_TRUE(
                    refused(HidD_FreePreparsedData(static_cast<PHIDP_PREPARSED_DATA>(handle))));
            }
            EXPECT_TRUE(SetupDiDestroyDeviceInfoList(list));
            EXPECT_FALSE(SetupDiDestroyDeviceInfoList(list));
        },
        3);
}

TEST(Handles, MayBeClosedWhileAThreadWaits) {
    OnBothClocks([] {
        const auto driver = std::make_shared<FakeDriver>();
        hosted::AddDevice(kPath, driver);
        const HANDLE device = Open();
        OVERLAPPED overlapped{};
        overlapped.hEvent = NewEvent(false);
        WriteFile(device, "x", 1, nullptr, &overlapped);
        const HANDLE waiter = Go([event = overlapped.hEvent] {
            EXPECT_EQ(WaitForSingleObject(event, INFINITE), WAIT_OBJECT_0);
        });
        AwaitWaiters(1, "event");
        CloseHandle(overlapped.hEvent);
        const HANDLE timed = Go([] {
            const HANDLE event = NewEvent(true);
            const HANDLE closer = Go([event] { CloseHandle(event); });
            const DWORD result = WaitForSingleObject(event, 5);
            EXPECT_TRUE(result == WAIT_TIMEOUT || result == WAIT_FAILED) << result;
            Join(closer);
        });
        {
            const hosted::DeviceLock lock;
            driver->requests.at(0)->Complete(nullptr, 1);  // the request still has the event
        }
        Join(waiter);
        Join(timed);
        CloseHandle(device);
    });
}

TEST(Watching, CountsWhatIsLiveAndLetsTheHookRefuse) {
    OnBothClocks([] {
        std::vector<std::string> calls;
        hosted::SetCallHook([&](hosted::Call call, hosted::ThreadId) -> DWORD {
            calls.emplace_back(hosted::Name(call));
            return call == hosted::Call::kCreateEvent ? 8 : 0;
        });
        EXPECT_EQ(NewEvent(true), nullptr);
        EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_MEMORY);
        Sleep(0);
        EXPECT_EQ(calls, (std::vector<std::string>{"CreateEventW", "Sleep"}));
        hosted::SetCallHook(nullptr);
        const HANDLE event = NewEvent(true);
        const HANDLE thread = Go([&] { WaitForSingleObject(event, INFINITE); });
        EXPECT_EQ(hosted::Live().handles, 2U);
        EXPECT_EQ(hosted::Live().threads, 1U);
        SetEvent(event);
        Join(thread);
        CloseHandle(event);
    });
}

TEST(Handles, OfASmallCrowdAreAllGoneUnderAThousandSeeds) {
    hosted::ScheduledOptions options;
    options.maxLateness = 2 * hosted::kMillisecond;
    testing_support::ForEachSeed(
        1000,
        [] {
            std::atomic<HANDLE> event{NewEvent(false)};
            std::vector<HANDLE> threads;
            for (int i = 0; i < 4; ++i) {
                threads.push_back(Go([&event] {
                    for (int turn = 0; turn < 5; ++turn) {
                        SetEvent(event);
                        const DWORD result = WaitForSingleObject(event, 1);
                        EXPECT_TRUE(result != WAIT_FAILED ||
                                    GetLastError() == ERROR_INVALID_HANDLE);
                        EXPECT_TRUE(CloseHandle(event.exchange(NewEvent(turn % 2 == 0))));
                    }
                }));
            }
            for (const HANDLE thread : threads) {
                Join(thread);
            }
            CloseHandle(event);
            const hosted::LiveCounts left = hosted::Live();
            EXPECT_EQ(left.handles + left.threads + left.requests, 0U);
        },
        options);
}

}  // namespace
