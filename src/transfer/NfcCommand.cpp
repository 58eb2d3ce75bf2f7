// The three commands: how each starts its transfer and what it does with the result.
#include "transfer/NfcCommand.h"

#include <atomic>
#include <utility>

#include "diagnostics/Log.h"
#include "platform/BoundedMemory.h"
#include "transfer/OpenDevice.h"
#include "transfer/WaitForCommand.h"

namespace {

std::uint32_t NextSequence() {
    static std::atomic<std::uint32_t> next{1};
    return next++;
}

// True when a read or write is pending or has succeeded. A successful call does not touch the
// last error, so the caller has cleared it before.
bool HasStarted(BOOL succeeded, DWORD error) {
    return error == (succeeded != FALSE ? ERROR_SUCCESS : ERROR_IO_PENDING);
}

}  // namespace

NfcCommand::NfcCommand(std::string name) : m_sequence(NextSequence()), m_name(std::move(name)) {}

bool NfcCommand::Parse(HANDLE handle) {
    return handle != nullptr;
}

void NfcCommand::Complete(std::uint32_t /*status*/, std::uint32_t /*information*/) {}

bool NfcCommand::Cancel() {
    const HANDLE device = DeviceHandle;
    return device != nullptr && CancelIoEx(device, &g_ioOverlapped) != FALSE;
}

COpenCommand::COpenCommand() : NfcCommand("open") {}

bool COpenCommand::Execute() {
    const HANDLE device = DeviceHandle;
    if (device == nullptr) {
        return false;
    }
    DWORD moved = 0;
    SetLastError(ERROR_SUCCESS);
    const BOOL succeeded =
        DeviceIoControl(device, kOpenControlCode, nullptr, 0, nullptr, 0, &moved, &g_ioOverlapped);
    const DWORD error = GetLastError();
    if (succeeded == FALSE && error == ERROR_IO_PENDING) {
        return true;
    }
    // Over already: leave the result where the common waiting path looks for it.
    g_ioOverlapped.Internal = static_cast<std::uint32_t>(HRESULT_FROM_WIN32(error));
    g_ioOverlapped.InternalHigh = moved;
    SetEvent(g_ioOverlapped.hEvent);
    return true;
}

void COpenCommand::Complete(std::uint32_t status, std::uint32_t information) {
    if (status == ERROR_SUCCESS) {
        LogWarnFun("Peripheral opened with %u bytes transfer", information);
    } else {
        LogErrorFun("Open error %u", static_cast<unsigned>(GetLastError()));
    }
}

CReadCommand::CReadCommand(std::uint32_t length) : NfcCommand("read"), m_length(length) {}

bool CReadCommand::Parse(HANDLE handle) {
    if (handle == nullptr || m_length == 0) {
        return false;
    }
    m_buffer = AllocateBuffer(m_length);
    if (m_buffer == nullptr) {
        return false;
    }
    return platform::memset_s(m_buffer.get(), m_length, 0, m_length) == 0;
}

bool CReadCommand::Execute() {
    const HANDLE device = DeviceHandle;
    if (device == nullptr) {
        return false;
    }
    DWORD moved = 0;
    SetLastError(ERROR_SUCCESS);
    const BOOL succeeded = ReadFile(device, m_buffer.get(), m_length, &moved, &g_ioOverlapped);
    const DWORD error = GetLastError();
    if (!HasStarted(succeeded, error)) {
        LogErrorFun("NFC_ReadFile Error %d\n", static_cast<int>(error));
        return false;
    }
    return true;
}

void CReadCommand::Complete(std::uint32_t status, std::uint32_t information) {
    if (status == ERROR_SUCCESS) {
        NumBytes = information;
    } else {
        LogErrorFun("NFC Error %u with %u bytes read", status, information);
    }
}

CWriteCommand::CWriteCommand(std::uint32_t length) : NfcCommand("write"), m_length(length) {}

bool CWriteCommand::WriteParse(const std::uint8_t* data, std::uint32_t size) {
    if (size != m_length || data == nullptr) {
        LogErrorFun("NFC WriteParse checke error");
        return false;
    }
    m_buffer = AllocateBuffer(m_length);
    if (m_buffer == nullptr) {
        LogErrorFun("NFC WriteParse m_buffer new error");
        return false;
    }
    if (platform::memcpy_s(m_buffer.get(), m_length, data, size) != 0) {
        LogErrorFun("NFC WriteParse memcpy_s error");
        m_buffer.reset();
        return false;
    }
    return true;
}

bool CWriteCommand::Execute() {
    const HANDLE device = DeviceHandle;
    if (device == nullptr) {
        return false;
    }
    DWORD moved = 0;
    SetLastError(ERROR_SUCCESS);
    const BOOL succeeded = WriteFile(device, m_buffer.get(), m_length, &moved, &g_ioOverlapped);
    const DWORD error = GetLastError();
    if (!HasStarted(succeeded, error)) {
        LogErrorFun("NFC_WriteFile Error  %d\n", static_cast<int>(error));
        return false;
    }
    return true;
}

void CWriteCommand::Complete(std::uint32_t status, std::uint32_t information) {
    if (status != ERROR_SUCCESS) {
        LogErrorFun("NFC Error %u, with %u bytes written", status, information);
    }
}
