/// @file
/// The contract of the listener: the one way in which the library reports to its host.
#pragma once

#include <cstdint>

/// A plain function that the library calls for each event.
///
/// event   3  a phone entered the field: the first report of a visit
///         1  the phone has left
///         4  the tag's microcontroller started, or an unknown chip raised an interrupt
/// route   1  I2C driver   2  USB driver   3  HID keyboard   4  Bluetooth keyboard
/// number  32 bytes: the random number as last read on that route, all zero before the first
///         reading. The storage belongs to the process. The next event of the same thread, or of
///         route 4, overwrites it: copy the number if you need it longer.
///
/// **Threads**
///   - Routes 1 and 2: events 3 and 4 come on the interrupt thread, event 1 on the deferred call
///     thread. Route 3: all events come on the keyboard read thread.
///   - Route 4: events are delivered one at a time, normally on the Bluetooth client's thread that
///     notified them, which blocks meanwhile. If the client notifies inside a call of the library,
///     the event is queued (64 at most, newer ones are lost) and delivered when the operation ends,
///     on the thread that called it: maybe yours, inside a listener call (re-entrancy).
///   - So hold no mutex that the listener takes while you call the manager.
///   - A thread that runs a listener takes no further interrupt, report or notification. Return
///     quickly.
///   - These wait for a listener: the interrupt thread at a first report for that of event 1;
///     BtConnect, BtDisconnect and the next event of route 4 for a delivery of route 4. So does the
///     end of an operation that delivers a queued event.
///
/// **Which visits are reported**
///   - The leave comes up to 8 s after the phone has gone, and up to 15 s with two visits open.
///   - A WriteMessage or Create while a phone stays gives at most one further pair of events 3 and
///     1 for that phone.
///   - FM11N chips and USB: a visit of fewer than four interrupts ends after 350 ms. A phone that
///     lies on the tag when the threads start or the listener is registered, or that checks the tag
///     rarely, can be reported several times.
///   - Fanli chips: a phone that comes within 350 ms of a leave, or before the listener has
///     returned from its event 1, is never reported.
///   - Keyboards: event 3 can stay without an event 1, where the link ends with a phone in the
///     field: at BtDisconnect, when the keyboard is unplugged, at a device start.
///   - A failed request for interrupts or reports ends the reports of its route, and no call says
///     so: see "Losing the device" at NfcManager.
///   - Two losses have no line in the log: a Bluetooth event while 64 others are queued, and an
///     interrupt after a stop has ended the deferred call thread, until the next WriteMessage.
///
/// **Lifetime.** The listener can still be called up to 15 s after the last manager is gone, and a
/// call in progress is not interrupted by RegisterListener. Route 4 calls it until BtDisconnect has
/// returned. So its code must stay in memory. A host that is unloaded registers null, calls
/// BtDisconnect, releases its managers, and stays loaded for these 15 s.
///
/// **What a listener may do.** It may call the manager: it then waits for a pending operation, as
/// any caller does. It must not
///   - in event 3 of routes 1 and 2 wait for event 1 of the same visit: that comes only after the
///     listener has returned from event 3;
///   - in event 1 of routes 1 and 2 wait for another visit's event 3: the next visit opens only
///     after the listener has returned;
///   - on routes 3 and 4 rely on a number from the keyboard, as ReadRandNum, UpdateNfcData and
///     WriteMessage do: its own thread would have to deliver it, so they time out;
///   - on route 4, with a client whose write blocks until a notification has returned, call any
///     operation that waits for the tag, DeviceInit and ReadMessage included: neither it nor the
///     write ever ends;
///   - on route 4 call BtConnect or BtDisconnect, which wait for deliveries to end;
///   - let an exception escape.
using NfcListener = void (*)(int event, const std::uint8_t (&number)[32], int route);
