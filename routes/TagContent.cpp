// Moves the whole image: from the chip as a byte string, and to the tag over every active route.
#include <algorithm>
#include <array>
#include <cstdint>

#include "chip/NfcDeviceContext.h"
#include "chip/Registers.h"
#include "diagnostics/Log.h"
#include "events/EventState.h"
#include "platform/BoundedMemory.h"
#include "platform/platform.h"
#include "routes/BlePath.h"
#include "routes/NfcProxy.h"
#include "routes/RouteState.h"
#include "transfer/Buffer.h"

namespace {

constexpr std::int32_t kBlockSize = 16;
constexpr std::int32_t kLongestRead = 256;
constexpr std::int32_t kLongestWrite = 255;
constexpr int kWriteAttempts = 3;

// The image's own head: TLV tag and TLV length. Tag, length and terminator are not counted by it.
constexpr std::size_t kTagTypeOffset = 0;
constexpr std::size_t kLengthOffset = 1;
constexpr std::int32_t kHeaderSize = 2;
constexpr std::int32_t kUncounted = 3;
constexpr std::uint8_t kNdefTag = 3;

std::int32_t BlockCount(std::int32_t length) {
    return (length + kBlockSize - 1) / kBlockSize;
}

void PauseBehindBlock() {
    Sleep(g_nfcOpDelayMs);
}

bool ReadHeader(NfcSpbCommon& driver, std::array<std::uint8_t, kHeaderSize>& header) {
    platform::Lock lock(GetNfcDeviceContext().mutex);
    return driver.ReadReg(kImageRegister, kHeaderSize, header.data());
}

bool ReadBlocks(std::uint8_t* image, std::int32_t length) {
    for (std::int32_t i = 0; i < BlockCount(length); ++i) {
        const std::int32_t offset = i * kBlockSize;
        const std::int32_t size = std::min(length - offset, kBlockSize);
        const auto reg = static_cast<std::uint16_t>(kImageRegister + offset);
        if (!GetNfcDeviceContext().ReadReg(reg, size, image + offset)) {
            LogErrorFun("NfcReadTag Read fail 1, block num: i = %d", i);
            return false;
        }
        PauseBehindBlock();
    }
    return true;
}

bool WriteBlocks(const std::uint8_t* image, std::int32_t length) {
    // An empty image is still one write, of no bytes.
    const std::int32_t blocks = std::max(BlockCount(length), 1);
    LogWarnFun("NfcWriteTag totalLen=%d, block num=%d", length, BlockCount(length));
    for (std::int32_t i = 0; i < blocks; ++i) {
        const std::int32_t offset = i * kBlockSize;
        const std::int32_t size = std::min(length - offset, kBlockSize);
        const auto reg = static_cast<std::uint16_t>(kImageRegister + offset);
        if (!GetNfcDeviceContext().WriteReg(reg, image + offset, size)) {
            LogErrorFun("NfcWriteTag reg: %d fail 1, block num: i = %d", reg, i);
            return false;
        }
        PauseBehindBlock();
    }
    return true;
}

// Only one chip can tell whether the image arrived; for the others a written block is a good one.
bool CheckWritten() {
    NfcDeviceContext& context = GetNfcDeviceContext();
    if (context.chipKind != NfcChipFanli) {
        return true;
    }
    NfcSpbCommon* const driver = context.spbDriverOps;
    if (driver == nullptr) {
        LogErrorFun("spbDriverOps == nullptr");
        return false;
    }
    platform::Lock lock(context.mutex);
    std::uint8_t passed = 0;
    return driver->CheckWriteTag(&passed) && passed != 0;
}

bool TryChipWrite(const std::uint8_t* image, std::int32_t length) {
    if (GetNfcDeviceContext().spbDriverOps == nullptr) {
        LogErrorFun("spbDriverOps == nullptr");
        return false;
    }
    if (!WriteBlocks(image, length)) {
        return false;
    }
    const bool good = CheckWritten();
    LogWarnFun("Nfc CheckWriteTag ret: %d", good ? 1 : 0);
    return good;
}

bool WriteToChip(const std::uint8_t* image, std::int32_t length) {
    if (GetNfcDeviceContext().spbDriverOps == nullptr) {
        LogErrorFun("spbDriverOps == nullptr");
        return false;
    }
    for (int attempt = 0; attempt < kWriteAttempts; ++attempt) {
        if (TryChipWrite(image, length)) {
            return true;
        }
        LogWarnFun("Nfc WriteTag retry: %d", attempt);
    }
    return false;
}

}  // namespace

bool NfcProxy::ReadNfcContent(std::string& content) {
    LogWarnFun("NfcProxy::ReadNfcContent");
    NfcDeviceContext& context = GetNfcDeviceContext();
    NfcSpbCommon* const driver = context.spbDriverOps;
    if (driver == nullptr) {
        LogErrorFun("spbDriverOps == nullptr");
        return false;
    }
    std::array<std::uint8_t, kHeaderSize> header{};
    if (!ReadHeader(*driver, header)) {
        return false;
    }
    PauseBehindBlock();
    if (header[kTagTypeOffset] != kNdefTag) {
        LogErrorFun("ReadNfcContent: tag type is err");
        return false;
    }
    LogWarnFun("NFC Datalen: %d", header[kLengthOffset]);
    const std::int32_t length = header[kLengthOffset] + kUncounted;
    if (length > kLongestRead) {
        LogErrorFun("nfcData too long, totalDatalen = %d", length);
        return false;
    }
    const Buffer image = AllocateBuffer(static_cast<std::size_t>(length));
    if (image == nullptr) {
        LogErrorFun("ReadNfcContent: malloc nfcData fail");
        return false;
    }
    if (context.spbDriverOps == nullptr) {
        LogErrorFun("spbDriverOps == nullptr");
        return false;
    }
    LogWarnFun("NfcReadTag totalLen=%d, block num=%d", length, BlockCount(length));
    if (!ReadBlocks(image.get(), length)) {
        return false;
    }
    LogWarnFun("NfcReadTag success!");
    content.assign(image.get(), image.get() + length);
    return true;
}

bool NfcProxy::WriteNfcContent(const std::string& content) {
    if (content.size() > static_cast<std::size_t>(kLongestWrite)) {
        return false;
    }
    const Buffer image = AllocateBuffer(content.size());
    if (image == nullptr) {
        LogErrorFun("WriteNfcContent: malloc nfcData fail");
        return false;
    }
    if (platform::memcpy_s(image.get(), content.size(), content.data(), content.size()) != 0) {
        LogErrorFun("WriteNfcContent memcpy_s fail");
        return false;
    }
    const auto length = static_cast<std::int32_t>(content.size());
    if (g_isBtConnected && !BtWrite(image.get(), length)) {
        return false;
    }
    if (g_isHidDevice && g_mcuKbConnected && !NfcHidWrite(image.get(), length)) {
        return false;
    }
    if (g_isI2cDriver || g_isUsbDriver) {
        return WriteToChip(image.get(), length);
    }
    return true;
}
