// Sends frames to the keyboard's microcontroller in 64-byte HID reports.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <new>

#include "chip/NfcDeviceContext.h"
#include "diagnostics/Log.h"
#include "platform/BoundedMemory.h"
#include "platform/platform.h"
#include "routes/KeyboardFrame.h"
#include "routes/NfcProxy.h"
#include "transfer/Buffer.h"
#include "transfer/NfcCommand.h"
#include "transfer/OpenDevice.h"
#include "transfer/WaitForCommand.h"

bool NfcProxy::NfcHidWrite(const std::uint8_t* data, std::int32_t length) {
    if (data == nullptr || length < 0 || length > kLargestKeyboardImage) {
        return false;
    }
    const auto frameLength = length + static_cast<std::int32_t>(kFrameHeadSize);
    const Buffer frame = AllocateBuffer(static_cast<std::size_t>(frameLength));
    if (frame == nullptr) {
        LogErrorFun("NfcHidWrite: malloc nfcData fail");
        return false;
    }
    PutFrameHead(frame.get(), kDirectionWrite);
    const auto imageLength = static_cast<std::size_t>(length);
    if (platform::memcpy_s(frame.get() + kFrameHeadSize, imageLength, data, imageLength) != 0) {
        LogErrorFun("NfcHidWrite memcpy_s fail2");
        return false;
    }
    const std::int32_t pages = (frameLength + kPagePayload - 1) / kPagePayload;
    LogWarnFun("NfcHidWrite totalLength = %d, num of page = %d ", frameLength, pages);
    for (std::int32_t page = 1; page <= pages; ++page) {
        const std::int32_t offset = (page - 1) * kPagePayload;
        const std::int32_t size = std::min(frameLength - offset, kPagePayload);
        if (!HidWrite(page, frame.get() + offset, size, static_cast<std::uint8_t>(pages))) {
            LogErrorFun("NfcHidWrite fail, page num: i = %d", page);
            return false;
        }
    }
    LogWarnFun("NfcHidWrite success!");
    return true;
}

bool NfcProxy::HidWrite(std::int32_t page, const std::uint8_t* data, std::int32_t length,
                        std::uint8_t pageCount) {
    if (page < 1 || data == nullptr || length < 1 || length > kPagePayload) {
        return false;
    }
    const std::unique_ptr<CWriteCommand> command(new (std::nothrow) CWriteCommand(kReportSize));
    if (command == nullptr) {
        LogErrorFun("NFC HidWrite command init fail");
        return false;
    }
    // Zeroed, so that the bytes after the payload show nothing of this process's memory.
    const Buffer report = AllocateBuffer(kReportSize);
    if (report == nullptr) {
        LogErrorFun("NFC HidWrite malloc nfcData fail");
        return false;
    }
    g_hidReportHead[kPageCountOffset] = pageCount;
    g_hidReportHead[kPageNumberOffset] = static_cast<std::uint8_t>(page);
    g_hidReportHead[kPageLengthOffset] =
        static_cast<std::uint8_t>(length + static_cast<std::int32_t>(kReportHeadSize));
    std::copy_n(g_hidReportHead, kReportHeadSize, report.get());
    std::copy_n(data, length, report.get() + kReportHeadSize);
    platform::Lock lock(GetNfcDeviceContext().mutex);
    if (DeviceHandle == nullptr || !command->WriteParse(report.get(), kReportSize)) {
        LogErrorFun("NFC HidWrite WriteParse fail");
        return false;
    }
    return WaitForCommand(command.get()) == ERROR_SUCCESS;
}
