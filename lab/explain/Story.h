// What happened, from the library's lines in their order: operations of the host, writes of the
// number, visits of phones, failures with their causes. Memory does not grow with the log.
#pragma once

#include <list>

#include "lab/explain/ProcessStory.h"

namespace lab::explain {

class Story {
  public:
    explicit Story(ItemSink sink) : m_sink(std::move(sink)) {}

    void Take(const Match& match, Mark place);
    /// Tells what is held back to count its repetitions.
    void Flush();
    /// The log has ended: what is open is not finished.
    void End();

    std::size_t ProcessCount() const { return m_processes.size(); }
    /// The fields `processes`, in the order of their first lines, and `droppedProcesses`.
    Json Figures() const;

    static constexpr std::size_t kMostProcesses = 64;

  private:
    ItemSink m_sink;
    std::list<ProcessStory> m_processes;
    std::uint64_t m_taken = 0;
    std::uint64_t m_dropped = 0;
    Micros m_lastMicros;
};

}  // namespace lab::explain
