// A host as it is on a PC: a Windows service that keeps the tag filled and gives it a new number
// each minute. It fills the tag again when the PC has resumed, when a device has arrived, and when
// it gets the control 128. Its lines go to service_host.log beside the program.
//   sc create tagport-host binPath= C:\full\path\service_host.exe
//   sc start tagport-host
#include "RenewingHost.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

// In this order.
#include <windows.h>

#include <dbt.h>

namespace {

constexpr wchar_t kName[] = L"tagport-host";
constexpr DWORD kFillAgain = 128;  // the first control that a service defines itself
constexpr DWORD kRenewal = 60'000;
constexpr DWORD kSettling = 1'000;  // devices arrive in groups, and their drivers start
// The library reads the number back behind a URI of 50 bytes.
constexpr char kUrl[] = "example.com/a-pc-that-is-known-by-its-number/?x=y&";
static_assert(sizeof(kUrl) - 1 == 50);

SERVICE_STATUS_HANDLE g_service;
HANDLE g_stop;   // manual reset
HANDLE g_again;  // auto reset: many arrivals are one reason

void Log(const std::string& line) {
    static std::mutex mutex;
    const std::lock_guard<std::mutex> guard(mutex);
    char path[MAX_PATH] = {};
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    const std::string program = path;
    std::FILE* const file =
        std::fopen((program.substr(0, program.rfind('.')) + ".log").c_str(), "a");
    if (file != nullptr) {
        std::fprintf(file, "%s\n", line.c_str());
        std::fclose(file);
    }
}

void OnEvent(int event, const std::uint8_t (&)[32], int route) {
    Log((event == 3   ? "a phone came on route "
         : event == 1 ? "a phone left on route "
                      : "the tag started on route ") +
        std::to_string(route));
}

void Report(DWORD state) {
    SERVICE_STATUS status = {};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted =
        SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN | SERVICE_ACCEPT_POWEREVENT;
    status.dwWaitHint = 60'000;  // an operation on a driver that ends no request
    SetServiceStatus(g_service, &status);
}

// Does nothing that can block: the library is called by Serve alone.
DWORD WINAPI OnControl(DWORD control, DWORD type, void* /*data*/, void* /*context*/) {
    switch (control) {
        case SERVICE_CONTROL_STOP:
        case SERVICE_CONTROL_SHUTDOWN:
            Report(SERVICE_STOP_PENDING);
            SetEvent(g_stop);
            return NO_ERROR;
        case SERVICE_CONTROL_POWEREVENT:
            // At a suspend drivers cancel requests, and the event threads end.
            if (type == PBT_APMRESUMEAUTOMATIC) {
                SetEvent(g_again);
            }
            return NO_ERROR;
        case SERVICE_CONTROL_DEVICEEVENT:
            if (type == DBT_DEVICEARRIVAL) {
                SetEvent(g_again);
            }
            return NO_ERROR;
        case kFillAgain:
            SetEvent(g_again);
            return NO_ERROR;
        case SERVICE_CONTROL_INTERROGATE:
            return NO_ERROR;
        default:
            return ERROR_CALL_NOT_IMPLEMENTED;
    }
}

void Serve() {
    const auto message = std::make_shared<NdefMessage>();
    message->SetUrl(kUrl);
    message->SetPcType(5);
    RenewingHost host(message, &OnEvent);
    const auto fill = [&host] { Log(host.Tick() ? "the tag is filled" : "no tag"); };
    fill();
    const HANDLE signals[] = {g_stop, g_again};
    while (true) {
        switch (WaitForMultipleObjects(2, signals, FALSE, kRenewal)) {
            case WAIT_OBJECT_0:
                return;
            case WAIT_OBJECT_0 + 1:
                if (WaitForSingleObject(g_stop, kSettling) == WAIT_TIMEOUT) {
                    fill();
                }
                break;
            default:
                fill();
        }
    }
}

void WINAPI Main(DWORD /*argc*/, wchar_t** /*argv*/) {
    g_stop = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    g_again = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    g_service = RegisterServiceCtrlHandlerExW(kName, &OnControl, nullptr);
    DEV_BROADCAST_DEVICEINTERFACE_W filter = {};
    filter.dbcc_size = sizeof(filter);
    filter.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    if (RegisterDeviceNotificationW(
            g_service, &filter,
            DEVICE_NOTIFY_SERVICE_HANDLE | DEVICE_NOTIFY_ALL_INTERFACE_CLASSES) == nullptr) {
        Log("arrivals of devices are not reported");
    }
    Report(SERVICE_RUNNING);
    Log("started");
    Serve();
    Log("stopped");
    Report(SERVICE_STOPPED);
}

}  // namespace

int main() {
    SERVICE_TABLE_ENTRYW table[] = {{const_cast<wchar_t*>(kName), &Main}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherW(table) ? EXIT_SUCCESS : EXIT_FAILURE;
}
