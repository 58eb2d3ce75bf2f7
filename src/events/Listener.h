// Delivery of events to the host's listener.
#pragma once

#include <cstdint>

#include "events/NumberStore.h"

// Events and routes of the listener's contract.
inline constexpr int kEventLeft = 1;
inline constexpr int kEventEntered = 3;
inline constexpr int kEventMcuStarted = 4;
inline constexpr int kRouteNone = 0;  // no driver has been found
inline constexpr int kRouteI2c = 1;
inline constexpr int kRouteUsb = 2;

/// Delivers the events of one thread, or of route 4, one at a time. It owns the number that the
/// listener is shown, so it lives as long as the process, and it writes the number between two
/// calls only: a listener never sees a number change.
class Deliverer {
  public:
    /// Calls the listener with a copy of `number`. False, with a log line, when there is no
    /// listener. Called with no lock held except, for the leave on the driver routes and inside it,
    /// g_deferMutex.
    bool Deliver(int event, const RandomNumber& number, int route);

  private:
    std::uint8_t m_shown[kNumberSize] = {};
};

/// The route of the kernel driver, kRouteNone when there is none.
int DriverRoute();

/// Logs "NFC_defer call done" with the first eight bytes of the number.
void LogLeaveDelivered(const RandomNumber& number);
