// The device of the tests of overlapped requests: a driver of the emulation that does what the
// test says.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "tests/platform/EmulationFixture.h"

namespace emulation_test {

constexpr const wchar_t* kPath = L"\\\\.\\FAKE";
constexpr DWORD kShareBoth = FILE_SHARE_READ | FILE_SHARE_WRITE;

inline HANDLE Open(DWORD share = kShareBoth, const wchar_t* path = kPath) {
    return CreateFileW(path, GENERIC_READ | GENERIC_WRITE, share, nullptr, OPEN_EXISTING,
                       FILE_FLAG_OVERLAPPED, nullptr);
}

/// The error of a request that ends because its handle is closed.
constexpr DWORD kClosedError = ERROR_OPERATION_ABORTED;

/// Waits for the end of a request that was cancelled, which is immediate here.
inline void AwaitEnd(const OVERLAPPED& /*overlapped*/) {}

/// What opens only as the share modes allow.
inline std::wstring SharedPath() {
    return kPath;
}

/// A driver, a shared handle of its device, and one OVERLAPPED with a manual-reset event.
struct TestDevice : emulation::Driver {
    DWORD answer = ERROR_IO_PENDING;
    std::vector<emulation::RequestPtr> requests;

    HANDLE handle = nullptr;
    OVERLAPPED overlapped{};
    std::uint8_t buffer[4] = {};
    DWORD moved = 0;

    DWORD Start(const emulation::RequestPtr& started) override {
        requests.push_back(started);
        return answer;
    }
    void Close() override {
        for (const emulation::RequestPtr& request : requests) {
            request->Fail(ERROR_DEVICE_NOT_CONNECTED);
        }
    }

    DWORD Read() { return ErrorOf(ReadFile(handle, buffer, 3, nullptr, &overlapped)); }
    DWORD Outcome(BOOL wait = FALSE) {
        return ErrorOf(GetOverlappedResult(handle, &overlapped, &moved, wait));
    }
    /// Requests fail at their start from now on, with the error that is given.
    DWORD FailStarts() { return answer = ERROR_IO_DEVICE; }
    void CompleteLater() {
        emulation::After(emulation::kMillisecond, [request = requests.back()] {
            const std::uint8_t bytes[] = {1, 2, 3, 4, 5};
            request->Complete(bytes, sizeof bytes);  // three of them
            request->Fail(ERROR_GEN_FAILURE);        // too late
        });
    }
};

/// Runs the body on each clock with a device of its own.
inline void WithTestDevice(void (*body)(TestDevice& device)) {
    OnBothClocks([body] {
        const auto device = std::make_shared<TestDevice>();
        emulation::AddDevice(kPath, device);
        device->handle = Open();
        device->overlapped.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        body(*device);
        CloseHandle(device->handle);
        CloseHandle(device->overlapped.hEvent);
        emulation::RemoveDevice(kPath);
    });
}

}  // namespace emulation_test
