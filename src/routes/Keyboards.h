// The two keyboards: which of them takes frames, and the number that each has sent.
#pragma once

#include <atomic>

#include "events/NumberStore.h"
#include "platform/NeverDestroyed.h"
#include "transfer/EventSlot.h"

/// The HID route has been chosen. Set by the device start and never cleared; read by every
/// operation.
extern std::atomic<bool> g_isHidDevice;

/// The HID keyboard's microcontroller may be written to. Set by the host, read by image writes and
/// number reads.
extern std::atomic<bool> g_mcuKbConnected;

// The random number as last received from a keyboard: over HID by its read thread, over Bluetooth
// by the client's thread. Read by number reads and by all that deliver events.
extern platform::NeverDestroyed<NumberStore> g_hidRandNumber;
extern platform::NeverDestroyed<NumberStore> g_btRandNumber;

/// Manual-reset event, pulsed by the keyboard read thread when a number has arrived.
extern platform::NeverDestroyed<EventSlot> g_RandEvent;

/// Manual-reset event, set by the Bluetooth sink when a number has arrived and reset by the waiter.
extern platform::NeverDestroyed<EventSlot> g_btRandEvent;
