// The status with which a kernel-mode driver gives a host a last-error code. Windows alone.
#pragma once

#include <cstdint>

#include "platform/windows/Win32.h"

namespace simulator {

/// A code without a status of its own is wrapped; Win32 gives its low 16 bits back.
constexpr std::uint32_t StatusOf(DWORD error) {
    constexpr struct {
        DWORD error;
        std::uint32_t status;
    } kStatuses[] = {{ERROR_SUCCESS, 0},
                     {ERROR_INVALID_FUNCTION, 0xC0000010},
                     {ERROR_FILE_NOT_FOUND, 0xC0000034},
                     {ERROR_ACCESS_DENIED, 0xC0000022},
                     {ERROR_INVALID_HANDLE, 0xC0000008},
                     {ERROR_GEN_FAILURE, 0xC0000001},
                     {ERROR_SHARING_VIOLATION, 0xC0000043},
                     {ERROR_INVALID_PARAMETER, 0xC000000D},
                     {ERROR_SEM_TIMEOUT, 0xC00000B5},
                     {ERROR_OPERATION_ABORTED, 0xC0000120},
                     {ERROR_IO_DEVICE, 0xC0000185},
                     {ERROR_DEVICE_NOT_CONNECTED, 0xC000009D}};
    for (const auto& row : kStatuses) {
        if (row.error == error) {
            return row.status;
        }
    }
    constexpr std::uint32_t kWrapped = 0x80070000;
    constexpr std::uint32_t kCodeMask = 0x0000FFFF;
    return kWrapped | (error & kCodeMask);
}

}  // namespace simulator
