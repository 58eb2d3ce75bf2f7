// What happened, from the library's lines in their order: operations of the host, writes of the
// number, visits of phones, failures with their causes. Memory does not grow with the log.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "lab/explain/Meanings.h"

namespace lab::explain {

/// One line of the library, with where it comes from. Valid during the call.
struct Entry {
    std::uint64_t line = 0;
    Match match;
    std::string_view time;  ///< as it is written; may be empty
    std::optional<std::int64_t> micros;
    std::string_view process;
    std::string_view thread;
};

enum class ItemKind {
    kCreate,
    kStart,
    kWrite,
    kUpdate,
    kRefresh,
    kRead,
    kReadNumber,
    kRenew,
    kVisit,
    kConnect,
    kDisconnect,
    kReporting,  ///< the threads that report phones
    kFailure,    ///< outside any operation
    kNote,
};

enum class Outcome {
    kWorked,
    kFailed,
    kOpen,     ///< its end is not in the log
    kUnusual,  ///< worked, with something that is worth a look
};

/// A line of a failure. The same line counts again instead of becoming another step.
struct Step {
    const Meaning* meaning = nullptr;
    std::string text;
    std::optional<std::uint32_t> code;
    std::uint64_t line = 0;
    std::uint64_t times = 1;
};

/// One thing that happened.
struct Item {
    ItemKind kind = ItemKind::kNote;
    Outcome outcome = Outcome::kWorked;
    std::uint64_t line = 0;  ///< where it began
    std::string time;
    std::optional<std::int64_t>
        micros;  ///< how long it took; of an open one at the end, until then
    std::string process;
    std::string thread;
    std::string text;         ///< in plain words, one sentence or two
    std::vector<Step> chain;  ///< of a failure, in the order of the log
    std::string cause;        ///< its likely cause; empty without one
    std::string remedy;
    unsigned attempts = 0;  ///< of an image to be written
    bool isAtEnd = false;   ///< open, because the log ends first
};

/// The figures of one process.
struct Totals {
    struct Timed {
        std::uint64_t worked = 0;
        std::uint64_t failed = 0;
        std::uint64_t open = 0;
        std::uint64_t atEnd = 0;  // of the open ones
        std::uint64_t retried = 0;
        std::uint64_t timed = 0;
        std::int64_t sum = 0;
        std::int64_t longest = 0;
    };
    struct Cause {
        std::uint64_t times = 0;
        std::string remedy;
    };
    static constexpr std::size_t kMostCauses = 32;

    std::string process;
    std::string route;  ///< the last one
    std::string chip;
    std::string firstTime;
    std::string lastTime;
    std::uint64_t records = 0;
    std::map<ItemKind, Timed> kinds;
    std::uint64_t known = 0;  ///< numbers that were not new
    std::uint64_t unusual = 0;
    std::map<std::string, Cause> causes;    ///< of failures
    std::map<std::string, Cause> oddities;  ///< what was unusual
};

class Story {
  public:
    using Sink = std::function<void(const Item& item)>;
    explicit Story(Sink sink);
    ~Story();

    void Take(const Entry& entry);
    /// The log has ended: what is open is not finished.
    void End();

    /// By process, in the order of their first lines.
    std::vector<const Totals*> Processes() const;
    /// The processes whose figures are no longer kept, because there were too many.
    std::uint64_t DroppedProcesses() const { return m_dropped; }

    static constexpr std::size_t kMostProcesses = 64;

  private:
    struct Process;

    Process& ProcessOf(const Entry& entry);

    Sink m_sink;
    std::deque<std::unique_ptr<Process>> m_processes;
    Process* m_last = nullptr;
    std::uint64_t m_dropped = 0;
    std::optional<std::int64_t> m_lastMicros;
};

}  // namespace lab::explain
