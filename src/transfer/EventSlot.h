// An event handle that several threads share and that can be closed or replaced at any time.
#pragma once

#include <memory>

#include "platform/NeverDestroyed.h"
#include "platform/platform.h"
#include "transfer/LockOrder.h"
#include "transfer/UniqueHandle.h"

/// Holds one event. Whoever waits on it holds a lease. The handle is reference-counted: it is
/// closed with its last lease. So nobody waits on a closed handle or signals a reused one.
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

    /// Delays every Close until its scope ends: for an operation of many waits.
    class KeepOpen {
      public:
        explicit KeepOpen(EventSlot& slot) : m_slot(slot) { m_slot.AddKeeper(); }
        ~KeepOpen() { m_slot.RemoveKeeper(); }
        KeepOpen(const KeepOpen&) = delete;
        KeepOpen& operator=(const KeepOpen&) = delete;

      private:
        EventSlot& m_slot;
    };

    /// Makes a new, unsignalled event and puts it in place of the old one. On failure the old one
    /// stays and GetLastError says why.
    bool Create(bool manualReset);

    /// Releases the event, at once or when the last KeepOpen ends. A Create before that cancels the
    /// release.
    void Close();

    /// The event, or an empty lease.
    Lease Get() const;

    /// Signals the event if there is one.
    void Signal() const;

  private:
    // Of KeepOpen. The analysis of locks leaves out constructors and destructors.
    void AddKeeper();
    void RemoveKeeper();

    mutable platform::Mutex m_mutex{kEventSlotLock};
    Lease m_current TAGPORT_GUARDED_BY(m_mutex);
    unsigned m_keepers TAGPORT_GUARDED_BY(m_mutex) = 0;
    bool m_closeLater TAGPORT_GUARDED_BY(m_mutex) = false;
};

/// The handle of a lease, null for an empty one.
inline HANDLE HandleOf(const EventSlot::Lease& lease) {
    return lease ? lease->handle() : nullptr;
}
