// Driver of the spb2 frame format: FM11N chips and every chip that is treated like them.
#pragma once

#include <cstdint>

#include "chip/NfcSpbCommon.h"

/// A frame is a register address, high byte first, and then the data; at most 2048 bytes. A read is
/// an address alone, a pause of g_nfcReadDelayMs, and a plain read.
class NfcSpbNormal final : public NfcSpbCommon {
  public:
    static NfcSpbNormal& GetInstance();

    bool WriteReg(std::uint16_t reg, const std::uint8_t* data, std::int32_t len) override;
    bool ReadReg(std::uint16_t reg, std::int32_t len, std::uint8_t* buffer) override;
    bool ReadState(std::uint16_t state, std::int32_t len, std::uint8_t* buffer) override;
    ChipTraits Traits(NfcChipKind kind) const override;
    bool InitDevice(std::uint8_t* fdMode) override;
    NfcChipKind KindInMode(NfcChipKind kind, std::uint8_t fdMode) const override;
    bool BitlockEnable(bool upperDyVal) override;
    bool RadioDisable() override;
    bool RadioEnable() override;
    bool CheckWriteTag(std::uint8_t* passed) override;

  private:
    bool SetRadio(std::uint8_t control, bool on, const char* writeFailed, const char* readFailed,
                  const char* notTaken);
};
