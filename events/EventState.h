// What the event threads share with the rest of the library: which driver there is, the listener,
// and the number that the chip last gave. The process has one of each; all managers share them.
#pragma once

#include <tagport/NfcListener.h>

#include <atomic>
#include <cstdint>

#include "events/NumberStore.h"
#include "platform/NeverDestroyed.h"

// Which kernel driver there is. Set by the device start when it chooses a route and never cleared;
// read by every operation and by the event threads.
extern std::atomic<bool> g_isI2cDriver;
extern std::atomic<bool> g_isUsbDriver;

/// The one listener of the process, null for none. Written by the host's thread, read once for
/// each event by the thread that delivers it.
extern std::atomic<NfcListener> staticCallback;

/// True: the next interrupt opens a visit. Cleared by the interrupt thread, set by the deferred
/// call thread at the end of a visit, by every WriteMessage and by every new manager.
extern std::atomic<bool> g_interruptFirst;

/// Interrupts of this visit on an spb2 chip; on an spb4 chip 1 during a visit and 2 once the chip
/// reports the leave. Written by the interrupt thread, read by the deferred call thread.
extern std::atomic<std::int32_t> g_fieldCount;
inline constexpr std::int32_t kFieldVisitOpened = 1;
inline constexpr std::int32_t kFieldLeaveReported = 2;

/// The random number as last read from the chip. Written by number reads, read by all that deliver
/// events.
extern platform::NeverDestroyed<NumberStore> g_tagRandNumber;
