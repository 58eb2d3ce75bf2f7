// The HID test drivers, loaded: discovery data, one report in each direction, unplugging and coming
// back. It is the device process itself.
// usage: hid_basics [other-size]
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/windows/Win32.h"
#include "testdrivers/RelayControl.h"
#include "testdrivers/hid/HidInstall.h"

#include <hidpi.h>
#include <process.h>

namespace {

constexpr DWORD kReportSize = 64;
constexpr DWORD kBound = 5'000;
constexpr std::uint8_t kReportId = 5;

int g_failures = 0;

void Check(bool good, const char* what, DWORD value = 0) {
    if (!good) {
        std::printf("failed: %s (%lu, error %lu)\n", what, value, GetLastError());
        ++g_failures;
    }
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
    /// Answers the read that waits, or the next one. False when there is none in time.
    bool Send(std::uint8_t first) {
        for (DWORD waited = 0; waited < kBound; ++waited) {
            {
                const std::lock_guard<std::mutex> guard(m_mutex);
                if (m_read != 0) {
                    RelayAnswer answer = {};
                    answer.id = m_read;
                    answer.count = answer.dataSize = m_readLength;
                    answer.data[0] = kReportId;
                    answer.data[1] = first;
                    m_read = 0;
                    return m_control.Answer(answer);
                }
            }
            Sleep(1);
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

void CheckDescription(HANDLE device) {
    HIDD_ATTRIBUTES attributes = {};
    attributes.Size = sizeof(attributes);
    HidD_GetAttributes(device, &attributes);
    Check(attributes.VendorID == 0x7A3E && attributes.ProductID == 0x10B8, "identity",
          attributes.ProductID);
    PHIDP_PREPARSED_DATA data = nullptr;
    HIDP_CAPS caps = {};
    HidD_GetPreparsedData(device, &data);
    HidP_GetCaps(data, &caps);
    HidD_FreePreparsedData(data);
    Check(caps.UsagePage == 0x464E && caps.Usage == 0x43, "usage", caps.Usage);
    Check(caps.InputReportByteLength == kReportSize, "input size", caps.InputReportByteLength);
    Check(caps.OutputReportByteLength == kReportSize, "output size", caps.OutputReportByteLength);
}

void CheckReports(HANDLE device, Keyboard& keyboard) {
    Transfer write;
    write.bytes = {kReportId, 1, 1, 8, 42};
    Check(write.Start(device, false) == ERROR_IO_PENDING, "write pends");
    DWORD error = write.End(device);
    Check(error == 0, "written", error);
    Check(write.moved == kReportSize - (IsWine() ? 1 : 0), "bytes written", write.moved);
    const std::vector<std::uint8_t> seen = keyboard.Written();
    Check(std::equal(seen.begin(), seen.end(), write.bytes.begin(), write.bytes.end()),
          "the process has it", static_cast<DWORD>(seen.size()));

    Transfer read;
    Check(read.Start(device, true) == ERROR_IO_PENDING, "read pends");
    Check(keyboard.Send(42), "report sent");
    error = read.End(device);
    Check(error == 0 && read.moved == kReportSize && read.bytes[1] == 42, "read", error);

    Transfer cancelled;
    cancelled.Start(device, true);
    Check(CancelIoEx(device, &cancelled.overlapped) != FALSE, "cancelled");
    error = cancelled.End(device);
    Check(error == ERROR_OPERATION_ABORTED, "cancelled read ends", error);
}

void PlugIn(simulator::RelayControl& control, std::uint32_t present) {
    const DWORD error = control.Plug(kRelayHid, present);
    Check(error == 0, "plugged or unplugged", error);
    Check(simulator::AwaitHid(present != 0), "the system has seen it");
}

void PlayRound(simulator::RelayControl& control, Keyboard& keyboard) {
    PlugIn(control, 1);
    const HANDLE device = OpenKeyboard();
    Check(device != INVALID_HANDLE_VALUE, "opened");
    CheckDescription(device);
    CheckReports(device, keyboard);
    Transfer last;
    last.Start(device, true);
    PlugIn(control, 0);
    const DWORD error = last.End(device);
    Check(error == (IsWine() ? ERROR_ACCESS_DENIED : ERROR_DEVICE_NOT_CONNECTED),
          "pending read ends", error);
    CloseHandle(device);
}

// Runs the lab against a keyboard whose reports are longer than the library's.
int PlayOtherSize(simulator::RelayControl& control, const char* program) {
    PlugIn(control, TAGPORT_RELAY_LONG_REPORTS);
    return static_cast<int>(
        _spawnl(_P_WAIT,
                std::filesystem::path(program).replace_filename("tagport-lab.exe").string().c_str(),
                "tagport-lab", "run", "--json", "--config", "examples", nullptr));
}

}  // namespace

int main(int argc, char** argv) {
    constexpr int kRounds = 3;
    simulator::RelayControl control(TAGPORT_RELAY_HID_CONTROL);
    Keyboard keyboard(control);
    std::thread([&] { keyboard.Run(); }).detach();
    int status = 0;
    if (argc > 1 && std::strcmp(argv[1], "other-size") == 0) {
        status = PlayOtherSize(control, argv[0]);
    } else {
        for (int round = 0; round < kRounds; ++round) {
            PlayRound(control, keyboard);
        }
        std::printf("%d failures\n", g_failures);
        status = g_failures == 0 ? 0 : 1;
    }
    std::fflush(stdout);
    control.Plug(kRelayHid, 0);
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(status));
}
