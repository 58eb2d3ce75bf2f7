// Device enumeration and human interface devices. The devices are those of AddHidInterface.
#include <cstddef>
#include <cstring>
#include <type_traits>

#include "platform/emulation/KernelState.h"

namespace emulation {

namespace {

// GUID_DEVINTERFACE_HID.
constexpr GUID kHidClass = {
    0x4D1E55B2, 0xF16F, 0x11CF, {0x88, 0xCB, 0x00, 0x11, 0x11, 0x00, 0x00, 0x30}};

constexpr DWORD kErrorInvalidUserBuffer = 1784;  // the size field of a structure is wrong
constexpr DWORD kInterfaceActive = 1;            // SPINT_ACTIVE
constexpr USHORT kReportLength = 64;             // of every human interface device here

constexpr NTSTATUS kCapsFailed = 0;

bool SameClass(const GUID& left, const GUID& right) {
    static_assert(std::has_unique_object_representations_v<GUID>);
    return std::memcmp(&left, &right, sizeof left) == 0;
}

/// The interface of an open device. Null and ERROR_INVALID_HANDLE for any other handle; null and
/// ERROR_GEN_FAILURE where `fails` says so.
std::shared_ptr<const HidInterface> HidOfDevice(const Operation& operation, HANDLE device,
                                                bool HidInterface::*fails) {
    const auto file = operation.Find<FileObject>(device);
    const auto hid = file == nullptr ? nullptr : file->node->hid;
    if (file != nullptr && (hid == nullptr || (*hid).*fails)) {
        SetLastError(hid == nullptr ? ERROR_INVALID_HANDLE : ERROR_GEN_FAILURE);
        return nullptr;
    }
    return hid;
}

}  // namespace

}  // namespace emulation

using emulation::Call;
using emulation::DeviceListObject;
using emulation::FailWith;
using emulation::HidInterface;
using emulation::Operation;
using emulation::PreparsedDataObject;

HDEVINFO SetupDiGetClassDevsW(const GUID* classGuid, const WCHAR* /*enumerator*/, HWND /*parent*/,
                              DWORD flags) {
    const Operation operation(Call::kEnumerate);
    if (operation.Refused()) {
        return INVALID_HANDLE_VALUE;
    }
    if (classGuid == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    auto list = std::make_shared<DeviceListObject>();
    if (emulation::SameClass(*classGuid, emulation::kHidClass) &&
        (flags & DIGCF_DEVICEINTERFACE) != 0) {
        list->interfaces = emulation::TheKernel().hidInterfaces;
    }
    return emulation::AddHandle(std::move(list));
}

BOOL SetupDiEnumDeviceInterfaces(HDEVINFO list, SP_DEVINFO_DATA* /*info*/, const GUID* classGuid,
                                 DWORD index, SP_DEVICE_INTERFACE_DATA* data) {
    const Operation operation(Call::kEnumerate);
    const auto found = operation.Find<DeviceListObject>(list);
    if (found == nullptr) {
        return FALSE;
    }
    if (classGuid == nullptr || data == nullptr) {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    if (data->cbSize != sizeof *data) {
        return FailWith(emulation::kErrorInvalidUserBuffer);
    }
    if (index >= found->interfaces.size() ||
        !emulation::SameClass(*classGuid, emulation::kHidClass)) {
        return FailWith(ERROR_NO_MORE_ITEMS);
    }
    data->InterfaceClassGuid = *classGuid;
    data->Flags = emulation::kInterfaceActive;
    data->Reserved = index;
    return TRUE;
}

BOOL SetupDiGetDeviceInterfaceDetailW(HDEVINFO list, SP_DEVICE_INTERFACE_DATA* data,
                                      SP_DEVICE_INTERFACE_DETAIL_DATA_W* detail, DWORD size,
                                      DWORD* required, SP_DEVINFO_DATA* /*info*/) {
    const Operation operation(Call::kEnumerate);
    const auto found = operation.Find<DeviceListObject>(list);
    if (found == nullptr) {
        return FALSE;
    }
    if (data == nullptr || data->Reserved >= found->interfaces.size()) {
        return FailWith(ERROR_INVALID_PARAMETER);
    }
    const HidInterface& interface = *found->interfaces[data->Reserved];
    constexpr std::size_t kPathOffset = offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath);
    const std::size_t pathBytes = (interface.path.size() + 1) * sizeof(WCHAR);
    const auto needed = static_cast<DWORD>(kPathOffset + pathBytes);
    if (required != nullptr) {
        *required = needed;
    }
    if (detail == nullptr) {
        return FailWith(ERROR_INSUFFICIENT_BUFFER);
    }
    if (detail->cbSize != sizeof *detail) {
        return FailWith(emulation::kErrorInvalidUserBuffer);
    }
    if (size < needed) {
        return FailWith(ERROR_INSUFFICIENT_BUFFER);
    }
    if (interface.detailFails) {
        return FailWith(ERROR_GEN_FAILURE);
    }
    // The path continues after the structure, in the caller's larger buffer.
    std::memcpy(reinterpret_cast<std::uint8_t*>(detail) + kPathOffset, interface.path.c_str(),
                pathBytes);
    return TRUE;
}

BOOL SetupDiDestroyDeviceInfoList(HDEVINFO list) {
    const Operation operation(Call::kEnumerate);
    if (operation.Find<DeviceListObject>(list) == nullptr) {
        return FALSE;
    }
    emulation::RemoveHandle(list);
    SetLastError(ERROR_SUCCESS);
    return TRUE;
}

void HidD_GetHidGuid(GUID* guid) {
    const Operation operation(Call::kHid);
    *guid = emulation::kHidClass;
}

BOOLEAN HidD_GetPreparsedData(HANDLE device, PHIDP_PREPARSED_DATA* data) {
    const Operation operation(Call::kHid);
    const auto hid = emulation::HidOfDevice(operation, device, &HidInterface::preparsedDataFails);
    if (hid == nullptr) {
        return FALSE;
    }
    // Callers do not look inside, so it is a handle, and an old one is refused like any other.
    *data = static_cast<PHIDP_PREPARSED_DATA>(
        emulation::AddHandle(std::make_shared<PreparsedDataObject>(hid)));
    return TRUE;
}

BOOLEAN HidD_FreePreparsedData(PHIDP_PREPARSED_DATA data) {
    const Operation operation(Call::kHid);
    if (operation.Find<PreparsedDataObject>(data) == nullptr) {
        return FALSE;
    }
    emulation::RemoveHandle(data);
    return TRUE;
}

NTSTATUS HidP_GetCaps(PHIDP_PREPARSED_DATA data, HIDP_CAPS* caps) {
    const Operation operation(Call::kHid);
    const auto found = operation.Find<PreparsedDataObject>(data);
    if (found == nullptr || found->hid->capsFail) {
        return emulation::kCapsFailed;
    }
    caps->Usage = found->hid->usage;
    caps->UsagePage = found->hid->usagePage;
    caps->InputReportByteLength = emulation::kReportLength;
    caps->OutputReportByteLength = emulation::kReportLength;
    return HIDP_STATUS_SUCCESS;
}

BOOLEAN HidD_GetAttributes(HANDLE device, HIDD_ATTRIBUTES* attributes) {
    const Operation operation(Call::kHid);
    const auto hid = emulation::HidOfDevice(operation, device, &HidInterface::attributesFail);
    if (hid == nullptr) {
        return FALSE;
    }
    attributes->VendorID = hid->vendorId;
    attributes->ProductID = hid->productId;
    attributes->VersionNumber = 0;
    return TRUE;
}
