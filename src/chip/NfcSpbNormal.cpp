#include "chip/NfcSpbNormal.h"

#include <array>
#include <vector>

#include "chip/NfcDeviceContext.h"
#include "diagnostics/Log.h"
#include "platform/NeverDestroyed.h"
#include "platform/platform.h"
#include "transfer/SpbTransfer.h"

namespace {

constexpr std::size_t kLargestFrame = 2048;
constexpr std::uint32_t kLargestWrite = 2048;

// Configuration registers of the chip.
constexpr std::uint16_t kLockLowRegister = 0x000A;
constexpr std::uint16_t kLockHighRegister = 0x000B;
constexpr std::uint16_t kDyValRegister = 0x0388;
constexpr std::uint16_t kUpperDyValRegister = 0x03C8;  // FM11NT082C
constexpr std::uint16_t kFdModeRegister = 0x038C;
constexpr std::uint16_t kSramRegister = 0x1037;
constexpr std::uint16_t kRadioRegister = 0x10A1;

// Their values.
constexpr std::uint8_t kFdModeMask = 0x07;
constexpr std::uint8_t kFdModeSelect = 0x06;
constexpr std::uint8_t kLockLowBits = 0xF8;  // the low three bits stay as the chip has them
constexpr std::uint8_t kLockHighBits = 0xFF;
constexpr std::array<std::uint8_t, 4> kDyVal{0xFF, 0x3F, 0x00, 0x00};
constexpr std::size_t kSramBytes = 4;
constexpr std::size_t kSramEnableByte = 1;
constexpr std::uint8_t kSramEnabled = 0x02;
constexpr std::uint8_t kRadioOff = 0x28;
constexpr std::uint8_t kRadioOn = 0x08;
constexpr std::uint8_t kRadioIsOff = 0x20;

void PauseBetweenOperations() {
    Sleep(g_nfcOpDelayMs);
}

}  // namespace

NfcSpbNormal& NfcSpbNormal::GetInstance() {
    static platform::NeverDestroyed<NfcSpbNormal> driver;
    return driver.value;
}

bool NfcSpbNormal::WriteReg(std::uint16_t reg, const std::uint8_t* data, std::int32_t len) {
    if (static_cast<std::uint32_t>(len) > kLargestWrite) {
        LogErrorFun("NfcWrite reg: %d, infoLength: %d", reg, len);
        return false;
    }
    std::vector<std::uint8_t> frame{static_cast<std::uint8_t>(reg >> 8),
                                    static_cast<std::uint8_t>(reg & 0xFF)};
    if (data != nullptr) {
        frame.insert(frame.end(), data, data + len);
    }
    if (frame.size() > kLargestFrame) {
        LogErrorFun("NfcWrite len: %d too large", static_cast<int>(frame.size()));
        return false;
    }
    return NfcSpbWrite(frame.data(), static_cast<std::uint32_t>(frame.size()));
}

bool NfcSpbNormal::ReadReg(std::uint16_t reg, std::int32_t len, std::uint8_t* buffer) {
    if (len < 1 || len > kLargestRead || buffer == nullptr) {
        LogErrorFun("NfcRead reg: %d, readLength: %d", reg, len);
        return false;
    }
    if (!WriteReg(reg, nullptr, 0)) {
        LogErrorFun("NfcRead first write address: %d failed", reg);
        return false;
    }
    const std::uint32_t delay = g_nfcReadDelayMs;
    if (delay != 0) {
        Sleep(delay);
    }
    return NfcSpbRead(len, buffer);
}

bool NfcSpbNormal::ReadState(std::uint16_t /*state*/, std::int32_t /*len*/,
                             std::uint8_t* /*buffer*/) {
    return false;
}

ChipTraits NfcSpbNormal::Traits(NfcChipKind kind) const {
    ChipTraits traits;
    traits.selectsMode = kind != NfcChipFm11nt082c;
    traits.locksTag = true;
    traits.upperDyVal = kind == NfcChipFm11nt082c;
    traits.startsSilent = kind == NfcChipFdModeOther;
    return traits;
}

bool NfcSpbNormal::InitDevice(std::uint8_t* fdMode) {
    if (!ReadReg(kFdModeRegister, 1, fdMode)) {
        LogErrorFun("NfcInitDevice Read reg: %d failed 1", kFdModeRegister);
        return false;
    }
    PauseBetweenOperations();
    if ((*fdMode & kFdModeMask) != kFdModeSelect) {
        LogWarnFun("NfcInitDevice config select mode, fdMode = 0x%x", *fdMode);
        *fdMode = kFdModeSelect;
        if (!WriteReg(kFdModeRegister, fdMode, 1)) {
            LogErrorFun("NfcInitDevice Write reg: %d failed", kFdModeRegister);
            return false;
        }
        PauseBetweenOperations();
    }
    *fdMode = 0;
    if (!ReadReg(kFdModeRegister, 1, fdMode)) {
        LogErrorFun("NfcInitDevice Read reg: %d failed 2", kFdModeRegister);
        return false;
    }
    LogWarnFun("NfcInitDevice get fdMode 0x%x", *fdMode);
    PauseBetweenOperations();
    return true;
}

// InitDevice looks at three bits of the mode; the kind depends on the whole byte.
NfcChipKind NfcSpbNormal::KindInMode(NfcChipKind kind, std::uint8_t fdMode) const {
    return fdMode == kFdModeSelect ? kind : NfcChipFdModeOther;
}

bool NfcSpbNormal::BitlockEnable(bool upperDyVal) {
    std::uint8_t lowByte = 0;
    if (!ReadReg(kLockLowRegister, 1, &lowByte)) {
        LogErrorFun("NfcBitlockEnable read reg: %d lowByte failed", kLockLowRegister);
        return false;
    }
    LogWarnFun("NfcBitlockEnable read device, lowByte = 0x%x", lowByte);
    lowByte |= kLockLowBits;
    const std::uint8_t highByte = kLockHighBits;
    PauseBetweenOperations();
    if (!WriteReg(kLockLowRegister, &lowByte, 1)) {
        LogErrorFun("NfcBitlockEnable write reg: %d lowByte failed", kLockLowRegister);
        return false;
    }
    PauseBetweenOperations();
    if (!WriteReg(kLockHighRegister, &highByte, 1)) {
        LogErrorFun("NfcBitlockEnable write reg: %d highByte failed", kLockHighRegister);
        return false;
    }
    PauseBetweenOperations();
    const std::uint16_t dyValRegister = upperDyVal ? kUpperDyValRegister : kDyValRegister;
    if (!WriteReg(dyValRegister, kDyVal.data(), static_cast<std::int32_t>(kDyVal.size()))) {
        LogErrorFun("NfcBitlockEnable write reg: %d dyVal failed", dyValRegister);
        return false;
    }
    PauseBetweenOperations();
    LogWarnFun("NfcBitlockEnable set bitlock done");
    return true;
}

bool NfcSpbNormal::RadioDisable() {
    std::array<std::uint8_t, kSramBytes> sram{};
    if (!ReadReg(kSramRegister, static_cast<std::int32_t>(sram.size()), sram.data())) {
        LogErrorFun("NfcRadioDisable read sram failed");
        return false;
    }
    if ((sram[kSramEnableByte] & kSramEnabled) == 0) {
        LogWarnFun("NfcRadioDisable sram not enable");
        return true;
    }
    return SetRadio(kRadioOff, false, "NfcRadioDisable write fail1", "NfcRadioDisable read fail",
                    "NfcRadioDisable write fail2");
}

bool NfcSpbNormal::RadioEnable() {
    return SetRadio(kRadioOn, true, "NfcRadioEnable write fail1", "NfcRadioEnable read fail",
                    "NfcRadioEnable write fail2");
}

// Writes the radio's control and reads back whether the chip took it.
bool NfcSpbNormal::SetRadio(std::uint8_t control, bool on, const char* writeFailed,
                            const char* readFailed, const char* notTaken) {
    if (!WriteReg(kRadioRegister, &control, 1)) {
        LogErrorFun("%s", writeFailed);
        return false;
    }
    std::uint8_t state = 0;
    if (!ReadReg(kRadioRegister, 1, &state)) {
        LogErrorFun("%s", readFailed);
        return false;
    }
    const bool isOn = (state & kRadioIsOff) == 0;
    if (isOn != on) {
        LogErrorFun("%s", notTaken);
        return false;
    }
    radioEnabled = on;
    return true;
}

bool NfcSpbNormal::CheckWriteTag(std::uint8_t* passed) {
    *passed = 1;
    return true;
}
