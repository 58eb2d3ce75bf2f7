// Opening the peripheral, whichever route it is on.
#pragma once

#include "platform/platform.h"

/// Opens a device path for overlapped reading and writing, or INVALID_HANDLE_VALUE.
inline HANDLE OpenPeripheral(const WCHAR* path, DWORD shareMode) {
    return CreateFileW(path, GENERIC_READ | GENERIC_WRITE, shareMode, nullptr, OPEN_EXISTING,
                       FILE_FLAG_OVERLAPPED, nullptr);
}
