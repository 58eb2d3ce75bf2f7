// The events that the listener has received in a run.
#include "lab/ReceivedEvents.h"

#include <algorithm>
#include <utility>

#include "simulator/PcKinds.h"

namespace lab {

void ReceivedEvents::Add(int event, int route) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_entries.push_back({event, route, false});
    // A keyboard reports one visit after the other, and a report may be lost.
    const simulator::RouteKind* const kind = simulator::RouteByNumber(route);
    const unsigned most = kind != nullptr && kind->reportsBothEnds ? 1 : ~0U;
    unsigned& open = m_open[route];
    if (event == kPhoneEntered) {
        open = std::min(open + 1, most);
    } else if (event == kPhoneLeft && open > 0) {
        --open;
    }
}

void ReceivedEvents::BeginVisit() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_visitBegin = static_cast<std::ptrdiff_t>(m_entries.size());
}

bool ReceivedEvents::IsPending(int event) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return std::any_of(m_entries.begin() + m_visitBegin, m_entries.end(),
                       [=](const Entry& one) { return one.event == event && !one.taken; });
}

bool ReceivedEvents::HasCome(int event, int route) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return std::any_of(m_entries.begin() + m_visitBegin, m_entries.end(),
                       [=](const Entry& one) { return one.event == event && one.route == route; });
}

bool ReceivedEvents::TakeOldest(int event) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto found =
        std::find_if(m_entries.begin() + m_visitBegin, m_entries.end(),
                     [=](const Entry& one) { return one.event == event && !one.taken; });
    return found != m_entries.end() && !std::exchange(found->taken, true);
}

bool ReceivedEvents::IsOpen(int route) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto open = m_open.find(route);
    return open != m_open.end() && open->second > 0;
}

std::size_t ReceivedEvents::Count(int event) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return static_cast<std::size_t>(std::count_if(
        m_entries.begin(), m_entries.end(), [=](const Entry& one) { return one.event == event; }));
}

void ReceivedEvents::ForgetOpen() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_open.clear();
}

}  // namespace lab
