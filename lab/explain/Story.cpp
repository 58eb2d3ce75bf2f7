#include "lab/explain/Story.h"

#include <algorithm>

#include "lab/explain/ProcessStory.h"

namespace lab::explain {

Story::Story(Sink sink) : m_sink(std::move(sink)) {}
Story::~Story() = default;

void Story::Take(const Match& match, Mark place) {
    place.order = ++m_taken;
    m_lastMicros = place.micros ? place.micros : m_lastMicros;
    auto found = std::find_if(m_processes.begin(), m_processes.end(), [&](const auto& process) {
        return process->Name() == place.process;
    });
    if (found == m_processes.end()) {
        if (m_processes.size() == kMostProcesses) {
            const auto oldest = std::min_element(
                m_processes.begin(), m_processes.end(),
                [](const auto& a, const auto& b) { return a->LastOrder() < b->LastOrder(); });
            (*oldest)->End(false, {});
            m_processes.erase(oldest);
            ++m_dropped;
        }
        m_processes.push_back(std::make_unique<ProcessStory>(place.process, m_sink));
        found = m_processes.end() - 1;
    }
    (*found)->Take(match, place);
}

void Story::Flush() {
    for (const auto& process : m_processes) {
        process->Flush();
    }
}

void Story::End() {
    for (const auto& process : m_processes) {
        process->End(true, m_lastMicros);
    }
}

Json Story::Figures() const {
    Json figures{{"droppedProcesses", m_dropped}, {"processes", Json::array()}};
    for (const auto& process : m_processes) {
        figures["processes"].push_back(process->Figures());
    }
    return figures;
}

}  // namespace lab::explain
