// The one way in which the library reports to its host what happened.
#pragma once

#include <cstdint>

/// A plain function that the library calls for each event.
///
/// event   3  a phone entered the field: the first report of a visit
///         1  the phone has left
///         4  the tag's microcontroller started, or an unknown chip raised an interrupt
/// route   1  I2C driver   2  USB driver   3  HID keyboard   4  Bluetooth keyboard
/// number  32 bytes: the random number as last read on that route, all zero before the first
///         reading. The storage belongs to the process and stays valid. The next event of the same
///         thread, or of route 4, replaces what it holds, so copy the number if you need it longer.
///
/// Threads: events 3 and 4 of routes 1 and 2 come on the interrupt thread, event 1 of routes 1 and
/// 2 on the deferred call thread, all events of route 3 on the keyboard read thread. While a
/// listener runs, its thread takes no further interrupt, report or notification, so it must return
/// quickly.
///
/// Route 4: events are delivered one at a time, normally on the Bluetooth client's thread that
/// notified them, which blocks meanwhile. If the client notifies inside a call that the library
/// made, the event is queued and delivered when the manager's operation ends, on the thread that
/// called it. That can be your own thread, inside a listener call (re-entrancy). So a listener must
/// not hold a mutex of its own while it calls the manager. Of more than 64 queued events the newest
/// are dropped.
///
/// Which visits are reported:
///   - The leave comes up to 8 s after the phone has gone, and up to 15 s with two visits open.
///   - A WriteMessage or Create while a phone stays in the field gives at most one further pair of
///     events 3 and 1 for that phone.
///   - On an FM11N chip and on USB a visit of fewer than four interrupts ends after 350 ms. A phone
///     that lies on the tag when the threads start, or that checks the tag rarely, can be reported
///     several times.
///   - On a Fanli chip a phone that comes within 350 ms of a leave, or before the listener has
///     returned from its event 1, is never reported.
///
/// Nobody waits for a listener. It may still be called after the last manager has gone, as long as
/// the leave of a reported phone may take, and a call that has begun goes on after RegisterListener
/// has replaced it. On route 4 calls go on until BtDisconnect has returned. So a listener's code
/// must stay in memory; a host that is unloaded registers null, calls BtDisconnect, lets its
/// managers go and stays for the rest.
///
/// A listener may call the manager. A read or a write waits there for a device start that is under
/// way, 51 s at worst. A listener must not
///   - in event 3 of routes 1 and 2 wait for event 1 of the same visit: it comes only after the
///     listener has returned from event 3;
///   - in event 1 of routes 1 and 2 wait for another visit's event 3: the next visit opens only
///     after the listener has returned;
///   - on route 3 or 4 count on a number from the keyboard, as ReadRandNum, UpdateNfcData and
///     WriteMessage do: its own thread would have to deliver it, so they end after their time-outs.
///     With a client whose write waits until a running notification has returned, they never end;
///   - on route 4 call BtConnect or BtDisconnect, which wait for deliveries to end;
///   - let an exception escape.
using NfcListener = void (*)(int event, const std::uint8_t (&number)[32], int route);
