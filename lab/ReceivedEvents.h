// The events that the listener has received in a run, in order. The library's threads add to it;
// the script's thread waits for events and looks them up.
#pragma once

#include <cstddef>
#include <mutex>
#include <vector>

namespace lab {

/// Every function may be called on any thread.
class ReceivedEvents {
  public:
    void Add(int event);

    /// A new visit of a phone begins: IsPending and TakeOldest ignore the events before it.
    void BeginVisit();
    /// True when an event of the visit has this number and has not been taken.
    bool IsPending(int event) const;
    /// Takes the oldest pending event of this number; false when there is none.
    bool TakeOldest(int event);
    /// Every event of this number since the run began.
    std::size_t Count(int event) const;

  private:
    struct Entry {
        int event;
        bool taken;
    };

    mutable std::mutex m_mutex;
    std::vector<Entry> m_entries;
    std::size_t m_visitBegin = 0;  // index of the visit's first entry
};

}  // namespace lab
