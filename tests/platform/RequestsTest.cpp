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

/// A driver that does as it is told, a handle on it, and one OVERLAPPED with a manual-reset event.
struct Rig : hosted::Driver {
    DWORD answer = ERROR_IO_PENDING;
    DWORD errorAtClose = 0;  // the driver fails its last request with it; zero leaves them
    std::size_t closed = 0;
    std::size_t cancelled = 0;
    hosted::RequestPtr request;  // the last one

    HANDLE device = nullptr;
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

    DWORD Read() { return ErrorOf(ReadFile(device, buffer, sizeof buffer, nullptr, &overlapped)); }
    DWORD Outcome(BOOL wait = FALSE) {
        return ErrorOf(GetOverlappedResult(device, &overlapped, &moved, wait));
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

/// Each test gets a rig of its own on each clock.
void WithRig(void (*body)(Rig& rig)) {
    OnBothClocks([body] {
        const auto rig = std::make_shared<Rig>();
        hosted::AddDevice(kPath, rig);
        rig->device = Open(kPath);
        rig->overlapped.hEvent = NewEvent(true);
        body(*rig);
        CloseHandle(rig->device);
        CloseHandle(rig->overlapped.hEvent);
        hosted::RemoveDevice(kPath);
    });
}

TEST(Requests, ArePendingUntilTheDriverEndsThem) {
    WithRig([](Rig& rig) {
        SetEvent(rig.overlapped.hEvent);
        EXPECT_EQ(rig.Read(), ERROR_IO_PENDING);
        EXPECT_EQ(rig.overlapped.Internal, STATUS_PENDING);
        EXPECT_FALSE(rig.Signalled());
        EXPECT_EQ(rig.Outcome(), ERROR_IO_INCOMPLETE);
        rig.CompleteLater();
        EXPECT_EQ(rig.Outcome(TRUE), ERROR_SUCCESS);
        EXPECT_EQ(rig.moved, 3U);
        EXPECT_EQ(std::memcmp(rig.buffer, "\1\2\3\0", 4), 0);
        EXPECT_TRUE(rig.Signalled());
        EXPECT_EQ(WaitForSingleObject(rig.device, 0), WAIT_TIMEOUT);  // the event has it all

        rig.answer = ERROR_IO_DEVICE;  // one that fails at once
        EXPECT_EQ(rig.Read(), ERROR_IO_DEVICE);
        EXPECT_EQ(rig.overlapped.Internal, STATUS_PENDING);
        EXPECT_FALSE(rig.Signalled());
        EXPECT_EQ(rig.Outcome(), ERROR_IO_INCOMPLETE);
    });
}

TEST(Requests, StoreAStatusThatReadsBackAsTheirError) {
    WithRig([](Rig& rig) {
        const std::pair<DWORD, ULONG_PTR> cases[] = {{ERROR_OPERATION_ABORTED, 0xC0000120},
                                                     {ERROR_GEN_FAILURE, 0xC0000001},
                                                     {ERROR_SEM_TIMEOUT, 0xC00000B5},
                                                     {ERROR_ACCESS_DENIED, 0x80070005}};
        for (const auto& [error, status] : cases) {
            rig.Read();
            {
                const hosted::DeviceLock lock;
                rig.request->Fail(error, 2);
            }
            EXPECT_EQ(rig.overlapped.Internal, status);
            EXPECT_EQ(rig.Outcome(), error);
            EXPECT_EQ(rig.moved, 2U);
        }
        // What a host stores itself, sign-extended or not, and with no handle to look at.
        CloseHandle(rig.device);
        for (const ULONG_PTR stored : {ULONG_PTR{0x80070016}, ULONG_PTR{0xFFFFFFFF80070016}}) {
            rig.overlapped.Internal = stored;
            EXPECT_EQ(rig.Outcome(), 22U);
        }
    });
}

TEST(Requests, AreCancelledByCallByCloseAndByTheirThreadsEnd) {
    WithRig([](Rig& rig) {
        EXPECT_EQ(ErrorOf(CancelIoEx(rig.device, &rig.overlapped)), ERROR_NOT_FOUND);
        rig.Read();
        EXPECT_TRUE(CancelIoEx(rig.device, &rig.overlapped));
        EXPECT_TRUE(rig.Signalled());
        EXPECT_EQ(rig.Outcome(), ERROR_OPERATION_ABORTED);

        Join({Go([&] { EXPECT_EQ(rig.Read(), ERROR_IO_PENDING); })});
        EXPECT_EQ(rig.Outcome(), ERROR_OPERATION_ABORTED);
        EXPECT_EQ(rig.cancelled, 2U);

        const HANDLE waiter = Go([&] {
            EXPECT_EQ(rig.Read(), ERROR_IO_PENDING);
            EXPECT_EQ(rig.Outcome(TRUE), ERROR_OPERATION_ABORTED);
        });
        AwaitWaiters(1);
        EXPECT_TRUE(CloseHandle(rig.device));
        Join({waiter});
    });
}

TEST(Requests, OfOneHandleAreAllCancelledByACallWithoutAnOverlapped) {
    WithRig([](Rig& rig) {
        EXPECT_EQ(ErrorOf(CancelIoEx(rig.device, nullptr)), ERROR_NOT_FOUND);
        CloseHandle(rig.device);
        rig.device = Open(kPath, kShareBoth);
        const HANDLE other = Open(kPath, kShareBoth);
        OVERLAPPED second{};
        OVERLAPPED ofOther{};
        rig.Read();
        ReadFile(rig.device, rig.buffer, 1, nullptr, &second);
        ReadFile(other, rig.buffer, 1, nullptr, &ofOther);
        Join({Go([&] { EXPECT_TRUE(CancelIoEx(rig.device, nullptr)); })});  // not its own requests
        EXPECT_EQ(rig.Outcome(), ERROR_OPERATION_ABORTED);
        EXPECT_EQ(ErrorOf(GetOverlappedResult(rig.device, &second, &rig.moved, FALSE)),
                  ERROR_OPERATION_ABORTED);
        EXPECT_EQ(ofOther.Internal, STATUS_PENDING);
        EXPECT_EQ(ErrorOf(CancelIoEx(rig.device, nullptr)), ERROR_NOT_FOUND);
        CloseHandle(other);
    });
}

TEST(Requests, WithoutAnEventSignalTheDevice) {
    WithRig([](Rig& rig) {
        CloseHandle(std::exchange(rig.overlapped.hEvent, nullptr));
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(rig.Read(), ERROR_IO_PENDING);
            EXPECT_EQ(WaitForSingleObject(rig.device, 0), WAIT_TIMEOUT);  // reset by the start
            rig.CompleteLater();
            EXPECT_EQ(rig.Outcome(TRUE), ERROR_SUCCESS);
            EXPECT_EQ(WaitForSingleObject(rig.device, 0), WAIT_OBJECT_0);
        }
    });
}

TEST(Devices, AreOpenedByPathAndShareModeAndClosedWithTheirLastHandle) {
    WithRig([](Rig& rig) {
        EXPECT_EQ(Open(L"\\\\.\\NONE"), INVALID_HANDLE_VALUE);
        EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
        EXPECT_EQ(Open(L"\\\\.\\fake", kShareBoth), INVALID_HANDLE_VALUE);
        EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
        CloseHandle(rig.device);
        const HANDLE first = Open(kPath, kShareBoth);
        rig.device = Open(kPath, kShareBoth);
        EXPECT_EQ(Open(kPath, 0), INVALID_HANDLE_VALUE);
        rig.Read();
        rig.errorAtClose = ERROR_DEVICE_NOT_CONNECTED;
        hosted::RemoveDevice(kPath);  // the open handles keep their device
        CloseHandle(first);
        EXPECT_EQ(rig.closed, 1U);  // not while the second handle is open
        CloseHandle(rig.device);
        EXPECT_EQ(rig.closed, 2U);
        EXPECT_EQ(rig.cancelled, 0U) << "a request that is left is the driver's to fail";
        EXPECT_EQ(rig.Outcome(), ERROR_DEVICE_NOT_CONNECTED);
    });
}

}  // namespace
