#include "manager/TagSteps.h"

#include <algorithm>

#include "manager/ManagedImage.h"
#include "manager/ManagerLocks.h"
#include "platform/platform.h"
#include "routes/NfcProxy.h"
#include "tagimage/NfcData.h"
#include "transfer/WaitForCommand.h"

namespace {

constexpr int kStartAttempts = 3;
constexpr DWORD kStartPauseMs = 300;

// Of the newest image that has been written, by any manager.
std::uint64_t g_writtenOrder TAGPORT_GUARDED_BY(ContentLock::m_mutex) = 0;

struct Snapshot {
    NfcData data;
    std::uint64_t order = 0;
};

Snapshot SnapshotOf(const ManagedImage& image) {
    platform::Lock lock(ManagedImage::m_memoryMutex);
    return {image.data, image.order()};
}

bool Write(const Snapshot& snapshot) TAGPORT_REQUIRES(ContentLock::m_mutex) {
    const EventSlot::KeepOpen keep(g_ioEvent.value);
    if (!NfcProxy::WriteNfcContent(snapshot.data.GetContent())) {
        return false;
    }
    // Message flows always write, even when their image is older than what was written last; the
    // maximum must not go back.
    g_writtenOrder = std::max(g_writtenOrder, snapshot.order);
    return true;
}

}  // namespace

bool StartDeviceWithRetries() {
    for (int attempt = 0; attempt < kStartAttempts; ++attempt) {
        if (NfcProxy::InitNfcDevice()) {
            return true;
        }
        Sleep(kStartPauseMs);
    }
    return false;
}

std::string BuildImage(const ManagedImage& image) {
    return SnapshotOf(image).data.GetContent();
}

bool ReadImage(std::string& image) {
    platform::Lock lock(ContentLock::m_mutex);
    const EventSlot::KeepOpen keep(g_ioEvent.value);
    return NfcProxy::ReadNfcContent(image);
}

bool WriteImage(const ManagedImage& image) {
    platform::Lock content(ContentLock::m_mutex);
    return Write(SnapshotOf(image));
}

NumberWrite WriteImageUnlessOutdated(const ManagedImage& image) {
    platform::Lock content(ContentLock::m_mutex);
    const Snapshot snapshot = SnapshotOf(image);
    if (snapshot.order < g_writtenOrder) {
        return NumberWrite::kOutdated;
    }
    return Write(snapshot) ? NumberWrite::kWritten : NumberWrite::kFailed;
}

bool ReadNumber(std::uint8_t* number) {
    platform::Lock content(ContentLock::m_mutex);
    const EventSlot::KeepOpen keep(g_ioEvent.value);
    return NfcProxy::ReadRandNumber(number);
}
