// What happened, from the library's lines in their order: operations of the host, writes of the
// number, visits of phones, failures with their causes. Memory does not grow with the log.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lab/Recorder.h"
#include "lab/explain/Meanings.h"

namespace lab::explain {

using Micros = std::optional<std::int64_t>;

/// A place in the logs.
struct Mark {
    std::uint64_t line = 0;
    std::string_view file;  ///< outlives the story
    std::string time;       ///< as it is written; may be empty
    Micros micros;
    std::uint64_t order = 0;  ///< counts the library's lines
};

/// One line of the library, with where it comes from. The views are valid during the call.
struct Entry {
    Match match;
    Mark place;
    std::string_view process;
    std::string_view thread;
};

/// The names of a kind of item, from meanings.txt.
struct KindName {
    const char* json;
    const char* label;      ///< in the summary; empty: not a line of its own
    const char* operation;  ///< what the host has called
    const char* success;
};
extern const KindName kKindNames[];
extern const std::size_t kKindNameCount;

class ProcessStory;

class Story {
  public:
    /// Takes one thing that happened, with the fields that docs/lab.md lists.
    using Sink = std::function<void(const Json& item)>;
    explicit Story(Sink sink);
    ~Story();

    void Take(Entry entry);
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
