// Service manager calls with their handles.
#include "testdrivers/DriverService.h"

#include <cstdio>
#include <memory>
#include <stdexcept>

#include "platform/windows/Win32.h"

namespace simulator {

namespace {

struct CloseService {
    void operator()(SC_HANDLE handle) const { CloseServiceHandle(handle); }
};
using Service = std::unique_ptr<std::remove_pointer_t<SC_HANDLE>, CloseService>;

[[noreturn]] void Throw(const char* step, const std::wstring& name, DWORD error) {
    throw std::runtime_error(std::string(step) + " of the driver " +
                             std::string(name.begin(), name.end()) + " failed, error " +
                             std::to_string(error));
}

Service OpenManager(const std::wstring& name) {
    Service manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (manager == nullptr) {
        Throw("the opening of the service manager for the loading", name, GetLastError());
    }
    return manager;
}

std::wstring FileOf(const std::wstring& name) {
    constexpr std::size_t kLongestPath = 32'768;
    std::wstring path(kLongestPath, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), kLongestPath));
    return path.substr(0, path.rfind(L'\\') + 1) + name + L".sys";
}

Service Register(SC_HANDLE manager, const std::wstring& name, const std::wstring& file) {
    Service service(CreateServiceW(manager, name.c_str(), name.c_str(), SERVICE_ALL_ACCESS,
                                   SERVICE_KERNEL_DRIVER, SERVICE_DEMAND_START,
                                   SERVICE_ERROR_NORMAL, file.c_str(), nullptr, nullptr, nullptr,
                                   nullptr, nullptr));
    if (service == nullptr) {
        const DWORD error = GetLastError();
        if (error != ERROR_SERVICE_EXISTS) {
            Throw("the registration", name, error);
        }
        service.reset(OpenServiceW(manager, name.c_str(), SERVICE_ALL_ACCESS));
        // It may have been registered from another directory.
        if (service == nullptr ||
            !ChangeServiceConfigW(service.get(), SERVICE_NO_CHANGE, SERVICE_NO_CHANGE,
                                  SERVICE_NO_CHANGE, file.c_str(), nullptr, nullptr, nullptr,
                                  nullptr, nullptr, nullptr)) {
            Throw("the change of the registration", name, GetLastError());
        }
    }
    return service;
}

}  // namespace

void LoadDriver(const std::wstring& name, bool start) {
    const std::wstring file = FileOf(name);
    const Service manager = OpenManager(name);
    const Service service = Register(manager.get(), name, file);
    if (!start || StartServiceW(service.get(), 0, nullptr)) {
        return;
    }
    const DWORD error = GetLastError();
    if (error != ERROR_SERVICE_ALREADY_RUNNING) {
        Throw("the start", name, error);
    }
    std::fprintf(stderr, "the driver %ls runs already; its file %ls was not loaded\n", name.c_str(),
                 file.c_str());
}

void UnloadDriver(const std::wstring& name) {
    const Service manager = OpenManager(name);
    const Service service(OpenServiceW(manager.get(), name.c_str(), SERVICE_ALL_ACCESS));
    if (service == nullptr) {
        return;
    }
    SERVICE_STATUS status = {};
    if (!ControlService(service.get(), SERVICE_CONTROL_STOP, &status)) {
        const DWORD error = GetLastError();
        if (error == ERROR_SERVICE_CANNOT_ACCEPT_CTRL || error == ERROR_INVALID_SERVICE_CONTROL) {
            return;  // the system has started it for a device, and has not unloaded it
        }
        if (error != ERROR_SERVICE_NOT_ACTIVE) {
            Throw("the stop", name, error);
        }
    }
    if (!DeleteService(service.get())) {
        const DWORD error = GetLastError();
        if (error != ERROR_SERVICE_MARKED_FOR_DELETE) {
            Throw("the removal", name, error);
        }
    }
}

}  // namespace simulator
