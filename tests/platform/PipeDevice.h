// The device of the tests of overlapped requests on Windows: the client's end of a named pipe, so
// that no driver has to be loaded.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/platform/EmulationFixture.h"

namespace emulation_test {

constexpr const wchar_t* kPath = L"\\\\.\\pipe\\tagport-test";
constexpr DWORD kShareBoth = FILE_SHARE_READ | FILE_SHARE_WRITE;

/// A pipe refuses its reader like that.
constexpr DWORD kClosedError = ERROR_BROKEN_PIPE;

/// Waits for the end of a request that was cancelled: CancelIoEx does not wait for it.
inline void AwaitEnd(const OVERLAPPED& overlapped) {
    const volatile ULONG_PTR& status = overlapped.Internal;
    for (int i = 0; i < 200 && status == STATUS_PENDING; ++i) {
        SleepEx(5, TRUE);
    }
}

/// What opens only as the share modes allow: a file.
inline std::wstring SharedPath() {
    const std::filesystem::path file = TemporaryPath();
    std::ofstream(file) << "shared";
    return file.wstring();
}

/// The servers' ends, in the order of the opens.
inline std::vector<HANDLE>& Servers() {
    static std::vector<HANDLE> servers;
    return servers;
}

inline HANDLE Open(DWORD share = kShareBoth, const wchar_t* path = kPath) {
    if (path == kPath) {
        constexpr DWORD kBufferSize = 64;
        Servers().push_back(CreateNamedPipeW(kPath, PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE,
                                             PIPE_UNLIMITED_INSTANCES, kBufferSize, kBufferSize, 0,
                                             nullptr));
        EXPECT_NE(Servers().back(), INVALID_HANDLE_VALUE);
    }
    return CreateFileW(path, GENERIC_READ | GENERIC_WRITE, share, nullptr, OPEN_EXISTING,
                       FILE_FLAG_OVERLAPPED, nullptr);
}

/// A handle of the client's end, and one OVERLAPPED with a manual-reset event.
struct TestDevice {
    HANDLE handle = nullptr;
    OVERLAPPED overlapped{};
    std::uint8_t buffer[4] = {};
    DWORD moved = 0;

    DWORD Read() { return ErrorOf(ReadFile(handle, buffer, 3, nullptr, &overlapped)); }
    DWORD Outcome(BOOL wait = FALSE) {
        return ErrorOf(GetOverlappedResult(handle, &overlapped, &moved, wait));
    }
    /// Requests fail at their start from now on, with the error that is given.
    DWORD FailStarts() {
        EXPECT_TRUE(DisconnectNamedPipe(Servers().front()));
        return ERROR_PIPE_NOT_CONNECTED;
    }
    void CompleteLater() {
        DWORD written = 0;
        EXPECT_TRUE(WriteFile(Servers().front(), "\1\2\3", 3, &written, nullptr));
    }
};

/// Runs the body with a device of its own.
inline void WithTestDevice(void (*body)(TestDevice& device)) {
    OnBothClocks([body] {
        TestDevice device;
        device.handle = Open();
        device.overlapped.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        body(device);
        CloseHandle(device.handle);
        CloseHandle(device.overlapped.hEvent);
        for (const HANDLE server : Servers()) {
            CloseHandle(server);
        }
        Servers().clear();
        std::filesystem::remove(TemporaryPath());
    });
}

}  // namespace emulation_test
