// An event handle that several threads share and that can be closed or made anew under them.
#pragma once

#include <memory>

#include "platform/NeverDestroyed.h"
#include "platform/platform.h"
#include "transfer/LockOrder.h"
#include "transfer/UniqueHandle.h"

/// Holds one event. Whoever waits on it holds a lease; a handle is closed when the slot has
/// released it and the last lease has ended. Closing a handle that somebody waits on, or signalling
/// one whose number now names something else, can therefore not happen.
///
/// An operation of many waits keeps the slot: a Close in the middle takes effect at its end.
///
/// Any thread. Takes a short lock of its own.
class EventSlot {
  public:
    class Event;
    using Lease = std::shared_ptr<const Event>;

    /// An event handle with its owner.
    class Event {
      public:
        HANDLE handle() const { return m_handle.get(); }

      private:
        friend class EventSlot;
        UniqueHandle m_handle;
    };

    /// Puts off every Close for a scope.
    class KeepOpen {
      public:
        explicit KeepOpen(EventSlot& slot);
        ~KeepOpen();
        KeepOpen(const KeepOpen&) = delete;
        KeepOpen& operator=(const KeepOpen&) = delete;

      private:
        EventSlot& m_slot;
    };

    /// Makes a new, unsignalled event and puts it in place of the old one. On failure the old one
    /// stays and GetLastError says why.
    bool Create(bool manualReset);

    /// Lets go of the event, at once or when the last KeepOpen ends. A Create before that forgets
    /// it.
    void Close();

    /// The event, or an empty lease.
    Lease Get() const;

    /// Signals the event if there is one.
    void Signal() const;

  private:
    mutable platform::Mutex m_mutex{kEventSlotLock};
    Lease m_current;
    unsigned m_keepers = 0;
    bool m_closeLater = false;
};

/// The handle of a lease, null for an empty one.
inline HANDLE HandleOf(const EventSlot::Lease& lease) {
    return lease ? lease->handle() : nullptr;
}
