// The contract of a chip driver: register operations over the byte stream to the kernel driver.
#pragma once

#include <atomic>
#include <cstdint>

/// What detection and start-up learned of the chip.
enum NfcChipKind : std::uint32_t {
    NfcChipLikeFm11n = 0,    // speaks spb2; also the starting value
    NfcChipFdModeOther = 1,  // spb2, and the mode byte stayed something other than 6
    NfcChipFm11nt081 = 2,
    NfcChipFm11nt082c = 3,
    NfcChipFanli = 4,
    NfcChipLikeFanli = 5,  // answers in the spb4 format without Fanli's identity
};

/// What the other folders have to know of a chip. They ask its driver; they never look at the frame
/// format or the kind themselves.
struct ChipTraits {
    /// Each interrupt has a status that can be read, and leaves are among what it reports.
    bool reportsStatus = false;
    /// A status reports visits. False: each status is passed on as event 4.
    bool reportsVisits = false;
    /// On I2C, the tag is read before a message is written to it.
    bool isReadBeforeWrite = true;
    /// The device start selects the chip's mode with InitDevice.
    bool selectsMode = false;
    /// The device start locks the tag with BitlockEnable, with this value of `upperDyVal`.
    bool locksTag = false;
    bool upperDyVal = false;
    /// CheckWriteTag reports whether an image has arrived.
    bool checksWrites = false;
    /// The device start leaves the radio off, until a message has been written.
    bool startsSilent = false;
};

/// What a chip reports with an interrupt.
struct InterruptStatus {
    enum class Event { kEnterField, kLeaveField, kMcuStart, kMcuReset, kNoData, kUnknown };
    Event event = Event::kUnknown;
    int code = 0;  ///< of the event, as the chip sent it
    std::uint32_t para1 = 0;
    int enterSum = 0;  ///< the upper half of para1
    int leaveSum = 0;  ///< the lower half
    int ticks = 0;
};

/// Base of the drivers, one for each frame format. Every operation returns true for success, stops
/// at its first failed step, undoes nothing, and can be repeated. The failed step logs its line,
/// and so does each operation that it is a step of. The caller holds the device mutex, and the
/// operation blocks for its transfers and pauses.
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

    /// Reads what the chip reports with an interrupt. Only for a chip that `reportsStatus`.
    virtual bool ReadInterruptStatus(InterruptStatus& /*status*/) { return false; }

    /// What has to be known of a chip of this kind.
    virtual ChipTraits Traits(NfcChipKind kind) const = 0;

    /// Brings the chip into the select mode; `fdMode` takes the mode byte that it then reports.
    virtual bool InitDevice(std::uint8_t* fdMode) = 0;

    /// The kind of a chip that was of `kind` before InitDevice has set `fdMode`.
    virtual NfcChipKind KindInMode(NfcChipKind kind, std::uint8_t /*fdMode*/) const { return kind; }

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
