// The contract of a chip driver: register operations over the byte stream to the kernel driver.
#pragma once

#include <atomic>
#include <cstdint>

/// Base of the two drivers, one for each frame format. Every operation gives true for success,
/// stops at its first failed step with one log line, undoes nothing, and can simply be tried
/// again. The caller holds the device mutex; pauses are spent inside the operation.
class NfcSpbCommon {
  public:
    NfcSpbCommon() = default;
    virtual ~NfcSpbCommon() = default;
    NfcSpbCommon(const NfcSpbCommon&) = delete;
    NfcSpbCommon& operator=(const NfcSpbCommon&) = delete;

    /// Writes `len` bytes from register `reg` on. Null `data` sends the address alone.
    virtual bool WriteReg(std::uint16_t reg, const std::uint8_t* data, std::int32_t len) = 0;

    /// Reads `len` bytes, 1 to 2048, from register `reg` on.
    virtual bool ReadReg(std::uint16_t reg, std::int32_t len, std::uint8_t* buffer) = 0;

    /// Reads `len` bytes of a state. Only the spb4 driver has states.
    virtual bool ReadState(std::uint16_t state, std::int32_t len, std::uint8_t* buffer) = 0;

    /// Brings the chip into the select mode; `fdMode` takes the mode byte that it then reports.
    virtual bool InitDevice(std::uint8_t* fdMode) = 0;

    /// Locks the tag against writing by phones. `upperDyVal` chooses the register of the dynamic
    /// lock: true for the FM11NT082C.
    virtual bool BitlockEnable(bool upperDyVal) = 0;

    virtual bool RadioDisable() = 0;
    virtual bool RadioEnable() = 0;

    /// Asks whether the last image arrived. `passed` takes 1 for a clean write, else 0.
    virtual bool CheckWriteTag(std::uint8_t* passed) = 0;

    /// What the last successful radio operation left. Written under the device mutex.
    std::atomic<bool> radioEnabled{true};
};

/// Largest read that either frame format takes, in bytes.
inline constexpr std::int32_t kLargestRead = 2048;
