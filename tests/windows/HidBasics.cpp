// The HID test drivers, loaded: discovery data, one report in each direction, unplugging and coming
// back, and a keyboard with another report size. Answers the requests itself.
#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/windows/Win32.h"
#include "simulator/windows/RelayControl.h"
#include "simulator/windows/hid/HidInstall.h"

#include <hidpi.h>

namespace {

constexpr DWORD kReportSize = 64;
constexpr DWORD kBound = 5'000;
constexpr std::uint32_t kLongReports = TAGPORT_RELAY_LONG_REPORTS;

int g_failures = 0;

void Check(bool good, const char* what, DWORD value = 0) {
    std::printf("%s %s (%lu)\n", good ? "ok  " : "FAIL", what, value);
    std::fflush(stdout);
    g_failures += good ? 0 : 1;
}

HANDLE OpenKeyboard() {
    for (const std::wstring& path : simulator::HidPaths()) {
        if (path.rfind(simulator::kHidKeyboardPath, 0) == 0) {
            return CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                               FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                               FILE_FLAG_OVERLAPPED, nullptr);
        }
    }
    return INVALID_HANDLE_VALUE;
}

// One transfer of a host, and its last-error code.
struct Transfer {
    OVERLAPPED overlapped{};
    std::array<std::uint8_t, kReportSize> bytes{};
    DWORD moved = 0;

    Transfer() { overlapped.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr); }
    ~Transfer() { CloseHandle(overlapped.hEvent); }
    DWORD Start(HANDLE device, bool read) {
        const BOOL done = read ? ReadFile(device, bytes.data(), kReportSize, nullptr, &overlapped)
                               : WriteFile(device, bytes.data(), kReportSize, nullptr, &overlapped);
        return done ? ERROR_SUCCESS : GetLastError();
    }
    DWORD End(HANDLE device) {
        if (WaitForSingleObject(overlapped.hEvent, kBound) != WAIT_OBJECT_0) {
            return WAIT_TIMEOUT;
        }
        return GetOverlappedResult(device, &overlapped, &moved, FALSE) ? ERROR_SUCCESS
                                                                       : GetLastError();
    }
};

// Answers reads with reports that are given to it, and keeps what is written.
class Keyboard {
  public:
    explicit Keyboard(simulator::RelayControl& control) : m_control(control) {}

    void Run() {
        while (const auto message = m_control.Next()) {
            const std::lock_guard<std::mutex> guard(m_mutex);
            if (message->kind == kRelayRead) {
                m_read = message->id;
                m_readLength = message->length;
            } else if (message->kind == kRelayWrite) {
                m_written.assign(message->data, message->data + message->dataSize);
                RelayAnswer answer = {};
                answer.id = message->id;
                answer.count = message->dataSize;
                m_control.Answer(answer);
                SetEvent(m_wrote);
            } else if (message->kind == kRelayCancel) {
                m_read = message->id == m_read ? 0 : m_read;
            }
        }
    }
    bool Send(std::uint8_t first) {
        for (int attempt = 0; attempt < 500; ++attempt) {
            {
                const std::lock_guard<std::mutex> guard(m_mutex);
                if (m_read != 0) {
                    RelayAnswer answer = {};
                    answer.id = m_read;
                    answer.count = answer.dataSize = m_readLength;
                    answer.data[0] = 5;
                    answer.data[1] = first;
                    m_read = 0;
                    return m_control.Answer(answer);
                }
            }
            Sleep(10);
        }
        return false;
    }
    std::vector<std::uint8_t> Written() {
        WaitForSingleObject(m_wrote, kBound);
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_written;
    }

  private:
    simulator::RelayControl& m_control;
    std::mutex m_mutex;
    std::uint64_t m_read = 0;
    std::uint32_t m_readLength = 0;
    std::vector<std::uint8_t> m_written;
    HANDLE m_wrote = CreateEventW(nullptr, FALSE, FALSE, nullptr);
};

// Wine 8 counts one byte too few of a written report, and ends the requests to an unplugged device
// with another code.
bool IsWine() {
    return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

std::wstring OwnDirectory() {
    std::wstring path(MAX_PATH, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), MAX_PATH));
    return path.substr(0, path.rfind(L'\\') + 1);
}

}  // namespace

int main() {
    simulator::InstallHid(OwnDirectory());
    simulator::RelayControl control(TAGPORT_RELAY_HID_CONTROL);
    Keyboard keyboard(control);
    std::thread server([&] { keyboard.Run(); });
    Check(OpenKeyboard() == INVALID_HANDLE_VALUE, "no keyboard before it is plugged");

    for (int round = 0; round < 3; ++round) {
        DWORD error = control.Plug(kRelayHid, 1);
        Check(error == 0, "plugged", error);
        Check(simulator::AwaitHid(true), "all devices there");
        const HANDLE device = OpenKeyboard();
        Check(device != INVALID_HANDLE_VALUE, "opened", GetLastError());
        HIDD_ATTRIBUTES attributes = {};
        attributes.Size = sizeof(attributes);
        Check(HidD_GetAttributes(device, &attributes) != FALSE, "attributes", GetLastError());
        Check(attributes.VendorID == 0x7A3E && attributes.ProductID == 0x10B8, "identity",
              attributes.ProductID);
        PHIDP_PREPARSED_DATA data = nullptr;
        HIDP_CAPS caps = {};
        Check(HidD_GetPreparsedData(device, &data) != FALSE, "preparsed data", GetLastError());
        HidP_GetCaps(data, &caps);
        HidD_FreePreparsedData(data);
        Check(caps.UsagePage == 0x464E && caps.Usage == 0x43, "usage", caps.Usage);
        Check(caps.InputReportByteLength == kReportSize, "input size", caps.InputReportByteLength);
        Check(caps.OutputReportByteLength == kReportSize, "output size",
              caps.OutputReportByteLength);

        Transfer write;
        write.bytes = {5, 1, 1, 8, static_cast<std::uint8_t>(round)};
        error = write.Start(device, false);
        Check(error == ERROR_IO_PENDING, "write pends", error);
        error = write.End(device);
        Check(error == 0, "written", error);
        Check(write.moved == kReportSize - (IsWine() ? 1 : 0), "bytes written", write.moved);
        const std::vector<std::uint8_t> seen = keyboard.Written();
        Check(seen.size() == kReportSize && std::memcmp(seen.data(), write.bytes.data(), 64) == 0,
              "the process has it", static_cast<DWORD>(seen.size()));

        Transfer read;
        error = read.Start(device, true);
        Check(error == ERROR_IO_PENDING, "read pends", error);
        Check(keyboard.Send(42), "report sent");
        error = read.End(device);
        Check(error == 0 && read.moved == kReportSize && read.bytes[1] == 42, "read", error);

        Transfer cancelled;
        cancelled.Start(device, true);
        Check(CancelIoEx(device, &cancelled.overlapped) != FALSE, "cancelled", GetLastError());
        error = cancelled.End(device);
        Check(error == ERROR_OPERATION_ABORTED, "cancelled read ends", error);

        Transfer last;
        last.Start(device, true);
        error = control.Plug(kRelayHid, 0);
        Check(error == 0, "unplugged", error);
        error = last.End(device);
        Check(error == (IsWine() ? ERROR_ACCESS_DENIED : ERROR_DEVICE_NOT_CONNECTED),
              "pending read ends", error);
        CloseHandle(device);
        Check(simulator::AwaitHid(false), "gone from the list");
    }

    control.Plug(kRelayHid, kLongReports);
    simulator::AwaitHid(true);
    const HANDLE device = OpenKeyboard();
    Transfer longRead;
    Transfer longWrite;
    DWORD error = longRead.Start(device, true);
    if (error == ERROR_IO_PENDING) {
        keyboard.Send(43);
        error = longRead.End(device);
    }
    Check(error != 0, "short read of long reports is refused", error);
    error = longWrite.Start(device, false);
    Check(error != 0 && error != ERROR_IO_PENDING, "short write of long reports is refused", error);
    CloseHandle(device);
    control.Stop();
    server.join();
    std::printf("%d failures\n", g_failures);
    return g_failures == 0 ? 0 : 1;
}
