// Everything about the peripheral that outlives managers: routes, numbers, scratch, the listener.
// All managers of a process share it. The threads' own variables stand in EventThread.h, the open
// handle and the transfer in chip/TransferState.h.
#pragma once

#include <tagport/NfcListener.h>

#include <atomic>
#include <cstdint>
#include <mutex>

#include "chip/EventSlot.h"
#include "peripheral/NumberStore.h"
#include "platform/NeverDestroyed.h"

// Which routes there are. Set by the device start when it chooses a route and never cleared; read
// by every operation and by the event threads.
extern std::atomic<bool> g_isI2cDriver;
extern std::atomic<bool> g_isUsbDriver;
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

// The random number as last read on each route: from the chip by number reads, from the keyboard
// by its read thread, over Bluetooth by the client's thread. Read by all that deliver events.
extern platform::NeverDestroyed<NumberStore> g_tagRandNumber;
extern platform::NeverDestroyed<NumberStore> g_hidRandNumber;
extern platform::NeverDestroyed<NumberStore> g_btRandNumber;

/// The random number as a read-back last confirmed it. Written by the managers' writes; for a
/// debugger, as nothing reads it.
extern platform::NeverDestroyed<NumberStore> g_localNumber;

/// Manual-reset event, pulsed by the keyboard read thread when a number has arrived.
extern platform::NeverDestroyed<EventSlot> g_RandEvent;

/// Manual-reset event, set by the Bluetooth sink when a number has arrived and reset by the waiter.
extern platform::NeverDestroyed<EventSlot> g_btRandEvent;

/// Serialises whole images, whole number reads and device starts on all routes, so that two
/// threads never mix two images. Outside the device mutex; held over transfers.
extern platform::NeverDestroyed<std::mutex> g_contentMutex;

// Heads of outgoing keyboard frames and reports, built up in place. Used under g_contentMutex.
inline constexpr std::size_t kFrameHeadSize = 2;
inline constexpr std::size_t kReportHeadSize = 4;
extern std::uint8_t g_frameHead[kFrameHeadSize];
extern std::uint8_t g_hidReportHead[kReportHeadSize];
