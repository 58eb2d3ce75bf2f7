// The locks that all managers of a process share.
#pragma once

#include "platform/platform.h"

/// Held by DeviceInit, WriteMessage, ReadMessage and UpdateNfcData for their whole length.
extern platform::Mutex m_staticDeviceMutex;

/// Held by SetMcuKbConnectStatus around its one store.
extern platform::Mutex m_staticMcuKbMutex;

/// Behind NfcManager::m_staticWriteMutex: one number thread at a time.
extern platform::Mutex g_writeMutex;

/// Guards every manager's message and image in memory. A short lock: never held over a transfer, a
/// pause or a listener call, so WriteRandNum never waits for the tag.
extern platform::Mutex g_memoryMutex;
