// Delivers the Bluetooth keyboard's field events to the listener: one at a time, in the order in
// which they were notified, and never on a thread that holds a lock of the library.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/platform.h"
#include "transfer/LockOrder.h"

class BtDataNotify;

/// An event is delivered on the thread that notified it, after the events before it; until then
/// that thread blocks (back-pressure).
///
/// The client may also notify inside one of its own calls, which the library makes with its locks
/// held. Such an event is queued until the operation that made the call ends (DeliverPending). A
/// thread whose own event comes after it delivers it earlier.
///
/// Nothing is allocated: the client's thread must not see an exception. The queue holds
/// kMostPending events; newer ones are dropped.
///
/// Locks: a short one of its own, never held over a listener call.
class BleDelivery {
  public:
    static BleDelivery& Get();

    /// Marks, for its scope, that this thread is inside a call of the client.
    class ClientCall {
      public:
        ClientCall();
        ~ClientCall();
        ClientCall(const ClientCall&) = delete;
        ClientCall& operator=(const ClientCall&) = delete;
    };

    /// Makes `sink` the current one. Pending events of an earlier one are dropped.
    void SetSink(const BtDataNotify* sink);

    /// Leaves no sink current, drops the pending events, and returns after a running delivery has
    /// ended, unless it is this thread's own.
    void DetachSink();

    bool IsCurrentSink(const BtDataNotify* sink);

    /// Takes an event (1 or 3) of `sink`. Returns when it has been delivered; at once inside a call
    /// of the client or a delivery of this thread.
    void Add(const BtDataNotify* sink, int event);

    /// Delivers what this thread has queued, and first what came inside a call before that. Does
    /// nothing inside a call of the client or a delivery of this thread.
    void DeliverPending();

  private:
    static constexpr std::size_t kMostPending = 64;

    struct Pending {
        int event = 0;
        const void* thread = nullptr;  // that queued it
        bool isInsideCall =
            false;  // of the client, or inside a delivery: any thread may deliver it
    };

    bool HasOwn() const TAGPORT_REQUIRES(m_mutex);
    bool MayDeliverNext() const TAGPORT_REQUIRES(m_mutex);

    platform::Mutex m_mutex{kDeliveryLock};
    platform::ConditionVariable m_changed;  // a delivery has ended, or pending events are dropped
    const BtDataNotify* m_sink TAGPORT_GUARDED_BY(m_mutex) = nullptr;
    std::array<Pending, kMostPending> m_pending TAGPORT_GUARDED_BY(m_mutex){};  // oldest first
    std::size_t m_count TAGPORT_GUARDED_BY(m_mutex) = 0;                        // of them
    bool m_isDelivering TAGPORT_GUARDED_BY(m_mutex) = false;
};
