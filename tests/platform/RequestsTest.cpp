// Overlapped requests against a driver, on both clocks.
#include <cstring>

#include "tests/platform/HostedFixture.h"

namespace {

using namespace hosted_test;
using hosted::DeviceLock;
using hosted::kMillisecond;

constexpr ULONG_PTR kStale = 0x55;

/// A device with a fake behind it, open, and one OVERLAPPED with a manual-reset event.
struct Rig {
    std::shared_ptr<FakeDriver> driver = std::make_shared<FakeDriver>();
    HANDLE device = nullptr;
    OVERLAPPED overlapped{};
    std::uint8_t buffer[4] = {};

    Rig() {
        hosted::AddDevice(kPath, driver);
        device = Open();
        overlapped.hEvent = NewEvent(true);
        overlapped.Internal = kStale;
    }
    ~Rig() {
        CloseHandle(device);
        CloseHandle(overlapped.hEvent);
    }
    Rig(const Rig&) = delete;
    Rig& operator=(const Rig&) = delete;

    DWORD Read() {
        const BOOL result = ReadFile(device, buffer, sizeof buffer, nullptr, &overlapped);
        return result != FALSE ? ERROR_SUCCESS : GetLastError();
    }
    /// The outcome as GetOverlappedResult tells it.
    DWORD Outcome(DWORD& moved, BOOL wait = FALSE) {
        const BOOL result = GetOverlappedResult(device, &overlapped, &moved, wait);
        return result != FALSE ? ERROR_SUCCESS : GetLastError();
    }
    DWORD Outcome(BOOL wait = FALSE) {
        DWORD moved = 0;
        return Outcome(moved, wait);
    }
    bool Signalled() const { return WaitForSingleObject(overlapped.hEvent, 0) == WAIT_OBJECT_0; }
};

TEST(Requests, ArePendingUntilTheDriverEndsThem) {
    OnBothClocks([] {
        Rig rig;
        SetEvent(rig.overlapped.hEvent);
        EXPECT_EQ(rig.Read(), ERROR_IO_PENDING);
        EXPECT_EQ(rig.overlapped.Internal, STATUS_PENDING);
        EXPECT_FALSE(rig.Signalled());
        EXPECT_EQ(rig.Outcome(), ERROR_IO_INCOMPLETE);
        hosted::After(2 * kMillisecond, [request = rig.driver->requests.at(0)] {
            const std::uint8_t bytes[] = {1, 2, 3, 4, 5};
            request->Complete(bytes, 3);
            request->Fail(ERROR_GEN_FAILURE);  // too late
        });
        DWORD moved = 0;
        EXPECT_EQ(rig.Outcome(moved, TRUE), ERROR_SUCCESS);
        EXPECT_EQ(moved, 3U);
        EXPECT_EQ(std::memcmp(rig.buffer, "\1\2\3\0", 4), 0);
        EXPECT_EQ(rig.overlapped.Internal, 0U);
        EXPECT_TRUE(rig.Signalled());
        EXPECT_EQ(WaitForSingleObject(rig.device, 0), WAIT_TIMEOUT);  // the event has it all
    });
}

TEST(Requests, ThatEndOrFailAtOnceTellSoAtOnce) {
    OnBothClocks([] {
        Rig rig;
        rig.driver->answer = ERROR_SUCCESS;
        DWORD moved = 0;
        SetLastError(77);
        EXPECT_TRUE(WriteFile(rig.device, "abc", 3, &moved, &rig.overlapped));
        EXPECT_EQ(moved, 3U);
        EXPECT_EQ(GetLastError(), 77U);
        EXPECT_EQ(rig.driver->requests.at(0)->data(), (std::vector<std::uint8_t>{'a', 'b', 'c'}));
        EXPECT_TRUE(rig.Signalled());

        rig.driver->answer = ERROR_IO_DEVICE;
        EXPECT_EQ(rig.Read(), ERROR_IO_DEVICE);
        EXPECT_EQ(rig.overlapped.Internal, STATUS_PENDING);
        EXPECT_FALSE(rig.Signalled());
        EXPECT_EQ(rig.Outcome(), ERROR_IO_INCOMPLETE);

        rig.overlapped.Internal = kStale;
        hosted::SetCallHook([](hosted::Call call, hosted::ThreadId) -> DWORD {
            return call == hosted::Call::kReadFile ? ERROR_NOT_ENOUGH_MEMORY : ERROR_SUCCESS;
        });
        EXPECT_EQ(rig.Read(), ERROR_NOT_ENOUGH_MEMORY);
        EXPECT_EQ(rig.overlapped.Internal, STATUS_PENDING);
        hosted::SetCallHook(nullptr);
        EXPECT_EQ(rig.driver->requests.size(), 2U);
    });
}

TEST(Requests, StoreAStatusThatReadsBackAsTheirError) {
    OnBothClocks([] {
        Rig rig;
        const struct {
            DWORD error;
            ULONG_PTR status;
        } cases[] = {{ERROR_OPERATION_ABORTED, 0xC0000120},
                     {ERROR_GEN_FAILURE, 0xC0000001},
                     {ERROR_DEVICE_NOT_CONNECTED, 0xC000009D},
                     {ERROR_SEM_TIMEOUT, 0xC00000B5},
                     {ERROR_IO_DEVICE, 0xC0000185},
                     {ERROR_ACCESS_DENIED, 0x80070005}};
        for (const auto& [error, status] : cases) {
            EXPECT_EQ(rig.Read(), ERROR_IO_PENDING);
            {
                const DeviceLock lock;
                rig.driver->requests.back()->Fail(error, 2);
            }
            EXPECT_EQ(rig.overlapped.Internal, status);
            DWORD moved = 0;
            EXPECT_EQ(rig.Outcome(moved), error);
            EXPECT_EQ(moved, 2U);
        }
        // What a host stores itself, sign-extended or not, and with no handle to look at.
        CloseHandle(rig.device);
        for (const ULONG_PTR stored : {ULONG_PTR{0x80070016}, ULONG_PTR{0xFFFFFFFF80070016}}) {
            rig.overlapped.Internal = stored;
            EXPECT_EQ(rig.Outcome(), 22U);
        }
        rig.overlapped.Internal = 0;
        EXPECT_EQ(rig.Outcome(), ERROR_SUCCESS);
    });
}

TEST(Requests, AreCancelledByCallByCloseAndByTheirThreadsEnd) {
    OnBothClocks([] {
        Rig rig;
        EXPECT_FALSE(CancelIoEx(rig.device, &rig.overlapped));
        EXPECT_EQ(GetLastError(), ERROR_NOT_FOUND);
        rig.Read();
        OVERLAPPED other{};
        EXPECT_FALSE(CancelIoEx(rig.device, &other));
        EXPECT_TRUE(CancelIoEx(rig.device, &rig.overlapped));
        EXPECT_TRUE(rig.Signalled());
        EXPECT_EQ(rig.Outcome(), ERROR_OPERATION_ABORTED);

        const HANDLE thread = Go([&] { EXPECT_EQ(rig.Read(), ERROR_IO_PENDING); });
        EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
        CloseHandle(thread);
        EXPECT_EQ(rig.Outcome(), ERROR_OPERATION_ABORTED);
        EXPECT_EQ(rig.driver->cancelled, 2U);

        const HANDLE waiter = Go([&] {
            EXPECT_EQ(rig.Read(), ERROR_IO_PENDING);
            EXPECT_EQ(rig.Outcome(TRUE), ERROR_OPERATION_ABORTED);
        });
        AwaitWaiters(1, "event");
        EXPECT_TRUE(CloseHandle(rig.device));
        Join(waiter);
        EXPECT_EQ(hosted::Live().requests, 0U);
    });
}

TEST(Requests, LeftAtTheLastCloseAreTheDriversToFail) {
    OnBothClocks([] {
        Rig rig;
        rig.driver->errorAtClose = ERROR_DEVICE_NOT_CONNECTED;
        rig.Read();
        hosted::RemoveDevice(kPath);  // the open handle keeps its device
        EXPECT_EQ(rig.driver->closed, 0U);
        EXPECT_TRUE(CloseHandle(rig.device));
        EXPECT_EQ(rig.driver->closed, 1U);
        EXPECT_EQ(rig.driver->cancelled, 0U);
        EXPECT_EQ(rig.Outcome(), ERROR_DEVICE_NOT_CONNECTED);
        EXPECT_TRUE(rig.Signalled());
    });
}

TEST(Requests, WithoutAnEventSignalTheDevice) {
    OnBothClocks([] {
        Rig rig;
        EXPECT_EQ(WaitForSingleObject(rig.device, 1), WAIT_TIMEOUT);
        OVERLAPPED plain{};
        const auto start = [&] {
            DeviceIoControl(rig.device, 0x04001C00, nullptr, 0, nullptr, 0, nullptr, &plain);
            hosted::After(kMillisecond, [request = rig.driver->requests.back()] {
                request->Complete(nullptr, 0);
            });
        };
        start();
        EXPECT_EQ(rig.driver->requests.back()->controlCode(), 0x04001C00U);
        EXPECT_EQ(WaitForSingleObject(rig.device, INFINITE), WAIT_OBJECT_0);
        EXPECT_EQ(WaitForSingleObject(rig.device, 0), WAIT_OBJECT_0);
        start();  // resets the device's own signal
        DWORD moved = 1;
        EXPECT_TRUE(GetOverlappedResult(rig.device, &plain, &moved, TRUE));
        EXPECT_EQ(moved, 0U);

        const HANDLE manual = rig.overlapped.hEvent;
        rig.overlapped.hEvent = NewEvent(false);
        rig.Read();
        hosted::After(kMillisecond,
                      [request = rig.driver->requests.back()] { request->Complete(nullptr, 0); });
        EXPECT_EQ(rig.Outcome(TRUE), ERROR_SUCCESS);
        EXPECT_FALSE(rig.Signalled());  // the wait has taken it
        CloseHandle(manual);
    });
}

TEST(Devices, AreOpenedByPathAndShareMode) {
    OnBothClocks(
        [] {
            constexpr DWORD kShareBoth = FILE_SHARE_READ | FILE_SHARE_WRITE;
            const auto driver = std::make_shared<FakeDriver>();
            hosted::AddDevice(kPath, driver);
            EXPECT_EQ(Open(L"\\\\.\\NONE"), INVALID_HANDLE_VALUE);
            EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
            const HANDLE only = Open(L"\\\\.\\fake");
            for (const DWORD share : {DWORD{0}, kShareBoth}) {
                EXPECT_EQ(Open(kPath, share), INVALID_HANDLE_VALUE);
                EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
            }
            CloseHandle(only);
            const HANDLE first = Open(kPath, kShareBoth);
            const HANDLE second = Open(kPath, kShareBoth);
            EXPECT_EQ(Open(kPath, 0), INVALID_HANDLE_VALUE);
            CloseHandle(first);
            EXPECT_EQ(driver->closed, 1U);
            CloseHandle(second);
            EXPECT_EQ(driver->closed, 2U);
        },
        3);
}

TEST(Devices, TellTheTracerWhatTheyDo) {
    using Kind = hosted::TraceEvent::Kind;
    OnBothClocks(
        [] {
            std::vector<hosted::TraceEvent> events;
            hosted::SetTracer([&](const hosted::TraceEvent& event) { events.push_back(event); });
            {
                Rig rig;
                rig.Read();
                hosted::After(3 * kMillisecond, [request = rig.driver->requests.back()] {
                    request->Complete(reinterpret_cast<const std::uint8_t*>("hi"), 2);
                });
                rig.Outcome(TRUE);
                rig.Read();
            }
            hosted::SetTracer(nullptr);
            std::vector<Kind> kinds;
            for (const hosted::TraceEvent& event : events) {
                kinds.push_back(event.kind);
            }
            ASSERT_EQ(kinds,
                      (std::vector<Kind>{Kind::kOpen, Kind::kStart, Kind::kDone, Kind::kStart,
                                         Kind::kClose, Kind::kCancel, Kind::kDone}));
            EXPECT_EQ(events[0].text, "\\\\.\\FAKE");
            EXPECT_EQ(events[2].request, events[1].request);
            EXPECT_EQ(events[2].bytes, (std::vector<std::uint8_t>{'h', 'i'}));
            EXPECT_EQ(events[2].thread, 0U);
            EXPECT_GE(events[2].time - events[1].time, 3 * kMillisecond);
            EXPECT_EQ(events[6].error, ERROR_OPERATION_ABORTED);
        },
        3);
}

}  // namespace
