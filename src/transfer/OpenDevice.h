// The open peripheral: the one device on which all transfers and all event requests run. Opening,
// taking over and closing it; nothing here knows which route it belongs to.
#pragma once

#include <atomic>

#include "platform/platform.h"
#include "transfer/LockOrder.h"
#include "transfer/UniqueHandle.h"

/// The open peripheral, opened for overlapped I/O; null means none. Written by OpenDevice alone,
/// read by every transfer (under the device mutex) and by the event loops (in OpenDevice::Use).
extern std::atomic<HANDLE> DeviceHandle;

/// The owner of DeviceHandle. Any thread; takes a short lock of its own.
///
/// A handle can be reused as soon as it is closed. So a loop starts its request inside Use and
/// cancels it with Cancel. Close waits until neither is running, and never for the end of a
/// request.
class OpenDevice {
  public:
    static OpenDevice& Get();

    /// Opens a device path for overlapped reading and writing. Empty, with GetLastError, when the
    /// device cannot be opened.
    static UniqueHandle Open(const WCHAR* path, DWORD shareMode);

    /// Makes `handle` the open device. There must be none.
    void TakeOver(UniqueHandle handle);

    /// Cancels every request on the device and closes it; does nothing when there is none. Pending
    /// requests end with error 995. The caller holds the device mutex, so that no transfer is
    /// pending.
    void Close();

    /// Calls `use(handle)`, null for no device, and keeps the device open meanwhile. `use` must not
    /// block.
    template <class User>
    auto Use(User use) {
        const platform::Lock lock(m_mutex);
        return use(DeviceHandle.load());
    }

    /// Asks the driver to cancel a request that was started on `device`. Does nothing when that
    /// device has been closed: Close has cancelled the request.
    void Cancel(HANDLE device, OVERLAPPED& overlapped);

  private:
    platform::Mutex m_mutex{kHandleLock};
};
