// Runs a command to its end, over the one request record that all commands share.
#pragma once

#include <cstdint>

#include "platform/NeverDestroyed.h"
#include "platform/platform.h"
#include "transfer/EventSlot.h"

class NfcCommand;

/// The request record of all commands; its offsets stay 0. Used only under the device mutex.
extern OVERLAPPED g_ioOverlapped;

/// Manual-reset event of g_ioOverlapped. Made by each device start, closed by a failed one and by
/// the end of a manager's proxy.
extern platform::NeverDestroyed<EventSlot> g_ioEvent;

/// Runs a command to its end. Returns 0 for success, a last-error code, or 22 for a null command.
/// Blocks for kTransferTimeoutMs at most, and then for the end of the request, which it cancels:
/// the transfer has failed with WAIT_TIMEOUT. The caller holds the device mutex, and keeps and
/// deletes the command.
std::uint32_t WaitForCommand(NfcCommand* command);

/// Far above any honest transfer, which takes milliseconds; short enough that a dead driver does
/// not hold a host for long.
inline constexpr DWORD kTransferTimeoutMs = 2000;

inline constexpr std::uint32_t kNullCommandStatus = 22;
