// The door to the peripheral. It has no fields: everything it works on is the process's.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "routes/ContentLock.h"

/// A manager without an NfcProxy refuses its operations. Destroying the last NfcProxy stops the
/// event threads.
///
/// The operations return true for success; each failing step logs where it fails. They block for
/// the transfers that they make. Those that need the content lock leave it to the caller, who can
/// so make building an image and writing it one step.
class NfcProxy {
  public:
    // NfcProxy.cpp

    /// Arms the process for a new manager: the next interrupt opens a visit, the loops may run.
    NfcProxy();

    /// Stops the interrupt thread and the keyboard read thread and closes the transfer
    /// event. Waits for nobody. The device stays open.
    ~NfcProxy();

    NfcProxy(const NfcProxy&) = delete;
    NfcProxy& operator=(const NfcProxy&) = delete;

    /// A proxy for a thread that may outlive its manager: neither its making nor its end touches
    /// the event threads.
    static std::shared_ptr<NfcProxy> Detached();

    /// Chooses the constructor that arms nothing; only Detached passes it.
    struct DetachedTag {};
    explicit NfcProxy(DetachedTag /*tag*/) {}

    // DeviceStart.cpp

    /// Finds the peripheral, opens it and prepares the chip; on a device that is open, prepares it
    /// again. On failure the device is closed. Takes the content lock itself.
    static bool InitNfcDevice();

    // AllRoutes.cpp

    /// Puts an image of at most 255 bytes on the tag over every active route.
    static bool WriteNfcContent(const std::string& image) TAGPORT_REQUIRES(ContentLock::m_mutex);

    /// Fetches the 32-byte number over every active route; the last one that answers stands in
    /// `number`. True does not say that the buffer was filled.
    static bool ReadRandNumber(std::uint8_t* number) TAGPORT_REQUIRES(ContentLock::m_mutex);

    /// Keeps the number that a write was confirmed with.
    static bool SetLocalNum(const std::uint8_t* number);

    // ChipImage.cpp

    /// The whole image from the chip, in blocks of 16 bytes. `image` is assigned on success only.
    static bool ReadNfcContent(std::string& image) TAGPORT_REQUIRES(ContentLock::m_mutex);

    // BleRoute.cpp

    /// Both take the content lock for the short time in which they change what frames work with.
    static bool BtConnect(std::uint64_t address);
    static bool BtDisconnect(std::uint64_t address);

    /// An image of at most 888 bytes, in one frame.
    static bool BtWrite(const std::uint8_t* data, std::int32_t length)
        TAGPORT_REQUIRES(ContentLock::m_mutex);
    static bool BtReadRandomNum(std::uint16_t regAddr, std::uint8_t* number)
        TAGPORT_REQUIRES(ContentLock::m_mutex);

    // HidTransfer.cpp

    /// An image of at most 888 bytes, in pages.
    static bool NfcHidWrite(const std::uint8_t* data, std::int32_t length)
        TAGPORT_REQUIRES(ContentLock::m_mutex);
    /// One page of 1 to 60 bytes.
    static bool HidWrite(std::int32_t page, const std::uint8_t* data, std::int32_t length,
                         std::uint8_t pageCount) TAGPORT_REQUIRES(ContentLock::m_mutex);
};

/// A write's last step but one: arms the next visit, lets the loops run, and starts what is not
/// there of the two threads that serve a kernel driver. True when both exist. When one could not be
/// started the other is abandoned and ends by itself.
bool NfcThreadCreate();
