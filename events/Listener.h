// Delivery of events to the host's listener.
#pragma once

#include <cstdint>

#include "events/NumberStore.h"

// Events and routes of the listener's contract.
inline constexpr int kEventLeft = 1;
inline constexpr int kEventEntered = 3;
inline constexpr int kEventMcuStarted = 4;
inline constexpr int kRouteI2c = 1;
inline constexpr int kRouteUsb = 2;
inline constexpr int kRouteHid = 3;
inline constexpr int kRouteBle = 4;

/// What a delivering thread shows to the listener. One for each such thread, of static storage
/// duration: only that thread writes it, between two calls, so a listener never sees a number
/// change under its eyes.
using ShownNumber = std::uint8_t[kNumberSize];

/// Calls the listener with a copy of `number` in `shown`. False, with a log line, when there is no
/// listener. Called with no lock held but, for the leave on the driver routes, g_deferMutex.
bool DeliverEvent(int event, const NumberStore& number, int route, ShownNumber& shown);

/// Logs "NFC_defer call done" with the first eight bytes of the number.
void LogLeaveDelivered(const NumberStore& number);
