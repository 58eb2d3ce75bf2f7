#include "lab/explain/Story.h"

#include <algorithm>

#include "lab/explain/ProcessStory.h"

namespace lab::explain {

Micros Between(Micros begin, Micros end) {
    // Clocks are set back at times; the threads of a log are not in a strict order either. The
    // bound keeps a sum of many from overflowing.
    constexpr std::uint64_t kLongest = 1'000'000'000'000'000;
    if (!begin || !end || *end < *begin) {
        return std::nullopt;
    }
    const auto span = static_cast<std::uint64_t>(*end) - static_cast<std::uint64_t>(*begin);
    return span > kLongest ? std::nullopt : Micros(static_cast<std::int64_t>(span));
}

Story::Story(Sink sink) : m_sink(std::move(sink)) {}
Story::~Story() = default;

void Story::Take(Entry entry) {
    entry.place.order = ++m_taken;
    m_lastMicros = entry.place.micros ? entry.place.micros : m_lastMicros;
    auto found = std::find_if(m_processes.begin(), m_processes.end(), [&](const auto& process) {
        return process->Figures().process == entry.process;
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

std::vector<const Totals*> Story::Processes() const {
    std::vector<const Totals*> all;
    for (const auto& process : m_processes) {
        all.push_back(&process->Figures());
    }
    return all;
}

}  // namespace lab::explain
