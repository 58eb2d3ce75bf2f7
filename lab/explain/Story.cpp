#include "lab/explain/Story.h"

#include <algorithm>
#include <iterator>

#include "lab/explain/ProcessStory.h"

namespace lab::explain {

Story::Story(Sink sink) : m_sink(std::move(sink)) {}
Story::~Story() = default;

void Story::Take(Entry entry) {
    entry.place.order = ++m_taken;
    m_lastMicros = entry.place.micros ? entry.place.micros : m_lastMicros;
    auto found = std::find_if(m_processes.begin(), m_processes.end(), [&](const auto& process) {
        return process->Name() == entry.process;
    });
    if (found == m_processes.end()) {
        if (m_processes.size() == kMostProcesses) {
            found = std::min_element(
                m_processes.begin(), m_processes.end(),
                [](const auto& a, const auto& b) { return a->LastOrder() < b->LastOrder(); });
            (*found)->End(false, {});
            m_processes.erase(found);
            ++m_dropped;
        }
        m_processes.push_back(std::make_unique<ProcessStory>(entry.process, m_sink));
        found = std::prev(m_processes.end());
    }
    (*found)->Take(entry);
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
    Json processes = Json::array();
    for (const auto& process : m_processes) {
        processes.push_back(process->Figures());
    }
    return {{"droppedProcesses", m_dropped}, {"processes", processes}};
}

}  // namespace lab::explain
