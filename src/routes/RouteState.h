// What the routes share: which keyboards there are, their numbers and events, scratch for frames.
// The process has one of each; all managers share them.
#pragma once

#include <atomic>
#include <cstdint>

#include "events/NumberStore.h"
#include "platform/NeverDestroyed.h"
#include "platform/platform.h"
#include "routes/NfcProxy.h"
#include "transfer/EventSlot.h"

/// The HID route has been chosen. Set by the device start and never cleared; read by every
/// operation.
extern std::atomic<bool> g_isHidDevice;

/// The HID keyboard's microcontroller may be written to. Set by the host, read by image writes and
/// number reads.
extern std::atomic<bool> g_mcuKbConnected;

// The PC types. The first shows no URI, the others show one each.
inline constexpr std::uint8_t kPcTypeBlank = 2;
inline constexpr std::uint8_t kPcTypeOrvane = 5;
inline constexpr std::uint8_t kPcTypeVelmo = 8;

/// The PC type last accepted: it chooses the register of the random number. Written by the
/// managers, read by number reads.
extern std::atomic<std::uint8_t> g_pcModel;

// The random number as last received from a keyboard: over HID by its read thread, over Bluetooth
// by the client's thread. Read by number reads and by all that deliver events.
extern platform::NeverDestroyed<NumberStore> g_hidRandNumber;
extern platform::NeverDestroyed<NumberStore> g_btRandNumber;

/// The random number as a read-back last confirmed it. Written by the managers' writes; for a
/// debugger, as nothing reads it.
extern platform::NeverDestroyed<NumberStore> g_localNumber;

/// Manual-reset event, pulsed by the keyboard read thread when a number has arrived.
extern platform::NeverDestroyed<EventSlot> g_RandEvent;

/// Manual-reset event, set by the Bluetooth sink when a number has arrived and reset by the waiter.
extern platform::NeverDestroyed<EventSlot> g_btRandEvent;

// Heads of outgoing keyboard frames and reports, built up in place.
inline constexpr std::size_t kFrameHeadSize = 2;
inline constexpr std::size_t kReportHeadSize = 4;
extern std::uint8_t g_frameHead[kFrameHeadSize] TAGPORT_GUARDED_BY(NfcProxy::m_contentMutex);
extern std::uint8_t g_hidReportHead[kReportHeadSize] TAGPORT_GUARDED_BY(NfcProxy::m_contentMutex);
