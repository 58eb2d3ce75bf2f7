#include "manager/TagAccess.h"

#include "chip/LockOrder.h"
#include "chip/TransferState.h"
#include "manager/ManagerLocks.h"
#include "peripheral/NfcProxy.h"
#include "peripheral/PeripheralState.h"
#include "platform/platform.h"
#include "tagimage/NfcData.h"

std::string BuildImage(const NfcData& data) {
    platform::Lock lock(g_memoryMutex.value, kMemoryLock);
    return data.GetContent();
}

bool ReadContent(NfcProxy& proxy, std::string& content) {
    platform::Lock lock(g_contentMutex.value, kContentLock);
    const EventSlot::Keep keep(g_ioEvent.value);
    return proxy.ReadNfcContent(content);
}

bool WriteImage(NfcProxy& proxy, const NfcData& data) {
    platform::Lock content(g_contentMutex.value, kContentLock);
    const EventSlot::Keep keep(g_ioEvent.value);
    return proxy.WriteNfcContent(BuildImage(data));
}

bool ReadNumber(NfcProxy& proxy, std::uint8_t* number) {
    platform::Lock content(g_contentMutex.value, kContentLock);
    const EventSlot::Keep keep(g_ioEvent.value);
    return proxy.ReadRandNumber(number);
}
