#include "routes/HidDiscovery.h"

#include <array>
#include <cstdint>
#include <cwchar>
#include <new>
#include <string_view>

#include "diagnostics/Log.h"
#include "transfer/Buffer.h"
#include "transfer/OpenDevice.h"

namespace {

constexpr DWORD kShareReadWrite = FILE_SHARE_READ | FILE_SHARE_WRITE;

// cbSize must be the size of the fixed part, on 64-bit Windows, whatever room the path takes.
constexpr DWORD kDetailHeadSize = 8;

// How often one index is asked again when the enumeration fails with an unexpected code. The
// system gives no reason to expect a change, so the search must not go on for ever.
constexpr int kEnumerationRetries = 8;

// What the keyboard's path begins with, and its length.
constexpr wchar_t kPathPrefixFormat[] = L"\\\\?\\hid#vid_%04x&pid_%04x";
constexpr std::size_t kPathPrefixLength = 25;

class DeviceList {
  public:
    explicit DeviceList(const GUID& hidClass)
        : m_list(SetupDiGetClassDevsW(&hidClass, nullptr, nullptr,
                                      DIGCF_PRESENT | DIGCF_DEVICEINTERFACE)) {}
    ~DeviceList() {
        if (IsOpen()) {
            // The caller logs why the search ended, and the call sets the last error to zero.
            const DWORD searchError = GetLastError();
            SetupDiDestroyDeviceInfoList(m_list);
            SetLastError(searchError);
        }
    }
    DeviceList(const DeviceList&) = delete;
    DeviceList& operator=(const DeviceList&) = delete;
    bool IsOpen() const { return m_list != INVALID_HANDLE_VALUE; }
    HDEVINFO get() const { return m_list; }

  private:
    HDEVINFO m_list;
};

// One interface's detail in a buffer of the size that the system asked for.
class InterfaceDetail {
  public:
    bool Fetch(const DeviceList& list, SP_DEVICE_INTERFACE_DATA& data) {
        DWORD size = 0;
        SetupDiGetDeviceInterfaceDetailW(list.get(), &data, nullptr, 0, &size, nullptr);
        if (size < sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W)) {
            return false;
        }
        m_buffer = AllocateBuffer(size);
        if (m_buffer == nullptr) {
            return false;
        }
        m_detail = new (m_buffer.get()) SP_DEVICE_INTERFACE_DETAIL_DATA_W{};
        m_detail->cbSize = kDetailHeadSize;
        return SetupDiGetDeviceInterfaceDetailW(list.get(), &data, m_detail, size, nullptr,
                                                nullptr) != FALSE;
    }
    const WCHAR* path() const { return m_detail->DevicePath; }

  private:
    Buffer m_buffer;
    SP_DEVICE_INTERFACE_DETAIL_DATA_W* m_detail = nullptr;  // lies in m_buffer
};

bool HasKeyboardPrefix(const WCHAR* path) {
    std::array<wchar_t, kPathPrefixLength + 1> prefix{};
    const int written = std::swprintf(prefix.data(), prefix.size(), kPathPrefixFormat,
                                      static_cast<unsigned>(kKeyboardVendorId),
                                      static_cast<unsigned>(kKeyboardProductId));
    if (written != static_cast<int>(kPathPrefixLength)) {
        LogErrorFun("NFC MatchNfcHidDevice snprintf_s fail");
        return false;
    }
    const std::wstring_view wanted(prefix.data(), kPathPrefixLength);
    if (std::wstring_view(path).substr(0, kPathPrefixLength) != wanted) {
        LogWarnFun("No Match\n");
        return false;
    }
    return true;
}

// Whether the top-level collection is the one that carries the tag's reports.
bool HasKeyboardUsage(HANDLE device) {
    PHIDP_PREPARSED_DATA preparsed = nullptr;
    if (HidD_GetPreparsedData(device, &preparsed) == FALSE) {
        LogErrorFun("Error: HidD_GetPreparsedData failed \n");
        return false;
    }
    HIDP_CAPS caps{};
    const NTSTATUS status = HidP_GetCaps(preparsed, &caps);
    HidD_FreePreparsedData(preparsed);
    if (status == 0) {
        LogErrorFun("Error: HidP_GetCaps failed \n");
        return false;
    }
    return caps.UsagePage == kKeyboardUsagePage && caps.Usage == kKeyboardUsage;
}

enum class Verdict { kKeyboard, kOther, kStopSearch };

Verdict CheckInterface(HANDLE device) {
    if (!HasKeyboardUsage(device)) {
        return Verdict::kOther;
    }
    LogWarnFun("Hid device open success\n");
    HIDD_ATTRIBUTES attributes{};
    attributes.Size = sizeof(attributes);
    if (HidD_GetAttributes(device, &attributes) == FALSE) {
        return Verdict::kStopSearch;
    }
    if (attributes.VendorID != kKeyboardVendorId || attributes.ProductID != kKeyboardProductId) {
        return Verdict::kOther;
    }
    LogWarnFun("NFC find the corresponding device!\n");
    return Verdict::kKeyboard;
}

// Gets one interface of the list. False after the last one, or when the list cannot be read.
bool GetInterface(const DeviceList& list, const GUID& hidClass, DWORD index,
                  SP_DEVICE_INTERFACE_DATA& data) {
    for (int attempt = 0; attempt <= kEnumerationRetries; ++attempt) {
        data = {};
        data.cbSize = sizeof(data);
        if (SetupDiEnumDeviceInterfaces(list.get(), nullptr, &hidClass, index, &data) != FALSE) {
            return true;
        }
        if (GetLastError() == ERROR_NO_MORE_ITEMS) {
            return false;
        }
    }
    return false;
}

}  // namespace

UniqueHandle MatchNfcHidDevice() {
    GUID hidClass{};
    HidD_GetHidGuid(&hidClass);
    const DeviceList list(hidClass);
    if (!list.IsOpen()) {
        return {};
    }
    SP_DEVICE_INTERFACE_DATA data{};
    for (DWORD index = 0; GetInterface(list, hidClass, index, data); ++index) {
        InterfaceDetail detail;
        if (!detail.Fetch(list, data) || !HasKeyboardPrefix(detail.path())) {
            continue;
        }
        UniqueHandle device = OpenDevice::Open(detail.path(), kShareReadWrite);
        switch (CheckInterface(device.get())) {
            case Verdict::kKeyboard:
                return device;
            case Verdict::kStopSearch:
                return {};
            case Verdict::kOther:
                break;
        }
    }
    return {};
}
