// The device of the tests of overlapped requests. On the emulation it is a driver that does what
// the test says; on Windows the client's end of a named pipe, so that no driver has to be loaded.
#pragma once

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "tests/platform/EmulationFixture.h"

namespace emulation_test {

constexpr DWORD kShareBoth = FILE_SHARE_READ | FILE_SHARE_WRITE;

/// A handle of the device, and one OVERLAPPED with a manual-reset event.
struct OpenedDevice {
    HANDLE handle = nullptr;
    OVERLAPPED overlapped{};
    std::uint8_t buffer[4] = {};
    DWORD moved = 0;

    DWORD Read() { return ErrorOf(ReadFile(handle, buffer, 3, nullptr, &overlapped)); }
    DWORD Outcome(BOOL wait = FALSE) {
        return ErrorOf(GetOverlappedResult(handle, &overlapped, &moved, wait));
    }
};

#ifdef _WIN32

constexpr const wchar_t* kPath = L"\\\\.\\pipe\\tagport-test";

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

/// Each open of the pipe needs a server's end of its own.
inline void PrepareOpen(const wchar_t* path) {
    if (path == kPath) {
        constexpr DWORD kBufferSize = 64;
        Servers().push_back(CreateNamedPipeW(kPath, PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE,
                                             PIPE_UNLIMITED_INSTANCES, kBufferSize, kBufferSize, 0,
                                             nullptr));
        EXPECT_NE(Servers().back(), INVALID_HANDLE_VALUE);
    }
}

struct TestDevice : OpenedDevice {
    /// Requests fail at their start from now on, with the error that is returned.
    DWORD FailStarts() {
        EXPECT_TRUE(DisconnectNamedPipe(Servers().front()));
        return ERROR_PIPE_NOT_CONNECTED;
    }
    void CompleteLater() {
        DWORD written = 0;
        EXPECT_TRUE(WriteFile(Servers().front(), "\1\2\3", 3, &written, nullptr));
    }
};

inline std::shared_ptr<TestDevice> Plug() {
    return std::make_shared<TestDevice>();
}

inline void Unplug() {
    for (const HANDLE server : Servers()) {
        CloseHandle(server);
    }
    Servers().clear();
    std::filesystem::remove(TemporaryPath());
}

#else

constexpr const wchar_t* kPath = L"\\\\.\\FAKE";

/// The error of a request that ends because its handle is closed.
constexpr DWORD kClosedError = ERROR_OPERATION_ABORTED;

/// Waits for the end of a request that was cancelled, which is immediate here.
inline void AwaitEnd(const OVERLAPPED& /*overlapped*/) {}

/// What opens only as the share modes allow.
inline std::wstring SharedPath() {
    return kPath;
}

inline void PrepareOpen(const wchar_t* /*path*/) {}

struct TestDevice : emulation::Driver, OpenedDevice {
    DWORD answer = ERROR_IO_PENDING;
    std::vector<emulation::RequestPtr> requests;

    DWORD Start(const emulation::RequestPtr& started) override {
        requests.push_back(started);
        return answer;
    }
    void Close() override {
        for (const emulation::RequestPtr& request : requests) {
            request->Fail(ERROR_DEVICE_NOT_CONNECTED);
        }
    }

    /// Requests fail at their start from now on, with the error that is returned.
    DWORD FailStarts() { return answer = ERROR_IO_DEVICE; }
    void CompleteLater() {
        emulation::After(emulation::kMillisecond, [request = requests.back()] {
            const std::uint8_t bytes[] = {1, 2, 3, 4, 5};
            request->Complete(bytes, sizeof bytes);  // three of them
            request->Fail(ERROR_GEN_FAILURE);        // too late
        });
    }
};

inline std::shared_ptr<TestDevice> Plug() {
    auto device = std::make_shared<TestDevice>();
    emulation::AddDevice(kPath, device);
    return device;
}

inline void Unplug() {
    emulation::RemoveDevice(kPath);
}

#endif

inline HANDLE Open(DWORD share = kShareBoth, const wchar_t* path = kPath) {
    PrepareOpen(path);
    return CreateFileW(path, GENERIC_READ | GENERIC_WRITE, share, nullptr, OPEN_EXISTING,
                       FILE_FLAG_OVERLAPPED, nullptr);
}

/// Runs the body on each clock with a device of its own.
inline void WithTestDevice(void (*body)(TestDevice& device)) {
    OnBothClocks([body] {
        const auto device = Plug();
        device->handle = Open();
        device->overlapped.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        body(*device);
        CloseHandle(device->handle);
        CloseHandle(device->overlapped.hEvent);
        Unplug();
    });
}

}  // namespace emulation_test
