// The status with which a kernel-mode driver gives a host a last-error code. Windows alone.
#pragma once

#include <cstdint>

#include "platform/windows/Win32.h"

namespace simulator {

/// A code without a status of its own is wrapped; Win32 gives its low 16 bits back.
constexpr std::uint32_t StatusOf(DWORD error) {
    constexpr std::uint32_t kWrapped = 0x80070000;
    constexpr std::uint32_t kCodeMask = 0x0000FFFF;
    switch (error) {
        case ERROR_SUCCESS:
            return 0;
        case ERROR_INVALID_FUNCTION:
            return 0xC0000010;
        case ERROR_FILE_NOT_FOUND:
            return 0xC0000034;
        case ERROR_ACCESS_DENIED:
            return 0xC0000022;
        case ERROR_INVALID_HANDLE:
            return 0xC0000008;
        case ERROR_GEN_FAILURE:
            return 0xC0000001;
        case ERROR_SHARING_VIOLATION:
            return 0xC0000043;
        case ERROR_INVALID_PARAMETER:
            return 0xC000000D;
        case ERROR_SEM_TIMEOUT:
            return 0xC00000B5;
        case ERROR_OPERATION_ABORTED:
            return 0xC0000120;
        case ERROR_IO_DEVICE:
            return 0xC0000185;
        case ERROR_DEVICE_NOT_CONNECTED:
            return 0xC000009D;
        default:
            return kWrapped | (error & kCodeMask);
    }
}

}  // namespace simulator
