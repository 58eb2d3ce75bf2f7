#include "manager/ManagerLocks.h"

#include <tagport/NfcManager.h>

platform::NeverDestroyed<std::mutex> m_staticDeviceMutex;
platform::NeverDestroyed<std::mutex> m_staticMcuKbMutex;
platform::NeverDestroyed<std::mutex> g_memoryMutex;

namespace {

platform::NeverDestroyed<std::mutex> g_writeMutex;

}  // namespace

std::mutex& NfcManager::m_staticWriteMutex = g_writeMutex.value;
