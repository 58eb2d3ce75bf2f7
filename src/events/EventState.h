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

/// The random number as last read from the chip. Written by number reads, read by all that deliver
/// events.
extern platform::NeverDestroyed<NumberStore> g_tagRandNumber;
