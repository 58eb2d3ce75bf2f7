// The listener's events of a run, in order, for those who wait for one.
#pragma once

#include <cstddef>
#include <mutex>
#include <vector>

namespace lab {

class EventBook {
  public:
    // Any thread.
    void Add(int event);

    /// Events count from here on: a new visit begins.
    void Mark();
    /// True when an event since the mark has not been taken yet.
    bool Has(int event) const;
    /// Takes the oldest one; false when there is none.
    bool Take(int event);
    std::size_t Count(int event) const;

  private:
    struct Entry {
        int event;
        bool taken;
    };

    mutable std::mutex m_mutex;
    std::vector<Entry> m_entries;
    std::size_t m_mark = 0;
};

}  // namespace lab
