// The order in which the library's mutexes are taken, outermost first, in one place. The
// emulation's guard checks it at every lock.
#pragma once

#include "platform/LockRank.h"

/// Held by the deferred call thread for a whole visit, also while it calls the listener, which may
/// call any operation of a manager: nothing may wait for it with another lock held.
inline constexpr platform::LockRank kDeferLock{10, "g_deferMutex"};

// One whole operation of a manager. Never two of them at once.
inline constexpr platform::LockRank kDeviceOperationLock{20, "m_staticDeviceMutex"};
inline constexpr platform::LockRank kNumberOperationLock{20, "m_staticWriteMutex"};
inline constexpr platform::LockRank kMcuStatusLock{20, "m_staticMcuKbMutex"};
inline constexpr platform::LockRank kBtLinkLock{20, "Bluetooth link mutex"};

/// One whole image, one whole number, one device start or the radio of a write, on all routes. It
/// covers the pauses after blocks: outside the event threads nobody reaches the chip without it.
inline constexpr platform::LockRank kContentLock{30, "ContentLock::m_mutex"};

/// One driver call with the pauses inside it. The pause after a block belongs to the content lock.
inline constexpr platform::LockRank kDeviceLock{40, "device mutex"};

/// One transaction of the spb4 driver.
inline constexpr platform::LockRank kExtendLock{50, "NfcSpbExtend mutex"};

// Short locks: never held over a transfer, a pause, a line of the log or a listener call.
inline constexpr platform::LockRank kMemoryLock{60, "ManagedImage::m_memoryMutex"};
inline constexpr platform::LockRank kHandleLock{65, "OpenDevice mutex"};
inline constexpr platform::LockRank kVisitLock{65, "Visit mutex"};
inline constexpr platform::LockRank kDeliveryLock{65, "Bluetooth delivery mutex"};
inline constexpr platform::LockRank kThreadLifeLock{70, "ThreadLife mutex"};
inline constexpr platform::LockRank kEventSlotLock{80, "EventSlot mutex"};
inline constexpr platform::LockRank kNumberStoreLock{80, "NumberStore mutex"};
