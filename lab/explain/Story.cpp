#include "lab/explain/Story.h"

#include <algorithm>

#include "lab/explain/ProcessStory.h"

namespace lab::explain {

struct Story::Process {
    Process(std::string_view process, const Sink& sink) : name(process), story(process, sink) {}
    std::string name;
    ProcessStory story;
    std::uint64_t lastLine = 0;
};

Story::Story(Sink sink) : m_sink(std::move(sink)) {}
Story::~Story() = default;

Story::Process& Story::ProcessOf(const Entry& entry) {
    if (m_last != nullptr && m_last->name == entry.process) {
        return *m_last;
    }
    const auto found =
        std::find_if(m_processes.begin(), m_processes.end(),
                     [&](const auto& process) { return process->name == entry.process; });
    if (found != m_processes.end()) {
        m_last = found->get();
        return *m_last;
    }
    if (m_processes.size() == kMostProcesses) {
        const auto oldest = std::min_element(
            m_processes.begin(), m_processes.end(),
            [](const auto& a, const auto& b) { return a->lastLine < b->lastLine; });
        (*oldest)->story.End(false, {});
        m_processes.erase(oldest);
        ++m_dropped;
    }
    m_processes.push_back(std::make_unique<Process>(entry.process, m_sink));
    m_last = m_processes.back().get();
    return *m_last;
}

void Story::Take(const Entry& entry) {
    Process& process = ProcessOf(entry);
    process.lastLine = entry.line;
    m_lastMicros = entry.micros ? entry.micros : m_lastMicros;
    process.story.Take(entry);
}

void Story::End() {
    for (const auto& process : m_processes) {
        process->story.End(true, m_lastMicros);
    }
}

std::vector<const Totals*> Story::Processes() const {
    std::vector<const Totals*> all;
    for (const auto& process : m_processes) {
        all.push_back(&process->story.Figures());
    }
    return all;
}

}  // namespace lab::explain
