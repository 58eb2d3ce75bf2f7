#include "lab/explain/Story.h"

namespace lab::explain {

void Story::Take(const Match& match, Mark place) {
    place.order = ++m_taken;
    m_lastMicros = place.micros ? place.micros : m_lastMicros;
    auto found = std::find_if(m_processes.begin(), m_processes.end(),
                              [&](const auto& process) { return process.Name() == place.process; });
    if (found == m_processes.end()) {
        if (m_processes.size() == kMostProcesses) {
            const auto oldest = std::min_element(
                m_processes.begin(), m_processes.end(),
                [](const auto& a, const auto& b) { return a.LastOrder() < b.LastOrder(); });
            oldest->End(false, {});
            m_processes.erase(oldest);
            ++m_dropped;
        }
        found = m_processes.emplace(m_processes.end(), place.process, m_sink);
    }
    found->Take(match, place);
}

void Story::Flush() {
    for (ProcessStory& process : m_processes) {
        process.Flush();
    }
}

void Story::End() {
    for (ProcessStory& process : m_processes) {
        process.End(true, m_lastMicros);
    }
}

Json Story::Figures() const {
    Json figures{{"droppedProcesses", m_dropped}, {"processes", Json::array()}};
    for (const ProcessStory& process : m_processes) {
        figures["processes"].push_back(process.Figures());
    }
    return figures;
}

}  // namespace lab::explain
