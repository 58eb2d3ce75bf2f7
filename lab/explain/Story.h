// What happened, from the library's lines in their order: operations of the host, writes of the
// number, visits of phones, failures with their causes. Memory does not grow with the log.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "lab/Recorder.h"
#include "lab/explain/Meanings.h"
#include "lab/explain/Prefix.h"

namespace lab::explain {

/// A place in the logs, and what is before its line.
struct Mark : Origin {
    std::uint64_t line = 0;
    std::string_view file{};  ///< outlives the story
    std::uint64_t order = 0;  ///< counts the library's lines
};

/// The names of a kind of item, from meanings.txt.
struct KindName {
    const char* json;
    const char* label;      ///< in the summary; empty: not a line of its own
    const char* operation;  ///< what the host has called
    const char* success;
};
extern const std::array<KindName, kKindNameCount> kKindNames;

class ProcessStory;

class Story {
  public:
    /// Takes one thing that happened, with the fields that docs/lab.md lists.
    using Sink = std::function<void(const Json& item)>;
    explicit Story(Sink sink);
    ~Story();

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
    Sink m_sink;
    std::vector<std::unique_ptr<ProcessStory>> m_processes;
    std::uint64_t m_taken = 0;
    std::uint64_t m_dropped = 0;
    Micros m_lastMicros;
};

}  // namespace lab::explain
