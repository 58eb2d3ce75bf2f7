// A manager's image in memory, and the rule for which number and which image is the newest.
//
// Operations overlap: a read may bring an older number from the tag into memory, a write carries
// the number of its message, and a number thread may not have written yet. So each image keeps the
// number that was given last, and an operation looks whether its own has become older:
//
//   Operation              Its number        Counts as given   Gives way to a number that was
//   WriteRandNum           its argument      at the call       -
//   WriteMessage           its message's     when merged       given since the call
//   UpdateNfcData,         the manager's     when copied       given since the copy
//     UpdateNfcContent       message's
//   ReadMessage into       the manager's     when copied       given since the copy
//     another message        message's
//   ReadMessage into       the tag's         never             given since the call, or is still
//     the manager's own,                                       pending
//     read before a write
//
// Images are ordered for the whole process. WriteRandNum, WriteMessage, UpdateNfcData and
// UpdateNfcContent make their manager's image the newest. A number thread whose image is older than
// the one that was written last leaves the tag alone; the other writers always write.
#pragma once

#include <cstdint>
#include <memory>

#include "events/NumberStore.h"
#include "manager/ManagerLocks.h"
#include "tagimage/NfcData.h"

/// Shared by a manager, its copies and its number threads. Everything under the memory lock.
class ManagedImage {
  public:
    /// The memory lock: guards every manager's message and image in memory. A short lock: never
    /// held over a transfer, a pause, a listener call or a log line, so WriteRandNum never waits
    /// for the tag or for a slow log.
    static platform::Mutex m_memoryMutex;

    /// Counts the numbers given so far.
    using Generation = std::uint64_t;

    /// The number counts as given from now on, also when it is the one given before.
    void SetGiven(const RandomNumber& number) TAGPORT_REQUIRES(ManagedImage::m_memoryMutex);

    Generation generation() const TAGPORT_REQUIRES(ManagedImage::m_memoryMutex) { return m_given; }

    /// The same, but a number that its thread has not written yet counts as given after it.
    Generation GenerationIgnoringPending() const TAGPORT_REQUIRES(ManagedImage::m_memoryMutex);

    /// Whether a number of this image has not been written by its thread yet.
    bool HasPendingNumber() const TAGPORT_REQUIRES(m_memoryMutex) { return m_pending > 0; }

    /// The number given last if it is of a later generation; null if not.
    const RandomNumber* NewerThan(Generation generation) const
        TAGPORT_REQUIRES(ManagedImage::m_memoryMutex);

    /// Makes this image the newest of the process.
    void MakeNewest() TAGPORT_REQUIRES(ManagedImage::m_memoryMutex);

    /// Greater for a newer image; zero before the first MakeNewest.
    std::uint64_t order() const TAGPORT_REQUIRES(ManagedImage::m_memoryMutex) { return m_order; }

    /// Only copied, replaced and asked here: its operations that log are called on a copy, outside
    /// the lock.
    NfcData data TAGPORT_GUARDED_BY(ManagedImage::m_memoryMutex);

  private:
    friend class PendingNumber;

    // Of the image that was made the newest last.
    static std::uint64_t m_newestOrder TAGPORT_GUARDED_BY(m_memoryMutex);

    RandomNumber m_number TAGPORT_GUARDED_BY(ManagedImage::m_memoryMutex){};  // given last
    Generation m_given TAGPORT_GUARDED_BY(ManagedImage::m_memoryMutex) = 0;
    unsigned m_pending TAGPORT_GUARDED_BY(ManagedImage::m_memoryMutex) =
        0;  // numbers whose thread has not ended
    std::uint64_t m_order TAGPORT_GUARDED_BY(ManagedImage::m_memoryMutex) = 0;
};

/// Marks an image as having a number that its thread has not written yet. Ends with the thread.
class PendingNumber {
  public:
    PendingNumber() = default;
    ~PendingNumber() { End(); }
    PendingNumber(const PendingNumber&) = delete;
    PendingNumber& operator=(const PendingNumber&) = delete;

    void Begin(std::shared_ptr<ManagedImage> image) TAGPORT_REQUIRES(ManagedImage::m_memoryMutex);

  private:
    void End() TAGPORT_EXCLUDES(ManagedImage::m_memoryMutex);

    std::shared_ptr<ManagedImage> m_image;
};
