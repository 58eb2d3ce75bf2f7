// The contract of a route to the tag.
#pragma once

#include <cstdint>

#include "routes/ContentLock.h"
#include "transfer/UniqueHandle.h"

/// One way to a tag: a chip behind a kernel driver, a HID keyboard, a Bluetooth keyboard. A route
/// has no state of its own in the object; what it works on belongs to the process.
///
/// Functions that need the content lock say so. The questions (IsActive, IsReadBeforeWrite,
/// IsFound, ReopensOnStart) read atomics and need no lock. None is called with the device mutex
/// held. A step that fails logs its lines.
class Route {
  public:
    Route() = default;
    virtual ~Route() = default;
    Route(const Route&) = delete;
    Route& operator=(const Route&) = delete;

    // The image on the tag.

    /// Whether images and number reads go this way now. Several routes may be active together.
    virtual bool IsActive() const = 0;

    /// Puts a whole image on the tag. Blocks for its transfers. False when it is not there.
    virtual bool WriteImage(const std::uint8_t* image, std::int32_t length)
        TAGPORT_REQUIRES(ContentLock::m_mutex) = 0;

    /// Fetches the 32-byte number that begins at a chip register. Blocks for its transfers. False
    /// when the failure counts as that of the whole read.
    virtual bool ReadNumber(std::uint16_t regAddr, std::uint8_t* number)
        TAGPORT_REQUIRES(ContentLock::m_mutex) = 0;

    /// Whether a message flow reads the tag before it writes a message.
    virtual bool IsReadBeforeWrite() const { return false; }

    /// A message has been written: undoes what a device start has done to hide the tag from phones.
    virtual void MakeReadable() TAGPORT_REQUIRES(ContentLock::m_mutex) {}

    // Device start. A route that the host connects itself keeps these as they are.

    /// Opens the route's device for overlapped I/O and marks the route as found. Empty, with
    /// GetLastError, when there is none.
    virtual UniqueHandle Open() TAGPORT_REQUIRES(ContentLock::m_mutex) { return {}; }

    /// Whether Open has worked once in this process.
    virtual bool IsFound() const { return false; }

    /// Whether a device start closes an open device of this route first and opens it again.
    virtual bool ReopensOnStart() const { return false; }

    /// Makes the open device ready.
    virtual bool Start() TAGPORT_REQUIRES(ContentLock::m_mutex) { return true; }

    /// Takes back what Start has made. The device is closed already.
    virtual void UndoStart() TAGPORT_REQUIRES(ContentLock::m_mutex) {}

    /// The device has been closed: the request of the route's event loop fails.
    virtual void OnDeviceClosed() TAGPORT_REQUIRES(ContentLock::m_mutex) {}

    // The route's event loop.

    /// A manager has been created or a message is written: the loop may run. A stop stays a stop.
    virtual void SetRunFlag() {}

    /// Asks the loop to end. Waits for nobody.
    virtual void StopLoop() {}

    // Any thread, no lock of the library held but, inside a leave on the driver routes,
    // g_deferMutex.

    /// An operation of a manager has ended and released its locks: does what was queued for that.
    virtual void AfterOperation() {}
};
