#include "transfer/SpbTransfer.h"

#include <cstddef>
#include <memory>
#include <new>
#include <string>

#include "diagnostics/Log.h"
#include "platform/BoundedMemory.h"
#include "transfer/NfcCommand.h"
#include "transfer/OpenDevice.h"
#include "transfer/WaitForCommand.h"

namespace {

// Two lower-case hexadecimal digits a byte, without separators.
std::string BytesToHex(const std::uint8_t* data, std::size_t size) {
    constexpr char kDigits[] = "0123456789abcdef";
    constexpr unsigned kDigitBits = 4;
    std::string text;
    text.reserve(2 * size);
    for (std::size_t i = 0; i < size; ++i) {
        text += kDigits[data[i] >> kDigitBits];
        text += kDigits[data[i] & 0xFU];
    }
    return text;
}

// A text for the log must not end a transfer that has worked.
void LogData(const std::uint8_t* data, std::size_t size) {
    try {
        LogWarnFun("Nfc data: %s", BytesToHex(data, size).c_str());
    } catch (const std::bad_alloc&) {
        return;
    }
}

}  // namespace

bool NfcSpbWrite(const std::uint8_t* frame, std::uint32_t size) {
    const std::unique_ptr<CWriteCommand> command(new (std::nothrow) CWriteCommand(size));
    if (command == nullptr) {
        LogErrorFun("command is nullptr, return");
        return false;
    }
    if (DeviceHandle == nullptr || !command->WriteParse(frame, size)) {
        return false;
    }
    const std::uint32_t status = WaitForCommand(command.get());
    if (status != ERROR_SUCCESS) {
        LogErrorFun("Nfc write spd error, status = %d", static_cast<int>(status));
        return false;
    }
    return true;
}

bool NfcSpbRead(std::int32_t length, std::uint8_t* out) {
    const auto wanted = static_cast<std::uint32_t>(length);
    const std::unique_ptr<CReadCommand> command(new (std::nothrow) CReadCommand(wanted));
    if (command == nullptr) {
        LogErrorFun("Nfc read spb command nullptr");
        return false;
    }
    if (!command->Parse(DeviceHandle)) {
        return false;
    }
    const std::uint32_t status = WaitForCommand(command.get());
    if (status != ERROR_SUCCESS) {
        LogErrorFun("Nfc read spb status error, status = %d", static_cast<int>(status));
        return false;
    }
    LogWarnFun("Nfc read spb dataLength = %d", length);
    if (command->NumBytes != wanted) {
        LogErrorFun("Nfc read spb command->NumBytes don't match, command->NumBytes=%d",
                    static_cast<int>(command->NumBytes));
        return false;
    }
    LogData(command->buffer(), wanted);
    if (platform::memcpy_s(out, wanted, command->buffer(), wanted) != 0) {
        LogErrorFun("Nfc read spb memcpy_s fail");
        return false;
    }
    return true;
}
