// Brings the Bluetooth keyboard's field events to the listener: one at a time, in the order in
// which they were notified, and never on a thread that holds a lock of the library.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/platform.h"
#include "transfer/LockOrder.h"

class BtDataNotify;

/// The client may notify inside one of its own calls, which the library makes with its locks held.
/// An event that comes so waits until the operation that made the call has ended (Drain). An event
/// that comes while another one is being delivered is delivered by that thread; but after
/// kMostHandedOver of them a notifying thread waits instead, so that a keyboard that reports
/// without end cannot keep a host's operation. Every other event is delivered at once, on the
/// thread that notified it.
///
/// Nothing is allocated: the client's thread must not see an exception. Of more than kMostWaiting
/// events the last ones are dropped.
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

    /// Makes `sink` the one whose notifications count. Events of an earlier one that still wait are
    /// dropped.
    void SetSink(const BtDataNotify* sink);

    /// Has no sink count any more, drops what waits, and returns after a delivery that is under way
    /// has ended, unless it is this thread's own.
    void Silence();

    /// Whether notifications of `sink` count.
    bool Counts(const BtDataNotify* sink);

    /// Takes an event (1 or 3) of `sink` and delivers it, now or later.
    void Add(const BtDataNotify* sink, int event);

    /// Delivers what waits, unless another thread delivers or this one is inside a call of the
    /// client.
    void Drain();

  private:
    static constexpr std::size_t kMostWaiting = 64;
    static constexpr std::size_t kMostHandedOver = 16;

    platform::Mutex m_mutex{kDeliveryLock};
    platform::ConditionVariable m_idle;  // m_isDelivering has become false
    const BtDataNotify* m_sink TAGPORT_GUARDED_BY(m_mutex) = nullptr;
    std::array<std::uint8_t, kMostWaiting> m_waiting TAGPORT_GUARDED_BY(m_mutex){};  // oldest first
    std::size_t m_count TAGPORT_GUARDED_BY(m_mutex) = 0;                             // of them
    std::size_t m_handedOver TAGPORT_GUARDED_BY(m_mutex) = 0;  // to the thread that delivers
    bool m_isDelivering TAGPORT_GUARDED_BY(m_mutex) = false;
};
