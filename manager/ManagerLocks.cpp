#include "manager/ManagerLocks.h"

#include <tagport/NfcManager.h>

#include "transfer/LockOrder.h"

platform::Mutex m_staticDeviceMutex{kDeviceOperationLock};
platform::Mutex m_staticMcuKbMutex{kMcuStatusLock};
platform::Mutex g_memoryMutex{kMemoryLock};

platform::Mutex g_writeMutex{kNumberOperationLock};

std::mutex& NfcManager::m_staticWriteMutex = g_writeMutex.native();
