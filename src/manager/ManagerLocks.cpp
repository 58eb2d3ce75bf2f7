#include "manager/ManagerLocks.h"

#include <tagport/NfcManager.h>

#include "transfer/LockOrder.h"

platform::Mutex m_staticDeviceMutex{kDeviceOperationLock};
platform::Mutex m_staticMcuKbMutex{kMcuStatusLock};

platform::Mutex& NumberThreadMutex() {
    static platform::Mutex mutex{kNumberOperationLock};
    return mutex;
}

std::mutex& NfcManager::m_staticWriteMutex = NumberThreadMutex().native();
