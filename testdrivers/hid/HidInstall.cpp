// The bus is registered as a device of the system's root. Its devices get their keys, which name
// the minidriver's service, before the bus reports them.
#include "testdrivers/hid/HidInstall.h"

#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "platform/windows/Win32.h"
#include "testdrivers/DriverService.h"
#include "testdrivers/hid/HidNames.h"

namespace simulator {

namespace {

constexpr wchar_t kBusInstance[] = TAGPORT_HID_BUS_ID L"\\0000";
constexpr wchar_t kEnum[] = L"System\\CurrentControlSet\\Enum\\";
constexpr const wchar_t* kDevices[] = {TAGPORT_HID_MOUSE, TAGPORT_HID_KEYS, TAGPORT_HID_OTHER,
                                       TAGPORT_HID_KEYBOARD, TAGPORT_HID_LAST};
constexpr wchar_t kHidClass[] = L"{745a17a0-74d3-11d0-b6fe-00a0c90f57da}";
// The class "System": of no importance, but every device needs one.
constexpr GUID kClass = {
    0x4d36e97d, 0xe325, 0x11ce, {0xbf, 0xc1, 0x08, 0x00, 0x2b, 0xe1, 0x03, 0x18}};

[[noreturn]] void Throw(const char* step, DWORD error) {
    throw std::runtime_error(std::string(step) + " failed, error " + std::to_string(error));
}

struct DestroySet {
    void operator()(HDEVINFO set) const { SetupDiDestroyDeviceInfoList(set); }
};
using DeviceSet = std::unique_ptr<std::remove_pointer_t<HDEVINFO>, DestroySet>;

DeviceSet NewSet() {
    return DeviceSet(SetupDiCreateDeviceInfoList(&kClass, nullptr));
}

void SetText(HDEVINFO set, SP_DEVINFO_DATA& device, DWORD property, const std::wstring& text) {
    // With both zeros of a list of one text.
    const auto* const bytes = reinterpret_cast<const BYTE*>(text.c_str());
    const auto size = static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
    if (!SetupDiSetDeviceRegistryPropertyW(set, &device, property, bytes, size)) {
        Throw("the registration of the HID bus", GetLastError());
    }
}

void RegisterBus() {
    const DeviceSet set = NewSet();
    SP_DEVINFO_DATA device = {};
    device.cbSize = sizeof(device);
    if (SetupDiOpenDeviceInfoW(set.get(), kBusInstance, nullptr, 0, &device)) {
        return;
    }
    if (!SetupDiCreateDeviceInfoW(set.get(), kBusInstance, &kClass, nullptr, nullptr, 0, &device)) {
        Throw("the creation of the HID bus", GetLastError());
    }
    SetText(set.get(), device, SPDRP_HARDWAREID, std::wstring(TAGPORT_HID_BUS_ID) + L'\0');
    if (!SetupDiCallClassInstaller(DIF_REGISTERDEVICE, set.get(), &device)) {
        Throw("the registration of the HID bus", GetLastError());
    }
    SetText(set.get(), device, SPDRP_SERVICE, TAGPORT_HID_BUS_SERVICE);
}

std::wstring KeyOf(const std::wstring& device) {
    return std::wstring(kEnum) + TAGPORT_HID_ENUMERATOR L"\\" + device;
}

// Creates the device's key where there is none.
void SetValue(const std::wstring& device, const wchar_t* name, const std::wstring& text) {
    const LSTATUS result = RegSetKeyValueW(
        HKEY_LOCAL_MACHINE, (KeyOf(device) + L"\\" TAGPORT_HID_INSTANCE).c_str(), name, REG_SZ,
        text.c_str(), static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    if (result != ERROR_SUCCESS) {
        Throw("the registration of a HID device", static_cast<DWORD>(result));
    }
}

bool IsPathOf(const std::wstring& path, const std::wstring& device) {
    const std::wstring beginning = L"\\\\?\\hid#" + device + L"#";
    return _wcsnicmp(path.c_str(), beginning.c_str(), beginning.size()) == 0;
}

// Of all HID devices that are present.
std::vector<std::wstring> HidPaths() {
    constexpr std::size_t kMostBytes = 2'048;
    GUID hid = {};
    HidD_GetHidGuid(&hid);
    const HDEVINFO set =
        SetupDiGetClassDevsW(&hid, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
    std::vector<std::wstring> paths;
    SP_DEVICE_INTERFACE_DATA data = {};
    data.cbSize = sizeof(data);
    for (DWORD at = 0; SetupDiEnumDeviceInterfaces(set, nullptr, &hid, at, &data); ++at) {
        alignas(SP_DEVICE_INTERFACE_DETAIL_DATA_W) std::array<char, kMostBytes> room{};
        auto* const detail = new (room.data()) SP_DEVICE_INTERFACE_DETAIL_DATA_W{};
        detail->cbSize = sizeof(*detail);
        if (SetupDiGetDeviceInterfaceDetailW(set, &data, detail, room.size(), nullptr, nullptr)) {
            paths.emplace_back(detail->DevicePath);
        }
    }
    SetupDiDestroyDeviceInfoList(set);
    return paths;
}

}  // namespace

bool AwaitHid(bool present) {
    constexpr DWORD kBound = 5'000;
    constexpr DWORD kStep = 5;
    for (DWORD waited = 0; waited < kBound; waited += kStep) {
        const std::vector<std::wstring> paths = HidPaths();
        const auto found = std::count_if(paths.begin(), paths.end(), [](const std::wstring& path) {
            return std::any_of(std::begin(kDevices), std::end(kDevices),
                               [&](const wchar_t* device) { return IsPathOf(path, device); });
        });
        if (found == (present ? static_cast<std::ptrdiff_t>(std::size(kDevices)) : 0)) {
            return true;
        }
        Sleep(kStep);
    }
    return false;
}

void InstallHid() {
    for (const wchar_t* const device : kDevices) {
        SetValue(device, L"Service", TAGPORT_HID_MINI_SERVICE);
        SetValue(device, L"ClassGUID", kHidClass);
    }
    RegisterBus();
    LoadDriver(TAGPORT_HID_MINI_SERVICE, false);
    LoadDriver(TAGPORT_HID_BUS_SERVICE);
}

void RemoveHid() {
    const DeviceSet set = NewSet();
    SP_DEVINFO_DATA device = {};
    device.cbSize = sizeof(device);
    if (SetupDiOpenDeviceInfoW(set.get(), kBusInstance, nullptr, 0, &device)) {
        SetupDiCallClassInstaller(DIF_REMOVE, set.get(), &device);
    }
    UnloadDriver(TAGPORT_HID_BUS_SERVICE);
    UnloadDriver(TAGPORT_HID_MINI_SERVICE);
    for (const wchar_t* const name : kDevices) {
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, KeyOf(name).c_str());
    }
}

}  // namespace simulator
