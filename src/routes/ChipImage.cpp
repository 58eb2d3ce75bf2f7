// Image and number on a chip behind a kernel driver: blocks of 16 bytes, each a transfer of its own
// with a pause after it.
#include <algorithm>
#include <array>
#include <cstdint>

#include "chip/NfcDeviceContext.h"
#include "diagnostics/Log.h"
#include "events/NumberStore.h"
#include "platform/BoundedMemory.h"
#include "platform/platform.h"
#include "routes/ChipImage.h"
#include "routes/NfcProxy.h"
#include "tagimage/ImageGeometry.h"
#include "transfer/Buffer.h"

namespace {

constexpr std::int32_t kBlockSize = 16;
constexpr std::int32_t kNumberHalf = 16;
constexpr std::int32_t kLongestRead = 256;
constexpr std::uint16_t kImageRegister = imageformat::kFirstRegister;
constexpr int kWriteAttempts = 3;

// The image's own head: TLV tag and TLV length. Tag, length and terminator are not counted by it.
constexpr std::int32_t kHeaderSize = imageformat::kPayloadOffset;
constexpr std::int32_t kUncounted = imageformat::kFrameSize;

std::int32_t BlockCount(std::int32_t length) {
    return (length + kBlockSize - 1) / kBlockSize;
}

void PauseAfterBlock() {
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
        PauseAfterBlock();
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
        PauseAfterBlock();
    }
    return true;
}

// Not every chip can say whether the image arrived; for the others a written block is a good one.
bool CheckWritten() {
    NfcDeviceContext& context = GetNfcDeviceContext();
    NfcSpbCommon* const driver = context.spbDriverOps;
    if (driver == nullptr) {
        LogErrorFun("spbDriverOps == nullptr");
        return false;
    }
    if (!driver->Traits(context.chipKind).checksWrites) {
        return true;
    }
    const platform::Lock lock(context.mutex);
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

}  // namespace

bool NfcProxy::ReadNfcContent(std::string& image) {
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
    PauseAfterBlock();
    if (header[imageformat::kTagOffset] != imageformat::kNdefMessageTag) {
        LogErrorFun("ReadNfcContent: tag type is err");
        return false;
    }
    LogWarnFun("NFC Datalen: %d", header[imageformat::kLengthOffset]);
    const std::int32_t length = header[imageformat::kLengthOffset] + kUncounted;
    if (length > kLongestRead) {
        LogErrorFun("nfcData too long, totalDatalen = %d", length);
        return false;
    }
    const Buffer bytes = AllocateBuffer(static_cast<std::size_t>(length));
    if (bytes == nullptr) {
        LogErrorFun("ReadNfcContent: malloc nfcData fail");
        return false;
    }
    if (context.spbDriverOps == nullptr) {
        LogErrorFun("spbDriverOps == nullptr");
        return false;
    }
    LogWarnFun("NfcReadTag totalLen=%d, block num=%d", length, BlockCount(length));
    if (!ReadBlocks(bytes.get(), length)) {
        return false;
    }
    LogWarnFun("NfcReadTag success!");
    image.assign(bytes.get(), bytes.get() + length);
    return true;
}

bool WriteImageToChip(const std::uint8_t* image, std::int32_t length) {
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

bool ReadNumberFromChip(std::uint16_t regAddr, std::uint8_t* number) {
    NfcDeviceContext& context = GetNfcDeviceContext();
    if (context.spbDriverOps == nullptr) {
        LogErrorFun("spbDriverOps == nullptr");
        return false;
    }
    if (!context.ReadReg(regAddr, kNumberHalf, number)) {
        LogErrorFun("NFC ReadRandNumber fail 1");
        Sleep(g_nfcOpDelayMs);
        return false;
    }
    Sleep(g_nfcOpDelayMs);
    const auto secondHalf = static_cast<std::uint16_t>(regAddr + kNumberHalf);
    LogWarnFun("NFC ReadRandNumber regAddr = %d", secondHalf);
    if (!context.ReadReg(secondHalf, kNumberHalf, number + kNumberHalf)) {
        Sleep(g_nfcOpDelayMs);
        LogErrorFun("NFC ReadRandNumber fail 2");
        return false;
    }
    Sleep(g_nfcOpDelayMs);
    g_tagRandNumber.value.Set(number);
    return true;
}
