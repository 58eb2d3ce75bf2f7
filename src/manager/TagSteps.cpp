#include "manager/TagSteps.h"

#include <algorithm>

#include "manager/ManagedImage.h"
#include "manager/ManagerLocks.h"
#include "platform/platform.h"
#include "routes/NfcProxy.h"
#include "routes/RouteState.h"
#include "tagimage/NfcData.h"
#include "transfer/WaitForCommand.h"

namespace {

// Of the newest content that has been written, by any manager.
std::uint64_t g_writtenOrder TAGPORT_GUARDED_BY(NfcProxy::m_contentMutex) = 0;

struct Snapshot {
    NfcData data;
    std::uint64_t order = 0;
};

Snapshot SnapshotOf(const ManagedImage& image) {
    platform::Lock lock(ManagedImage::m_memoryMutex);
    return {image.data, image.order()};
}

bool Write(NfcProxy& proxy, const Snapshot& snapshot) TAGPORT_REQUIRES(NfcProxy::m_contentMutex) {
    const EventSlot::KeepOpen keep(g_ioEvent.value);
    if (!proxy.WriteNfcContent(snapshot.data.GetContent())) {
        return false;
    }
    // A message flow that waited may write an older content than the one before it.
    g_writtenOrder = std::max(g_writtenOrder, snapshot.order);
    return true;
}

}  // namespace

std::string BuildImage(const ManagedImage& image) {
    return SnapshotOf(image).data.GetContent();
}

bool ReadContent(NfcProxy& proxy, std::string& content) {
    platform::Lock lock(NfcProxy::m_contentMutex);
    const EventSlot::KeepOpen keep(g_ioEvent.value);
    return proxy.ReadNfcContent(content);
}

bool WriteImage(NfcProxy& proxy, const ManagedImage& image) {
    platform::Lock content(NfcProxy::m_contentMutex);
    return Write(proxy, SnapshotOf(image));
}

NumberWrite WriteImageUnlessOutdated(NfcProxy& proxy, const ManagedImage& image) {
    platform::Lock content(NfcProxy::m_contentMutex);
    const Snapshot snapshot = SnapshotOf(image);
    if (snapshot.order < g_writtenOrder) {
        return NumberWrite::kOutdated;
    }
    return Write(proxy, snapshot) ? NumberWrite::kWritten : NumberWrite::kFailed;
}

bool ReadNumber(NfcProxy& proxy, std::uint8_t* number) {
    platform::Lock content(NfcProxy::m_contentMutex);
    const EventSlot::KeepOpen keep(g_ioEvent.value);
    return proxy.ReadRandNumber(number);
}
