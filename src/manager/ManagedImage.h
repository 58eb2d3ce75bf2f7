// A manager's image in memory, and the rule for which number and which content is the newest.
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
//     the manager's own,                                       waiting for its thread
//     read before a write
//
// Contents are ordered for the whole process. WriteRandNum, WriteMessage, UpdateNfcData and
// UpdateNfcContent make their manager's content the newest. A number thread whose content is older
// than the one that was written last leaves the tag alone; the other writers always write.
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

    /// Counts the numbers given so far: a moment with which later ones are compared.
    using Moment = std::uint64_t;

    /// The number counts as given from now on, also when it is the one given before.
    void Give(const RandomNumber& number) TAGPORT_REQUIRES(ManagedImage::m_memoryMutex);

    Moment Now() const TAGPORT_REQUIRES(ManagedImage::m_memoryMutex) { return m_given; }

    /// The same, but a number that waits for its thread counts as given after it.
    Moment BeforeWaitingNumber() const TAGPORT_REQUIRES(ManagedImage::m_memoryMutex);

    /// Whether a number of this image has not been written by its thread yet.
    bool HasWaitingNumber() const TAGPORT_REQUIRES(m_memoryMutex) { return m_waiting > 0; }

    /// The number given last if that was after the moment; null if not.
    const RandomNumber* GivenSince(Moment moment) const
        TAGPORT_REQUIRES(ManagedImage::m_memoryMutex);

    /// Makes this content the newest of the process.
    void MakeNewest() TAGPORT_REQUIRES(ManagedImage::m_memoryMutex);

    /// Greater for newer content; zero before the first MakeNewest.
    std::uint64_t order() const TAGPORT_REQUIRES(ManagedImage::m_memoryMutex) { return m_order; }

    /// Only copied, replaced and asked here: its operations that log are called on a copy, outside
    /// the lock.
    NfcData data TAGPORT_GUARDED_BY(ManagedImage::m_memoryMutex);

  private:
    friend class WaitingNumber;

    // Of the content that was made the newest last.
    static std::uint64_t m_newestOrder TAGPORT_GUARDED_BY(m_memoryMutex);

    RandomNumber m_number TAGPORT_GUARDED_BY(ManagedImage::m_memoryMutex){};  // given last
    Moment m_given TAGPORT_GUARDED_BY(ManagedImage::m_memoryMutex) = 0;
    unsigned m_waiting TAGPORT_GUARDED_BY(ManagedImage::m_memoryMutex) =
        0;  // numbers whose thread has not ended
    std::uint64_t m_order TAGPORT_GUARDED_BY(ManagedImage::m_memoryMutex) = 0;
};

/// Marks an image as having a number that its thread has not written yet. Ends with the thread.
class WaitingNumber {
  public:
    WaitingNumber() = default;
    ~WaitingNumber() TAGPORT_EXCLUDES(ManagedImage::m_memoryMutex);
    WaitingNumber(const WaitingNumber&) = delete;
    WaitingNumber& operator=(const WaitingNumber&) = delete;

    void Begin(std::shared_ptr<ManagedImage> image) TAGPORT_REQUIRES(ManagedImage::m_memoryMutex);

  private:
    std::shared_ptr<ManagedImage> m_image;
};
