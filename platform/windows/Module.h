// Keeps the library in memory. A stop of its threads does not wait for their end, so a host that
// unloads the library must not remove the code that they run.
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
