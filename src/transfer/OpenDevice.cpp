#include "transfer/OpenDevice.h"

#include <utility>

#include "platform/Check.h"
#include "platform/NeverDestroyed.h"

std::atomic<HANDLE> DeviceHandle{nullptr};

OpenDevice& OpenDevice::Get() {
    static platform::NeverDestroyed<OpenDevice> device;
    return device.value;
}

UniqueHandle OpenDevice::Open(const WCHAR* path, DWORD shareMode) {
    return UniqueHandle(CreateFileW(path, GENERIC_READ | GENERIC_WRITE, shareMode, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
}

void OpenDevice::TakeOver(UniqueHandle handle) {
    const platform::Lock lock(m_mutex);
    TAGPORT_CHECK(DeviceHandle == nullptr);
    DeviceHandle = handle.Release();
}

void OpenDevice::Close() {
    TAGPORT_CHECK(platform::HoldsLock(kDeviceLock));
    const platform::Lock lock(m_mutex);
    const UniqueHandle closing(DeviceHandle.exchange(nullptr));
    if (closing) {
        CancelIoEx(closing.get(), nullptr);
    }
}

void OpenDevice::Cancel(HANDLE device, OVERLAPPED& overlapped) {
    const platform::Lock lock(m_mutex);
    if (device != nullptr && device == DeviceHandle) {
        CancelIoEx(device, &overlapped);
    }
}
