// What happened, from the library's lines in their order: operations of the host, writes of the
// number, visits of phones, failures with their causes. Memory does not grow with the log.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lab/explain/Meanings.h"

namespace lab::explain {

using Micros = std::optional<std::int64_t>;

/// Nothing when a time is unknown, or the clock was set back.
Micros Between(Micros begin, Micros end);

/// A place in the logs.
struct Mark {
    std::uint64_t line = 0;
    unsigned file = 0;  ///< of several, from 0
    std::string time;   ///< as it is written; may be empty
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
inline const KindName& NameOf(ItemKind kind) {
    return kKindNames[static_cast<std::size_t>(kind)];
}

enum class Outcome : std::uint8_t {
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
    Mark place;
    std::uint64_t times = 1;
};

/// One thing that happened.
struct Item {
    Item(ItemKind what, Outcome how, Mark where, std::string who, std::string words)
        : kind(what),
          outcome(how),
          begin(std::move(where)),
          thread(std::move(who)),
          text(std::move(words)) {}

    ItemKind kind;
    Outcome outcome;
    Mark begin;
    std::string thread;
    std::string text;  ///< in plain words, one sentence or two
    Micros micros;     ///< how long it took; of an open one at the end, until then
    std::string process;
    std::vector<Step> chain;  ///< of a failure, in the order of the log
    std::string cause;        ///< its likely cause; empty without one
    std::string remedy;
    unsigned attempts = 0;       ///< of an image to be written
    bool isAtEnd = false;        ///< open, because the log ends first
    std::uint64_t times = 1;     ///< of a note that is repeated
    std::uint64_t lastLine = 0;  ///< of its last repetition
};

/// A tag that a process has used.
struct Tag {
    std::string route;
    std::string chip;
    unsigned traits = 0;  ///< of both
    bool isSilent = false;
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
        std::string text;
        Mark first;
        std::string remedy;
        std::uint64_t times = 1;
    };
    static constexpr std::size_t kMostCauses = 32;

    std::string process;
    std::vector<Tag> tags;  ///< the one that DeviceInit found, then the Bluetooth keyboard
    std::string firstTime;
    std::string lastTime;
    std::uint64_t records = 0;
    std::map<ItemKind, Timed> kinds;
    std::uint64_t known = 0;      ///< numbers that were not new
    std::vector<Cause> causes;    ///< of failures
    std::vector<Cause> oddities;  ///< what was unusual
};

class ProcessStory;

class Story {
  public:
    using Sink = std::function<void(const Item& item)>;
    explicit Story(Sink sink);
    ~Story();

    void Take(Entry entry);
    /// Tells what is held back to count its repetitions.
    void Flush();
    /// The log has ended: what is open is not finished.
    void End();

    /// By process, in the order of their first lines.
    std::vector<const Totals*> Processes() const;
    /// The processes whose figures are no longer kept, because there were too many.
    std::uint64_t DroppedProcesses() const { return m_dropped; }

    static constexpr std::size_t kMostProcesses = 64;

  private:
    Sink m_sink;
    std::vector<std::unique_ptr<ProcessStory>> m_processes;
    std::uint64_t m_taken = 0;
    std::uint64_t m_dropped = 0;
    Micros m_lastMicros;
};

}  // namespace lab::explain
