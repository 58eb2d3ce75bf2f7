// The one record of the chip link: which frame format, which chip, which driver.
#pragma once

#include <atomic>
#include <cstdint>

#include "chip/NfcSpbCommon.h"
#include "platform/platform.h"
#include "transfer/LockOrder.h"

/// Frame format of the chip.
enum NfcLinkType : std::uint32_t {
    NfcLinkUnset = 0,
    NfcLinkSpb2 = 1,  // spb2: two address bytes, then data
    NfcLinkSpb4 = 2,  // spb4: a head of four bytes, then data
};

/// Written by the device start under the mutex, read by every thread at any time. One for the
/// process, from GetNfcDeviceContext.
struct NfcDeviceContext {
    std::atomic<NfcLinkType> linkType{NfcLinkSpb2};
    std::atomic<NfcSpbCommon*> spbDriverOps{nullptr};  // the singleton of its format
    std::atomic<NfcChipKind> chipKind{NfcChipLikeFm11n};

    /// The device mutex: held for every driver call, pauses included, because all transfers share
    /// one request record.
    platform::Mutex mutex{kDeviceLock};

    /// What has to be known of the chip; the defaults when no driver is selected.
    ChipTraits Traits() const;

    // The driver's operation of the same name under the device mutex; false with a log line when
    // no driver is selected.
    bool WriteReg(std::uint16_t reg, const std::uint8_t* data, std::int32_t len);
    bool ReadReg(std::uint16_t reg, std::int32_t len, std::uint8_t* buffer);
};

NfcDeviceContext& GetNfcDeviceContext();

/// Pause between two chip operations, and between an spb4 head and its answer, in milliseconds.
/// Written by device start and detection, read by every thread that reaches the chip.
extern std::atomic<std::uint32_t> g_nfcOpDelayMs;

/// Pause between an spb2 address and the read that follows, in milliseconds; 0 for none. Written
/// by detection, read by the spb2 driver.
extern std::atomic<std::uint32_t> g_nfcReadDelayMs;
