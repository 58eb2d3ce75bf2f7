// The relay driver is stopped under an open handle with pending requests: each request is completed
// exactly once, nothing hangs, and the driver can be started again and serves. Needs the loaded
// driver and nobody else at its devices. It is the device process itself.
#include <atomic>
#include <cstdio>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "testdrivers/RelayControl.h"

namespace {

using simulator::RelayControl;

constexpr unsigned kRequests = 16;
constexpr DWORD kBound = 20'000;  // milliseconds
constexpr DWORD kQuiet = 500;     // after it nothing more is expected to come
constexpr wchar_t kPath[] = L"\\\\.\\SPBNFCDRIVER";

void Check(bool holds, const std::string& what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

template <class Predicate>
void Await(Predicate holds, const char* what) {
    for (DWORD waited = 0; !holds(); waited += 5) {
        Check(waited < kBound, std::string(what) + " within the bound");
        Sleep(5);
    }
}

class DriverService {
  public:
    DriverService()
        : m_manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT)),
          m_service(OpenServiceW(m_manager, L"tagport-relay", SERVICE_ALL_ACCESS)) {
        Check(m_service != nullptr, "the driver is not registered");
    }
    ~DriverService() {
        CloseServiceHandle(m_service);
        CloseServiceHandle(m_manager);
    }
    DriverService(const DriverService&) = delete;
    DriverService& operator=(const DriverService&) = delete;

    void Stop() const {
        SERVICE_STATUS status = {};
        Check(ControlService(m_service, SERVICE_CONTROL_STOP, &status) != FALSE,
              "the stop was refused, error " + std::to_string(GetLastError()));
    }
    void Start() const {
        Check(StartServiceW(m_service, 0, nullptr) != FALSE,
              "the driver does not start again, error " + std::to_string(GetLastError()));
    }
    DWORD State() const {
        SERVICE_STATUS status = {};
        Check(QueryServiceStatus(m_service, &status) != FALSE, "the state cannot be queried");
        return status.dwCurrentState;
    }

  private:
    SC_HANDLE m_manager;
    SC_HANDLE m_service;
};

// Answers every opening, and writes only when it is willing.
class Device {
  public:
    explicit Device(bool willing)
        : m_control(TAGPORT_RELAY_SPB_CONTROL), m_thread([this, willing] { Run(willing); }) {
        Check(m_control.Plug(kRelayI2c, 1) == 0, "the device could not be plugged");
    }
    ~Device() {
        m_control.Stop();
        m_thread.join();
    }
    unsigned opens() const { return m_opens; }
    unsigned writes() const { return m_writes; }

  private:
    void Run(bool willing) {
        while (const auto message = m_control.Next()) {
            RelayAnswer answer = {};
            answer.id = message->id;
            answer.count = message->dataSize;
            if (message->kind == kRelayOpen) {
                m_control.Answer(answer);
                ++m_opens;
            } else if (message->kind == kRelayWrite) {
                ++m_writes;
                if (willing) {
                    m_control.Answer(answer);
                }
            }
        }
    }

    RelayControl m_control;
    std::atomic<unsigned> m_opens{0};
    std::atomic<unsigned> m_writes{0};
    std::thread m_thread;
};

// A host with requests whose ends a completion port counts.
class Host {
  public:
    explicit Host(const Device& device)
        : m_handle(CreateFileW(kPath, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                               FILE_FLAG_OVERLAPPED, nullptr)) {
        Check(m_handle != INVALID_HANDLE_VALUE,
              "the device cannot be opened, error " + std::to_string(GetLastError()));
        m_port = CreateIoCompletionPort(m_handle, nullptr, 0, 1);
        Await([&] { return device.opens() == 1; }, "the device process saw no opening");
    }
    ~Host() {
        Close();
        CloseHandle(m_port);
    }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    void Send() {
        for (Request& request : m_requests) {
            Check(!WriteFile(m_handle, &request.byte, 1, nullptr, &request.overlapped) &&
                      GetLastError() == ERROR_IO_PENDING,
                  "a request was not pending");
        }
    }
    void Close() {
        if (m_handle != INVALID_HANDLE_VALUE) {
            CloseHandle(std::exchange(m_handle, INVALID_HANDLE_VALUE));
        }
    }
    /// How many requests have ended, after `patience` without a further end.
    std::size_t Ended(DWORD patience) {
        DWORD moved = 0;
        ULONG_PTR key = 0;
        OVERLAPPED* which = nullptr;
        while (m_ends.size() <= kRequests) {
            const BOOL good = GetQueuedCompletionStatus(m_port, &moved, &key, &which, patience);
            if (which == nullptr) {
                break;
            }
            const DWORD error = good ? ERROR_SUCCESS : GetLastError();
            Check(m_ends.emplace(which, error).second, "a request was completed twice");
        }
        return m_ends.size();
    }
    /// The last-error code of every end; they must be equal.
    DWORD Error() const {
        for (const auto& [which, error] : m_ends) {
            Check(error == m_ends.begin()->second, "the requests ended in different ways");
        }
        return m_ends.begin()->second;
    }

  private:
    struct Request {
        OVERLAPPED overlapped = {};
        char byte = 0;
    };
    HANDLE m_handle;
    HANDLE m_port = nullptr;
    Request m_requests[kRequests];
    std::map<const OVERLAPPED*, DWORD> m_ends;
};

// Windows keeps a driver while its devices have open handles: the stop is deferred, and the closing
// ends the requests. Wine unloads it at once.
void StopUnderRequests(const DriverService& service) {
    Device device(false);
    Host host(device);
    host.Send();
    Await([&] { return device.writes() == kRequests; }, "the requests did not arrive");
    service.Stop();
    const std::size_t atOnce = host.Ended(kQuiet);
    if (atOnce == 0) {
        Check(service.State() == SERVICE_STOP_PENDING, "the stop is neither done nor deferred");
    } else {
        std::puts("Wine stops a driver under an open handle");
    }
    Check(CreateFileW(kPath, GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED,
                      nullptr) == INVALID_HANDLE_VALUE,
          "a device of a stopped driver can be opened");
    host.Close();
    const std::size_t ended = host.Ended(kQuiet);
    std::printf("%zu requests ended at the stop, %zu at the closing, with %lu\n", atOnce,
                ended - atOnce, host.Error());
    Check(ended == kRequests, "a request was left pending");
    Check(host.Error() == (atOnce == 0 ? ERROR_OPERATION_ABORTED : ERROR_DEVICE_NOT_CONNECTED),
          "with another error than expected");
}

void ServeAgain() {
    const Device device(true);
    Host host(device);
    host.Send();
    Check(host.Ended(kQuiet) == kRequests && host.Error() == ERROR_SUCCESS,
          "the driver does not serve after its second start");
}

}  // namespace

int main() {
    try {
        const DriverService service;
        for (int turn = 0; turn < 3; ++turn) {
            StopUnderRequests(service);
            Await([&] { return service.State() == SERVICE_STOPPED; }, "the driver has not stopped");
            service.Start();
            ServeAgain();
        }
    } catch (const std::exception& problem) {
        std::printf("FAILED: %s\n", problem.what());
        std::fflush(stdout);
        return 1;
    }
    return 0;
}
