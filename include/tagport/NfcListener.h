// The one way in which the library tells its host what happened.
#pragma once

#include <cstdint>

/// A plain function that the library calls for each event.
///
/// event   3  a phone entered the field: the first report of a visit
///         1  the phone has left
///         4  the tag's microcontroller started, or an unknown chip raised an interrupt
/// route   1  I2C driver   2  USB driver   3  HID keyboard   4  Bluetooth keyboard
/// number  32 bytes: the random number as last read on that route, all zero before the first
///         reading. The storage is the process's own and stays valid; what stands in it may be
///         replaced by the next event of the same thread, so copy what has to last.
///
/// Threads: event 3 and event 4 on routes 1 and 2 come on the interrupt thread, event 1 on routes
/// 1 and 2 on the deferred call thread, all events of route 3 on the keyboard read thread, all of
/// route 4 on the Bluetooth client's thread. While a listener runs, its thread takes no further
/// interrupt, report or notification, so it must return quickly.
///
/// Nobody waits for a listener: it may still be called, up to 8 s for the leave of a phone that has
/// been reported, after the last manager has gone, and a call that has begun goes on after
/// RegisterListener has replaced it. On route 4 calls go on until BtDisconnect has returned. So a
/// listener's code must stay in memory; a host that is unloaded registers null, calls BtDisconnect,
/// lets its managers go and stays for the rest.
///
/// A listener may call the manager. It must not
///   - in event 1 of routes 1 and 2 wait for another visit's event 3: the next visit opens only
///     when it has returned;
///   - on route 3 or 4 count on a number from the keyboard, as ReadRandNum, UpdateNfcData and
///     WriteMessage do: its own thread would have to deliver it, so they end after their time-outs;
///   - on route 4 call BtConnect or BtDisconnect, which wait for deliveries to end;
///   - let an exception escape.
using NfcListener = void (*)(int event, const std::uint8_t (&number)[32], int route);
