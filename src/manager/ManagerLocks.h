// The locks that all managers of a process share.
#pragma once

#include "platform/platform.h"

/// Held by DeviceInit, WriteMessage, ReadMessage, UpdateNfcData and UpdateNfcContent for their
/// whole length.
extern platform::Mutex m_staticDeviceMutex;

/// Held by SetMcuKbConnectStatus around its one store.
extern platform::Mutex m_staticMcuKbMutex;

/// The mutex to which NfcManager::m_staticWriteMutex refers: one number thread at a time.
platform::Mutex& NumberThreadMutex();
