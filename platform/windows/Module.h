// Keeping the library in memory. Its threads wait in its code, are told to stop and not waited for,
// so a host that unloads it must not take the code away under them.
#pragma once

#include "platform/windows/Win32.h"

namespace platform {

/// Pins the library that contains this code until the process ends. Any thread, any number of
/// times.
inline void KeepLoaded() {
    static const int anchor = 0;
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                       reinterpret_cast<LPCWSTR>(&anchor), &module);
}

}  // namespace platform
