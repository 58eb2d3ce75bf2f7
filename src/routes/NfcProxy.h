// The door to the peripheral. It has no fields: everything it works on is the process's.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/platform.h"

/// Its presence in a manager is what the manager's operations test, and its end is what stops the
/// event threads. Operations give true for success; each failing step logs where it fails.
///
/// Operations marked "under the content lock" are called with m_contentMutex held, so that a caller
/// can make building an image and writing it one step. All of them block for the transfers they
/// make.
class NfcProxy {
  public:
    /// The content lock: one whole image, one whole number read, one device start or the radio of a
    /// write at a time, on all routes, so that two threads never mix two images. Outside the device
    /// mutex; held over transfers and over the pauses after blocks.
    static platform::Mutex m_contentMutex;

    /// Arms the process for a new manager: the next interrupt opens a visit, the loops may run.
    NfcProxy();

    /// Stops the interrupt thread and the keyboard read thread and closes the transfer
    /// event. Waits for nobody. The device stays open.
    ~NfcProxy();

    NfcProxy(const NfcProxy&) = delete;
    NfcProxy& operator=(const NfcProxy&) = delete;

    /// A proxy for a thread that may outlive its manager: it works on the same process-wide state,
    /// and neither its making nor its end touches the event threads.
    static std::shared_ptr<NfcProxy> Detached();

    /// Chooses the constructor that arms nothing; only Detached passes it.
    struct DetachedTag {};
    explicit NfcProxy(DetachedTag /*tag*/) {}

    /// Finds the peripheral, opens it and prepares the chip; on a device that is open, prepares it
    /// again. On failure the device is closed. Takes the content lock itself.
    bool InitNfcDevice();

    /// The whole image from the chip, in blocks of 16 bytes. `content` is assigned on success only.
    /// Under the content lock.
    bool ReadNfcContent(std::string& content) TAGPORT_REQUIRES(m_contentMutex);

    /// Puts an image of at most 255 bytes on the tag over every active route. Under the content
    /// lock.
    bool WriteNfcContent(const std::string& content) TAGPORT_REQUIRES(m_contentMutex);

    /// Fetches the 32-byte number over every active route; the last one that answers stands in
    /// `number`. True does not say that the buffer was filled. Under the content lock.
    bool ReadRandNumber(std::uint8_t* number) TAGPORT_REQUIRES(m_contentMutex);

    /// Keeps the number that a write was confirmed with.
    bool SetLocalNum(const std::uint8_t* number);

    // The Bluetooth keyboard. See BleRoute.cpp.
    bool BtConnect(std::uint64_t address);
    bool BtDisconnect(std::uint64_t address);

    // The keyboards' frames: an image of at most 888 bytes, or one page of 1 to 60 bytes. Under
    // the content lock.
    bool NfcHidWrite(const std::uint8_t* data, std::int32_t length)
        TAGPORT_REQUIRES(m_contentMutex);
    bool HidWrite(std::int32_t page, const std::uint8_t* data, std::int32_t length,
                  std::uint8_t pageCount) TAGPORT_REQUIRES(m_contentMutex);
    bool BtWrite(const std::uint8_t* data, std::int32_t length) TAGPORT_REQUIRES(m_contentMutex);
    bool BtReadRandomNum(std::uint16_t regAddr, std::uint8_t* number)
        TAGPORT_REQUIRES(m_contentMutex);
};

/// A write's last step but one: arms the next visit, lets the loops run, and starts what is not
/// there of the two threads that serve a kernel driver. True when both exist. When one could not be
/// started the other is let go of and ends by itself.
bool NfcThreadCreate();
