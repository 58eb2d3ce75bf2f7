// An event handle that several threads share and that can be closed or made anew under them.
#pragma once

#include <memory>
#include <mutex>

#include "platform/NeverDestroyed.h"
#include "platform/platform.h"

/// Holds one event. Whoever waits on it, or is in the middle of an operation that will, holds a
/// lease; a handle is closed when the slot has let go of it and the last lease has ended. Closing
/// a handle that somebody waits on, or signalling one whose number now names something else, can
/// therefore not happen.
///
/// Any thread. Takes a short lock of its own.
class EventSlot {
  public:
    class Event;
    using Lease = std::shared_ptr<const Event>;

    /// An event handle with its owner.
    class Event {
      public:
        explicit Event(HANDLE handle) : m_handle(handle) {}
        ~Event();
        Event(const Event&) = delete;
        Event& operator=(const Event&) = delete;
        HANDLE handle() const { return m_handle; }

      private:
        HANDLE m_handle;
    };

    /// Makes a new, unsignalled event and puts it in place of the old one. On failure the old one
    /// stays and GetLastError tells why.
    bool Create(bool manualReset);

    /// Lets go of the event.
    void Close();

    /// The event; the one let go of last, as long as others still hold it; or an empty lease. So
    /// an operation that began with a lease goes on to its end after Close.
    Lease Get() const;

    bool IsOpen() const;

    /// Signals the event if there is one.
    void Signal() const;

  private:
    mutable std::mutex m_mutex;
    Lease m_current;
    std::weak_ptr<const Event> m_last;
};

/// The handle of a lease, null for an empty one.
inline HANDLE HandleOf(const EventSlot::Lease& lease) {
    return lease ? lease->handle() : nullptr;
}
