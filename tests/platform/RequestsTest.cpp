// Overlapped requests and devices. The tests of Requests and Devices are Win32 but for the driver
// of their device; those of Drivers are about the layer's own drivers.
#include <cstring>
#include <set>
#include <utility>

#include "tests/platform/HostedFixture.h"

namespace {

using namespace hosted_test;

constexpr const wchar_t* kPath = L"\\\\.\\FAKE";
constexpr DWORD kShareBoth = FILE_SHARE_READ | FILE_SHARE_WRITE;

HANDLE Open(DWORD share = kShareBoth, const wchar_t* path = kPath) {
    return CreateFileW(path, GENERIC_READ | GENERIC_WRITE, share, nullptr, OPEN_EXISTING,
                       FILE_FLAG_OVERLAPPED, nullptr);
}

/// A driver, a shared handle of its device, and one OVERLAPPED with a manual-reset event.
struct TestDevice : hosted::Driver {
    DWORD answer = ERROR_IO_PENDING;
    std::vector<hosted::RequestPtr> requests;

    HANDLE handle = nullptr;
    OVERLAPPED overlapped{};
    std::uint8_t buffer[4] = {};
    DWORD moved = 0;

    DWORD Start(const hosted::RequestPtr& started) override {
        requests.push_back(started);
        return answer;
    }
    void Close() override {
        for (const hosted::RequestPtr& request : requests) {
            request->Fail(ERROR_DEVICE_NOT_CONNECTED);
        }
    }

    DWORD Read() { return ErrorOf(ReadFile(handle, buffer, 3, nullptr, &overlapped)); }
    DWORD Outcome(BOOL wait = FALSE) {
        return ErrorOf(GetOverlappedResult(handle, &overlapped, &moved, wait));
    }
    void CompleteLater() {
        hosted::After(hosted::kMillisecond, [request = requests.back()] {
            const std::uint8_t bytes[] = {1, 2, 3, 4, 5};
            request->Complete(bytes, sizeof bytes);  // three of them
            request->Fail(ERROR_GEN_FAILURE);        // too late
        });
    }
};

/// Runs the body on each clock with a device of its own.
void WithTestDevice(void (*body)(TestDevice& device)) {
    OnBothClocks([body] {
        const auto device = std::make_shared<TestDevice>();
        hosted::AddDevice(kPath, device);
        device->handle = Open();
        device->overlapped.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        body(*device);
        CloseHandle(device->handle);
        CloseHandle(device->overlapped.hEvent);
        hosted::RemoveDevice(kPath);
    });
}

TEST(Requests, ArePendingUntilTheirEndSignalsTheEventOrElseTheDevice) {
    WithTestDevice([](TestDevice& device) {
        for (const bool withEvent : {true, true, false, false}) {
            if (!withEvent) {
                CloseHandle(std::exchange(device.overlapped.hEvent, nullptr));
            }
            const HANDLE signalled = withEvent ? device.overlapped.hEvent : device.handle;
            EXPECT_EQ(device.Read(), ERROR_IO_PENDING);
            EXPECT_EQ(device.overlapped.Internal, STATUS_PENDING);
            EXPECT_EQ(WaitForSingleObject(signalled, 0), WAIT_TIMEOUT);
            EXPECT_EQ(device.Outcome(), ERROR_IO_INCOMPLETE);
            device.CompleteLater();
            EXPECT_EQ(device.Outcome(TRUE), ERROR_SUCCESS);
            EXPECT_EQ(device.moved, 3U);
            EXPECT_EQ(std::memcmp(device.buffer, "\1\2\3\0", 4), 0);
            EXPECT_EQ(WaitForSingleObject(signalled, 0), WAIT_OBJECT_0);
            EXPECT_EQ(WaitForSingleObject(device.handle, 0),
                      withEvent ? WAIT_TIMEOUT : WAIT_OBJECT_0);
        }
    });
}

TEST(Requests, ThatFailToStartAreNotPendingAndSignalNothing) {
    WithTestDevice([](TestDevice& device) {
        device.answer = ERROR_IO_DEVICE;
        EXPECT_EQ(device.Read(), ERROR_IO_DEVICE);
        EXPECT_EQ(ErrorOf(CancelIoEx(device.handle, nullptr)), ERROR_NOT_FOUND);
        EXPECT_EQ(WaitForSingleObject(device.overlapped.hEvent, 0), WAIT_TIMEOUT);
        EXPECT_EQ(device.Outcome(), ERROR_IO_INCOMPLETE);
        SetEvent(device.overlapped.hEvent);
        EXPECT_EQ(device.Outcome(TRUE), ERROR_SUCCESS) << "any signal counts as the end";
    });
}

TEST(Requests, AreCancelledOneByOneOrAllThoseOfAHandleByAnyThread) {
    WithTestDevice([](TestDevice& device) {
        const HANDLE other = Open();
        OVERLAPPED second{};
        OVERLAPPED ofOther{};
        device.Read();
        ReadFile(device.handle, device.buffer, 1, nullptr, &second);
        ReadFile(other, device.buffer, 1, nullptr, &ofOther);
        EXPECT_TRUE(CancelIoEx(device.handle, &device.overlapped));
        EXPECT_EQ(device.Outcome(), ERROR_OPERATION_ABORTED);
        EXPECT_EQ(second.Internal, STATUS_PENDING);
        JoinThreads({StartThread([&] { EXPECT_TRUE(CancelIoEx(device.handle, nullptr)); })});
        EXPECT_EQ(second.Internal, device.overlapped.Internal);
        EXPECT_EQ(ofOther.Internal, STATUS_PENDING);
        EXPECT_EQ(ErrorOf(CancelIoEx(device.handle, &second)), ERROR_NOT_FOUND);
        EXPECT_EQ(ErrorOf(CancelIoEx(device.handle, nullptr)), ERROR_NOT_FOUND);
        CloseHandle(other);
    });
}

TEST(Requests, EndWithTheirThreadWithTheirHandleAndWithTheirDevice) {
    WithTestDevice([](TestDevice& device) {
        JoinThreads({StartThread([&] { device.Read(); })});
        EXPECT_EQ(device.Outcome(), ERROR_OPERATION_ABORTED);

        const HANDLE last = Open();
        OVERLAPPED ofLast{};
        ReadFile(last, device.buffer, 1, nullptr, &ofLast);
        const HANDLE waiter = StartThread([&] {
            device.Read();
            EXPECT_EQ(device.Outcome(TRUE), ERROR_OPERATION_ABORTED);
        });
        AwaitEventWaiters(1);
        CloseHandle(device.overlapped.hEvent);  // the wait goes on
        CloseHandle(device.handle);
        JoinThreads({waiter});
        EXPECT_EQ(ofLast.Internal, STATUS_PENDING);
        hosted::RemoveDevice(kPath);  // an open handle keeps its device
        CloseHandle(last);
        EXPECT_EQ(ofLast.Internal, 0xC000009D) << "not by the driver";
    });
}

TEST(Handles, AreNeverGivenOutAgainAndRefusedOnceClosedOrOfAnotherKind) {
    WithTestDevice([](TestDevice& device) {
        const HANDLE closed = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        EXPECT_TRUE(CloseHandle(closed));
        const HANDLE next = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        EXPECT_NE(next, closed);
        for (const HANDLE handle : {HANDLE{nullptr}, INVALID_HANDLE_VALUE, closed}) {
            OVERLAPPED none = {STATUS_PENDING, 0, 0, 0, nullptr};
            const std::set<DWORD> errors = {
                ErrorOf(SetEvent(handle)),
                ErrorOf(ResetEvent(handle)),
                ErrorOf(WaitForSingleObject(handle, INFINITE) != WAIT_FAILED),
                ErrorOf(CloseHandle(handle)),
                ErrorOf(GetOverlappedResult(handle, &none, &device.moved, TRUE)),
                ErrorOf(ReadFile(handle, device.buffer, 1, nullptr, &none)),
                ErrorOf(CancelIoEx(handle, &none)),
                ErrorOf(SetEvent(device.handle)),
                ErrorOf(CancelIoEx(device.overlapped.hEvent, &none)),
            };
            EXPECT_EQ(errors, std::set<DWORD>{ERROR_INVALID_HANDLE});
        }
        CloseHandle(next);
    });
}

TEST(Devices, AreOpenedByPathAndShareMode) {
    WithTestDevice([](TestDevice& device) {
        EXPECT_EQ(Open(kShareBoth, L"\\\\.\\NONE"), INVALID_HANDLE_VALUE);
        EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
        EXPECT_TRUE(CloseHandle(Open(kShareBoth, L"\\\\.\\fake")));
        EXPECT_EQ(Open(0), INVALID_HANDLE_VALUE);
        EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
        CloseHandle(device.handle);
        device.handle = Open(0);
        EXPECT_EQ(Open(), INVALID_HANDLE_VALUE);
    });
}

TEST(Drivers, FailRequestsWithAStatusThatReadsBackAsTheError) {
    WithTestDevice([](TestDevice& device) {
        const std::pair<DWORD, ULONG_PTR> cases[] = {{ERROR_OPERATION_ABORTED, 0xC0000120},
                                                     {ERROR_GEN_FAILURE, 0xC0000001},
                                                     {ERROR_SEM_TIMEOUT, 0xC00000B5},
                                                     {ERROR_ACCESS_DENIED, 0x80070005}};
        for (const auto& [error, status] : cases) {
            device.Read();
            device.requests.back()->Fail(error, 2);
            EXPECT_EQ(device.overlapped.Internal, status);
            EXPECT_EQ(device.Outcome(), error);
            EXPECT_EQ(device.moved, 2U);
        }
        CloseHandle(device.handle);  // the outcome is that of the OVERLAPPED alone
        device.overlapped.Internal = 0xFFFFFFFF80070016;
        EXPECT_EQ(device.Outcome(), 22U);
    });
}

}  // namespace
