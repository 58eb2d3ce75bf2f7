// Finding the keyboard among the human interface devices of the PC.
#pragma once

#include "platform/platform.h"
#include "transfer/UniqueHandle.h"

// What the keyboard calls itself.
inline constexpr USHORT kKeyboardVendorId = 0x7A3E;
inline constexpr USHORT kKeyboardProductId = 0x10B8;
inline constexpr USHORT kKeyboardUsagePage = 0x464E;
inline constexpr USHORT kKeyboardUsage = 0x0043;

/// The keyboard's interface, opened for overlapped I/O, or an empty handle. The first that fits
/// wins; one that vanishes during the search is passed over.
UniqueHandle MatchNfcHidDevice();
