// Overlapped requests, handles and devices: Win32 but for the device of the tests. They run on the
// emulation and on Windows.
#include <algorithm>
#include <cstring>
#include <cwctype>
#include <set>
#include <utility>

#include "tests/platform/TestDevice.h"

namespace {

using namespace emulation_test;

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

void ExpectNothingToCancel(HANDLE handle, OVERLAPPED* which) {
    const bool succeeds = which == nullptr && WineDiffers("cancels all of none with success");
    EXPECT_EQ(ErrorOf(CancelIoEx(handle, which)), succeeds ? ERROR_SUCCESS : ERROR_NOT_FOUND);
}

TEST(Requests, ThatFailToStartAreNotPendingAndSignalNothing) {
    WithTestDevice([](TestDevice& device) {
        const DWORD error = device.FailStarts();
        EXPECT_EQ(device.Read(), error);
        ExpectNothingToCancel(device.handle, nullptr);
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
        AwaitEnd(device.overlapped);
        EXPECT_EQ(device.Outcome(), ERROR_OPERATION_ABORTED);
        EXPECT_EQ(second.Internal, STATUS_PENDING);
        JoinThreads({StartThread([&] { EXPECT_TRUE(CancelIoEx(device.handle, nullptr)); })});
        AwaitEnd(second);
        EXPECT_EQ(second.Internal, device.overlapped.Internal);
        EXPECT_EQ(ofOther.Internal, STATUS_PENDING);
        ExpectNothingToCancel(device.handle, &second);
        ExpectNothingToCancel(device.handle, nullptr);
        CloseHandle(other);
    });
}

TEST(Requests, EndWithTheirThread) {
    WithTestDevice([](TestDevice& device) {
        JoinThreads({StartThread([&] { device.Read(); })});
        AwaitEnd(device.overlapped);
        const DWORD outcome = device.Outcome();
        EXPECT_TRUE(outcome == ERROR_OPERATION_ABORTED ||
                    (outcome == ERROR_IO_INCOMPLETE &&
                     WineDiffers("often leaves a request pending whose thread has ended")))
            << outcome;
    });
}

TEST(Requests, EndWithTheirHandle) {
    WithTestDevice([](TestDevice& device) {
        const HANDLE other = Open();
        OVERLAPPED ofOther{};
        ReadFile(other, device.buffer, 1, nullptr, &ofOther);
        const HANDLE waiter = StartThread([&] {
            device.Read();
            EXPECT_EQ(device.Outcome(TRUE), kClosedError);
        });
        AwaitEventWaiters(1);
        if (!WineDiffers("takes a wait up by its handle when a request of the thread has ended")) {
            CloseHandle(device.overlapped.hEvent);  // the wait goes on
        }
        CloseHandle(device.handle);
        JoinThreads({waiter});
        EXPECT_EQ(ofOther.Internal, STATUS_PENDING);
        CloseHandle(other);
    });
}

TEST(Requests, HaveTheOutcomeOfTheirOverlappedAlone) {
    WithTestDevice([](TestDevice& device) {
        const std::pair<ULONG_PTR, DWORD> cases[] = {{0xC0000120, ERROR_OPERATION_ABORTED},
                                                     {0xC0000001, ERROR_GEN_FAILURE},
                                                     {0xC00000B5, ERROR_SEM_TIMEOUT},
                                                     {0xC0000185, ERROR_IO_DEVICE},
                                                     {0xC000009D, ERROR_DEVICE_NOT_CONNECTED},
                                                     {0x80070005, ERROR_ACCESS_DENIED},
                                                     {0xFFFFFFFF80070016, 22}};
        CloseHandle(device.handle);
        for (const auto& [status, error] : cases) {
            device.overlapped.Internal = status;
            device.overlapped.InternalHigh = 2;
            EXPECT_EQ(device.Outcome(), error);
            EXPECT_EQ(device.moved, 2U);
        }
    });
}

TEST(Handles, AreRefusedOnceClosedOrOfAnotherKind) {
    WithTestDevice([](TestDevice& device) {
        const HANDLE closed = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        EXPECT_TRUE(CloseHandle(closed));
        const auto cancelOf = [](HANDLE handle) {
            const bool isNone = WineDiffers("finds nothing to cancel on what is not a file");
            OVERLAPPED none{};
            return isNone ? ERROR_INVALID_HANDLE : ErrorOf(CancelIoEx(handle, &none));
        };
        for (const HANDLE handle : {HANDLE{nullptr}, closed}) {
            OVERLAPPED none = {};
            none.Internal = STATUS_PENDING;
            const std::set<DWORD> errors = {
                ErrorOf(SetEvent(handle)),
                ErrorOf(ResetEvent(handle)),
                ErrorOf(WaitForSingleObject(handle, INFINITE) != WAIT_FAILED),
                ErrorOf(CloseHandle(handle)),
                ErrorOf(GetOverlappedResult(handle, &none, &device.moved, TRUE)),
                ErrorOf(ReadFile(handle, device.buffer, 1, nullptr, &none)),
                ErrorOf(CancelIoEx(handle, &none)),
                ErrorOf(SetEvent(device.handle)),
                cancelOf(device.overlapped.hEvent),
            };
            EXPECT_EQ(errors, std::set<DWORD>{ERROR_INVALID_HANDLE});
        }
    });
}

// The value of a failed open is also the name of the own process.
TEST(Handles, OfAFailedOpenIsTheProcess) {
    WithTestDevice([](TestDevice& device) {
        EXPECT_EQ(ErrorOf(SetEvent(INVALID_HANDLE_VALUE)), ERROR_INVALID_HANDLE);
        EXPECT_EQ(
            ErrorOf(ReadFile(INVALID_HANDLE_VALUE, device.buffer, 1, nullptr, &device.overlapped)),
            ERROR_INVALID_HANDLE);
        EXPECT_EQ(WaitForSingleObject(INVALID_HANDLE_VALUE, 5), WAIT_TIMEOUT);
        EXPECT_TRUE(CloseHandle(INVALID_HANDLE_VALUE));
    });
}

TEST(Devices, AreOpenedByPathAndShareMode) {
    WithTestDevice([](TestDevice& device) {
        const std::wstring path = SharedPath();
        std::wstring lower = path;
        std::transform(path.begin(), path.end(), lower.begin(), [](wchar_t c) {
            return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c)));
        });
        CloseHandle(device.handle);
        EXPECT_EQ(Open(kShareBoth, L"\\\\.\\NONE"), INVALID_HANDLE_VALUE);
        EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
        device.handle = Open(kShareBoth, path.c_str());
        EXPECT_TRUE(CloseHandle(Open(kShareBoth, lower.c_str())));
        EXPECT_EQ(Open(0, path.c_str()), INVALID_HANDLE_VALUE);
        EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
        CloseHandle(device.handle);
        device.handle = Open(0, path.c_str());
        EXPECT_EQ(Open(kShareBoth, path.c_str()), INVALID_HANDLE_VALUE);
        EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
    });
}

}  // namespace
