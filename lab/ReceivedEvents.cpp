// The events that the listener has received in a run.
#include "lab/ReceivedEvents.h"

#include <algorithm>

namespace lab {

void ReceivedEvents::Add(int event) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_entries.push_back({event, false});
}

void ReceivedEvents::BeginVisit() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_visitBegin = m_entries.size();
}

bool ReceivedEvents::IsPending(int event) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return std::any_of(m_entries.begin() + static_cast<std::ptrdiff_t>(m_visitBegin),
                       m_entries.end(),
                       [=](const Entry& one) { return one.event == event && !one.taken; });
}

bool ReceivedEvents::TakeOldest(int event) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto found =
        std::find_if(m_entries.begin() + static_cast<std::ptrdiff_t>(m_visitBegin), m_entries.end(),
                     [=](const Entry& one) { return one.event == event && !one.taken; });
    if (found == m_entries.end()) {
        return false;
    }
    found->taken = true;
    return true;
}

std::size_t ReceivedEvents::Count(int event) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return static_cast<std::size_t>(std::count_if(
        m_entries.begin(), m_entries.end(), [=](const Entry& one) { return one.event == event; }));
}

}  // namespace lab
