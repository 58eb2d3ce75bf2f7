// The host's listener, and the delivery of events to it.
#pragma once

#include <tagport/NfcListener.h>

#include <atomic>
#include <cstdint>

#include "events/NumberStore.h"

/// The one listener of the process, null for none. Written by the host's thread, read once for
/// each event by the thread that delivers it.
extern std::atomic<NfcListener> staticCallback;

// Events of the listener's contract.
inline constexpr int kEventLeft = 1;
inline constexpr int kEventEntered = 3;
inline constexpr int kEventMcuStarted = 4;

/// Delivers the events of one thread, or of route 4, one at a time. It owns the number that the
/// listener is shown, so it lives as long as the process, and it writes the number between two
/// calls only: a listener never sees a number change.
class Deliverer {
  public:
    /// Calls the listener with a copy of `number`, and blocks while it runs. False, with a log
    /// line, when there is no listener. No lock is held, except g_deferMutex during event 1 of
    /// routes 1 and 2.
    bool Deliver(int event, const RandomNumber& number, int route);

  private:
    std::uint8_t m_shown[kNumberSize] = {};
};

/// Logs "NFC_defer call done" with the first eight bytes of the number.
void LogLeaveDelivered(const RandomNumber& number);
