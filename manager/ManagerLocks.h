// The locks that all managers of a process share.
#pragma once

#include <mutex>

#include "platform/NeverDestroyed.h"

/// Held by DeviceInit, WriteMessage, ReadMessage and UpdateNfcData for their whole length.
extern platform::NeverDestroyed<std::mutex> m_staticDeviceMutex;

/// Held by SetMcuKbConnectStatus around its one store.
extern platform::NeverDestroyed<std::mutex> m_staticMcuKbMutex;

/// Guards every manager's message and image in memory. A short lock: never held over a transfer, a
/// pause or a listener call, so WriteRandNum never waits for the tag.
extern platform::NeverDestroyed<std::mutex> g_memoryMutex;
