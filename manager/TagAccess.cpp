#include "manager/TagAccess.h"

#include "manager/ManagerLocks.h"
#include "platform/platform.h"
#include "routes/NfcProxy.h"
#include "routes/RouteState.h"
#include "tagimage/NfcData.h"
#include "transfer/TransferState.h"

std::string BuildImage(const NfcData& data) {
    platform::Lock lock(g_memoryMutex);
    return data.GetContent();
}

bool ReadContent(NfcProxy& proxy, std::string& content) {
    platform::Lock lock(g_contentMutex);
    const EventSlot::Keep keep(g_ioEvent.value);
    return proxy.ReadNfcContent(content);
}

bool WriteImage(NfcProxy& proxy, const NfcData& data) {
    platform::Lock content(g_contentMutex);
    const EventSlot::Keep keep(g_ioEvent.value);
    return proxy.WriteNfcContent(BuildImage(data));
}

bool ReadNumber(NfcProxy& proxy, std::uint8_t* number) {
    platform::Lock content(g_contentMutex);
    const EventSlot::Keep keep(g_ioEvent.value);
    return proxy.ReadRandNumber(number);
}
