// Driver of the spb4 frame format: Fanli and every chip that answers in its format.
#pragma once

#include <cstdint>

#include "chip/NfcSpbCommon.h"
#include "platform/platform.h"
#include "transfer/LockOrder.h"

/// A frame is a head of four bytes (number, high byte first; operation; length) and for a write the
/// data; at most 250 bytes. A read is a head, a pause of g_nfcOpDelayMs, and a plain read.
///
/// Each transaction, from the head to the end of the answer, runs under the driver's own mutex,
/// because the interrupt thread reads states in between other threads' transfers.
class NfcSpbExtend final : public NfcSpbCommon {
  public:
    static NfcSpbExtend& GetInstance();

    /// Returns the chip that answers in this format, NfcChipLikeFm11n if there is none. The caller
    /// has set g_nfcOpDelayMs.
    static NfcChipKind Probe();

    bool WriteReg(std::uint16_t reg, const std::uint8_t* data, std::int32_t len) override;
    bool ReadReg(std::uint16_t reg, std::int32_t len, std::uint8_t* buffer) override;
    bool ReadState(std::uint16_t state, std::int32_t len, std::uint8_t* buffer) override;
    bool ReadInterruptStatus(InterruptStatus& status) override;
    ChipTraits Traits(NfcChipKind kind) const override;
    bool InitDevice(std::uint8_t* fdMode) override;
    bool BitlockEnable(bool upperDyVal) override;
    bool RadioDisable() override;
    bool RadioEnable() override;
    bool CheckWriteTag(std::uint8_t* passed) override;

  private:
    bool Ask(std::uint8_t operation, std::uint16_t number, std::int32_t len, std::uint8_t* buffer);
    bool SetRadio(std::uint16_t state, bool on, const char* done);

    platform::Mutex m_mutex{kExtendLock};
};
