#include "lab/EventBook.h"

#include <algorithm>

namespace lab {

void EventBook::Add(int event) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_entries.push_back({event, false});
}

void EventBook::Mark() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_mark = m_entries.size();
}

bool EventBook::Has(int event) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return std::any_of(m_entries.begin() + static_cast<std::ptrdiff_t>(m_mark), m_entries.end(),
                       [=](const Entry& one) { return one.event == event && !one.taken; });
}

bool EventBook::Take(int event) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto found =
        std::find_if(m_entries.begin() + static_cast<std::ptrdiff_t>(m_mark), m_entries.end(),
                     [=](const Entry& one) { return one.event == event && !one.taken; });
    if (found == m_entries.end()) {
        return false;
    }
    found->taken = true;
    return true;
}

std::size_t EventBook::Count(int event) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return static_cast<std::size_t>(std::count_if(
        m_entries.begin(), m_entries.end(), [=](const Entry& one) { return one.event == event; }));
}

}  // namespace lab
