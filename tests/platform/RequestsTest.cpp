// Overlapped requests against a driver, on both clocks.
#include <cstring>
#include <utility>

#include "tests/platform/HostedFixture.h"

namespace {

using namespace hosted_test;
using hosted::kMillisecond;

constexpr const wchar_t* kPath = L"\\\\.\\FAKE";
constexpr DWORD kShareBoth = FILE_SHARE_READ | FILE_SHARE_WRITE;

HANDLE Open(const wchar_t* path, DWORD share = 0) {
    return CreateFileW(path, GENERIC_READ | GENERIC_WRITE, share, nullptr, OPEN_EXISTING,
                       FILE_FLAG_OVERLAPPED, nullptr);
}

DWORD ErrorOf(BOOL result) {
    return result != FALSE ? ERROR_SUCCESS : GetLastError();
}

/// A driver whose answers the test chooses, a handle of its device, and one OVERLAPPED with a
/// manual-reset event.
struct TestDevice : hosted::Driver {
    DWORD answer = ERROR_IO_PENDING;
    DWORD errorAtClose = 0;  // the driver fails its last request with it, if not zero
    std::size_t closed = 0;
    std::size_t cancelled = 0;
    hosted::RequestPtr request;  // the last one

    HANDLE handle = nullptr;
    OVERLAPPED overlapped{};
    std::uint8_t buffer[4] = {};
    DWORD moved = 0;

    void Close() override {
        ++closed;
        if (errorAtClose != 0) {
            request->Fail(errorAtClose);
        }
    }
    DWORD Start(const hosted::RequestPtr& started) override {
        request = started;
        return answer;
    }
    void Cancel(const hosted::RequestPtr& /*request*/) override { ++cancelled; }

    DWORD Read() { return ErrorOf(ReadFile(handle, buffer, sizeof buffer, nullptr, &overlapped)); }
    DWORD Outcome(BOOL wait = FALSE) {
        return ErrorOf(GetOverlappedResult(handle, &overlapped, &moved, wait));
    }
    bool Signalled() const { return WaitForSingleObject(overlapped.hEvent, 0) == WAIT_OBJECT_0; }
    void CompleteLater() {
        hosted::After(kMillisecond, [request = request] {
            const std::uint8_t bytes[] = {1, 2, 3, 4, 5};
            request->Complete(bytes, 3);
            request->Fail(ERROR_GEN_FAILURE);  // too late
        });
    }
};

/// Runs the body on each clock with a device of its own.
void WithTestDevice(void (*body)(TestDevice& device)) {
    OnBothClocks([body] {
        const auto device = std::make_shared<TestDevice>();
        hosted::AddDevice(kPath, device);
        device->handle = Open(kPath);
        device->overlapped.hEvent = NewEvent(true);
        body(*device);
        CloseHandle(device->handle);
        CloseHandle(device->overlapped.hEvent);
        hosted::RemoveDevice(kPath);
    });
}

TEST(Requests, ArePendingUntilTheDriverEndsThem) {
    WithTestDevice([](TestDevice& device) {
        SetEvent(device.overlapped.hEvent);
        EXPECT_EQ(device.Read(), ERROR_IO_PENDING);
        EXPECT_EQ(device.overlapped.Internal, STATUS_PENDING);
        EXPECT_FALSE(device.Signalled());
        EXPECT_EQ(device.Outcome(), ERROR_IO_INCOMPLETE);
        device.CompleteLater();
        EXPECT_EQ(device.Outcome(TRUE), ERROR_SUCCESS);
        EXPECT_EQ(device.moved, 3U);
        EXPECT_EQ(std::memcmp(device.buffer, "\1\2\3\0", 4), 0);
        EXPECT_TRUE(device.Signalled());
        // The event is signalled instead of the device.
        EXPECT_EQ(WaitForSingleObject(device.handle, 0), WAIT_TIMEOUT);

        device.answer = ERROR_IO_DEVICE;  // a start that fails
        EXPECT_EQ(device.Read(), ERROR_IO_DEVICE);
        EXPECT_EQ(device.overlapped.Internal, STATUS_PENDING);
        EXPECT_FALSE(device.Signalled());
        EXPECT_EQ(device.Outcome(), ERROR_IO_INCOMPLETE);
    });
}

TEST(Requests, StoreAStatusThatReadsBackAsTheirError) {
    WithTestDevice([](TestDevice& device) {
        const std::pair<DWORD, ULONG_PTR> cases[] = {{ERROR_OPERATION_ABORTED, 0xC0000120},
                                                     {ERROR_GEN_FAILURE, 0xC0000001},
                                                     {ERROR_SEM_TIMEOUT, 0xC00000B5},
                                                     {ERROR_ACCESS_DENIED, 0x80070005}};
        for (const auto& [error, status] : cases) {
            device.Read();
            {
                const hosted::DeviceLock lock;
                device.request->Fail(error, 2);
            }
            EXPECT_EQ(device.overlapped.Internal, status);
            EXPECT_EQ(device.Outcome(), error);
            EXPECT_EQ(device.moved, 2U);
        }
        // A status that a host stores itself, sign-extended or not, with the handle closed.
        CloseHandle(device.handle);
        for (const ULONG_PTR stored : {ULONG_PTR{0x80070016}, ULONG_PTR{0xFFFFFFFF80070016}}) {
            device.overlapped.Internal = stored;
            EXPECT_EQ(device.Outcome(), 22U);
        }
    });
}

TEST(Requests, AreCancelledByCallByCloseAndByTheirThreadsEnd) {
    WithTestDevice([](TestDevice& device) {
        EXPECT_EQ(ErrorOf(CancelIoEx(device.handle, &device.overlapped)), ERROR_NOT_FOUND);
        device.Read();
        EXPECT_TRUE(CancelIoEx(device.handle, &device.overlapped));
        EXPECT_TRUE(device.Signalled());
        EXPECT_EQ(device.Outcome(), ERROR_OPERATION_ABORTED);

        JoinThreads({StartThread([&] { EXPECT_EQ(device.Read(), ERROR_IO_PENDING); })});
        EXPECT_EQ(device.Outcome(), ERROR_OPERATION_ABORTED);
        EXPECT_EQ(device.cancelled, 2U);

        const HANDLE waiter = StartThread([&] {
            EXPECT_EQ(device.Read(), ERROR_IO_PENDING);
            EXPECT_EQ(device.Outcome(TRUE), ERROR_OPERATION_ABORTED);
        });
        AwaitEventWaiters(1);
        EXPECT_TRUE(CloseHandle(device.handle));
        JoinThreads({waiter});
    });
}

TEST(Requests, OfOneHandleAreAllCancelledByACallWithoutAnOverlapped) {
    WithTestDevice([](TestDevice& device) {
        EXPECT_EQ(ErrorOf(CancelIoEx(device.handle, nullptr)), ERROR_NOT_FOUND);
        CloseHandle(device.handle);
        device.handle = Open(kPath, kShareBoth);
        const HANDLE other = Open(kPath, kShareBoth);
        OVERLAPPED second{};
        OVERLAPPED ofOther{};
        device.Read();
        ReadFile(device.handle, device.buffer, 1, nullptr, &second);
        ReadFile(other, device.buffer, 1, nullptr, &ofOther);
        // Another thread than the one that started them.
        JoinThreads({StartThread([&] { EXPECT_TRUE(CancelIoEx(device.handle, nullptr)); })});
        EXPECT_EQ(device.Outcome(), ERROR_OPERATION_ABORTED);
        EXPECT_EQ(second.Internal, device.overlapped.Internal);
        EXPECT_EQ(ofOther.Internal, STATUS_PENDING);
        EXPECT_EQ(ErrorOf(CancelIoEx(device.handle, nullptr)), ERROR_NOT_FOUND);
        CloseHandle(other);
    });
}

TEST(Requests, WithoutAnEventSignalTheDevice) {
    WithTestDevice([](TestDevice& device) {
        CloseHandle(std::exchange(device.overlapped.hEvent, nullptr));
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(device.Read(), ERROR_IO_PENDING);
            EXPECT_EQ(WaitForSingleObject(device.handle, 0), WAIT_TIMEOUT);  // reset by the start
            device.CompleteLater();
            EXPECT_EQ(device.Outcome(TRUE), ERROR_SUCCESS);
            EXPECT_EQ(WaitForSingleObject(device.handle, 0), WAIT_OBJECT_0);
        }
    });
}

TEST(Devices, AreOpenedByPathAndShareModeAndClosedWithTheirLastHandle) {
    WithTestDevice([](TestDevice& device) {
        EXPECT_EQ(Open(L"\\\\.\\NONE"), INVALID_HANDLE_VALUE);
        EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
        EXPECT_EQ(Open(L"\\\\.\\fake", kShareBoth), INVALID_HANDLE_VALUE);
        EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
        CloseHandle(device.handle);
        const HANDLE first = Open(kPath, kShareBoth);
        device.handle = Open(kPath, kShareBoth);
        EXPECT_EQ(Open(kPath, 0), INVALID_HANDLE_VALUE);
        device.Read();
        device.errorAtClose = ERROR_DEVICE_NOT_CONNECTED;
        hosted::RemoveDevice(kPath);  // the open handles keep their device
        CloseHandle(first);
        EXPECT_EQ(device.closed, 1U);  // not while the second handle is open
        CloseHandle(device.handle);
        EXPECT_EQ(device.closed, 2U);
        EXPECT_EQ(device.cancelled, 0U) << "the driver failed the request that was left";
        EXPECT_EQ(device.Outcome(), ERROR_DEVICE_NOT_CONNECTED);
    });
}

}  // namespace
