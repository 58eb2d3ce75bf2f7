// The events that the listener has received in a run, in order. The library's threads add to it;
// the script's thread waits for events and looks them up.
#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <vector>

namespace lab {

constexpr int kPhoneLeft = 1;
constexpr int kPhoneEntered = 3;

/// Every function may be called on any thread.
class ReceivedEvents {
  public:
    void Add(int event, int route);

    /// A new visit of a phone begins: IsPending and TakeOldest ignore the events before it.
    void BeginVisit();
    /// True when an event of the visit has this number and has not been taken.
    bool IsPending(int event) const;
    /// True when an event of the visit came on this route, taken or not.
    bool HasCome(int event, int route) const;
    /// Takes the oldest pending event of this number; false when there is none.
    bool TakeOldest(int event);
    /// True while a visit on the route has begun and not ended.
    bool IsOpen(int route) const;
    /// Every event of this number since the run began.
    std::size_t Count(int event) const;
    /// What was open is not known any more: nobody has listened.
    void ForgetOpen();

  private:
    struct Entry {
        int event;
        int route;
        bool taken;
    };

    mutable std::mutex m_mutex;
    std::vector<Entry> m_entries;
    std::ptrdiff_t m_visitBegin = 0;  // index of the visit's first entry
    std::map<int, unsigned> m_open;   // visits, by route
};

}  // namespace lab
