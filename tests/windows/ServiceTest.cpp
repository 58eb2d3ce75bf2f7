// Installs examples/service_host as a service, takes it through requests that the driver cancels,
// as at a suspend, an unplugging, an arrival and a stop, and checks what it has logged. Needs the
// loaded drivers and nobody else at their devices.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "lab/DeviceProcessClient.h"
#include "platform/windows/Win32.h"

namespace {

constexpr DWORD kBound = 20'000;   // milliseconds
constexpr DWORD kFillAgain = 128;  // the service's own control

void Check(bool holds, const std::string& what) {
    if (!holds) {
        throw std::runtime_error(what + ", error " + std::to_string(GetLastError()));
    }
}

class Service {
  public:
    explicit Service(const std::filesystem::path& program)
        : m_log(std::filesystem::path(program).replace_extension(".log")) {
        std::filesystem::remove(m_log);
        const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
        m_service =
            CreateServiceW(manager, L"tagport-host", L"tagport-host", SERVICE_ALL_ACCESS,
                           SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                           program.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr);
        Check(m_service != nullptr, "the service is not installed");
        Check(StartServiceW(m_service, 0, nullptr), "the service is not started");
    }
    ~Service() {
        DeleteService(m_service);
        CloseServiceHandle(m_service);
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    void Control(DWORD control) const {
        SERVICE_STATUS status = {};
        Check(ControlService(m_service, control, &status), "a control is refused");
    }
    /// Waits for the next line of the log, and that it is this one.
    void Expect(const std::string& expected) {
        std::string line;
        for (DWORD waited = 0; line.empty(); waited += 20) {
            Check(waited < kBound, "no line '" + expected + "'");
            Sleep(20);
            std::ifstream log(m_log);
            for (unsigned at = 0; at <= m_seen && std::getline(log, line); ++at) {
                line = at < m_seen ? "" : line;
            }
        }
        ++m_seen;
        Check(line == expected, "the line '" + line + "' and not '" + expected + "'");
    }
    void AwaitStop() const {
        SERVICE_STATUS status = {};
        for (DWORD waited = 0; status.dwCurrentState != SERVICE_STOPPED; waited += 20) {
            Check(waited < kBound, "the service does not stop");
            Sleep(20);
            QueryServiceStatus(m_service, &status);
        }
    }

  private:
    std::filesystem::path m_log;
    SC_HANDLE m_service = nullptr;
    unsigned m_seen = 0;
};

}  // namespace

int main(int /*argc*/, char** argv) try {
    lab::DeviceProcess& devices = *new lab::DeviceProcess([](const std::string&) {});
    devices.Ask("pc usb");
    Service service(std::filesystem::absolute(argv[0]).replace_filename("service_host.exe"));
    const auto expectPhone = [&] {
        devices.Ask("tap 0 600");
        service.Expect("a phone came on route 2");
        service.Expect("a phone left on route 2");
    };
    service.Expect("started");
    service.Expect("the tag is filled");
    expectPhone();
    devices.Ask("cancel");
    devices.Ask("tap 0 600");  // nobody waits for it
    service.Control(kFillAgain);
    service.Expect("the tag is filled");
    expectPhone();
    devices.Ask("unplug");
    service.Control(kFillAgain);
    service.Expect("no tag");
    devices.Ask("plug");
    service.Control(kFillAgain);
    service.Expect("the tag is filled");
    expectPhone();
    service.Control(SERVICE_CONTROL_STOP);
    service.Expect("stopped");
    service.AwaitStop();
    std::fflush(stdout);
    TerminateProcess(GetCurrentProcess(), 0);  // the device process's thread still listens
} catch (const std::exception& problem) {
    std::printf("FAILED: %s\n", problem.what());
    return 1;
}
