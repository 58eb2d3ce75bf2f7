// What happened, from the library's lines in their order: operations of the host, writes of the
// number, visits of phones, failures with their causes. Memory does not grow with the log: every
// list has a bound, and what exceeds it is told as open.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "lab/Recorder.h"
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
    const char* success;    ///< the beginning of the sentence that says so
};
extern const std::array<KindName, kKindNameCount> kKindNames;

/// Takes one thing that happened, with the fields that docs/lab.md lists.
using ItemSink = std::function<void(const Json& item)>;

/// Nothing when a time is unknown, or the clock was set back.
Micros Between(Micros begin, Micros end);

/// A process, or one of its threads.
struct Writer {
    std::string name;
    std::uint64_t lastOrder = 0;  ///< of its lines
};

/// The writer of this name. Of too many, the one that has been silent for longest is dropped.
template <class One, class Drop, class... Rest>
One& FindOrAdd(std::list<One>& all, const std::string& name, std::size_t most, Drop drop,
               Rest&... rest) {
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const One& one) { return one.name == name; });
    if (found != all.end()) {
        return *found;
    }
    if (all.size() == most) {
        const auto oldest =
            std::min_element(all.begin(), all.end(),
                             [](const One& a, const One& b) { return a.lastOrder < b.lastOrder; });
        drop(*oldest);
        all.erase(oldest);
    }
    return all.emplace_back(name, rest...);
}

/// A line of a failure. The same line counts again instead of becoming another step.
struct Step {
    const Meaning* meaning;
    std::optional<std::uint32_t> code;
    Mark place;
    Json object;  ///< as it is told
};
using Chain = std::vector<Step>;

enum class Outcome : std::uint8_t { kWorked, kFailed, kOpen, kUnusual };

class ProcessStory : public Writer {
  public:
    ProcessStory(std::string process, const ItemSink& sink)
        : Writer{std::move(process)}, m_sink(sink) {}

    void Take(const Match& match, const Mark& place);
    /// No line follows: the log ends at `lastMicros`, or the process is no longer kept.
    void End(bool isLogsEnd, Micros lastMicros);
    Json Figures() const;

  private:
    /// One thing that is told, or that is under way.
    struct Item {
        ItemKind kind;
        Mark begin;
        /// Under way: kWorked when an operation without a last line has come to its end, or the
        /// chip has said that the phone left; kFailed when a part has failed.
        Outcome outcome = Outcome::kOpen;
        std::string text{};  ///< under way: a further sentence
        const Advice* advice = nullptr;
        Micros end{};
        std::string says{};  ///< the result
        Chain chain{};
        unsigned attempts = 0;
    };
    using Items = std::deque<Item>;
    /// What phones are reported by: the chip, or a keyboard.
    struct Source {
        Items open;
        Micros lastEnd;
        Mark chainBegin;
        unsigned chained = 0;  ///< visits with short pauses
    };
    /// A thread; of a log without threads, all of them.
    struct Lane : Writer {
        std::optional<Item> operation;
        Chain chain;
        std::optional<Step> messageCause;         ///< why the host's message was not filled
        std::array<unsigned, kRuleCount> seen{};  ///< by role, since the operation began
        std::uint64_t threadsOrder = 0;           ///< of the line that last started those of phones
        std::optional<Mark> numberAsked;          ///< the first line of the last number read
        Role previous = Role::kDetail;
        Role loop = Role::kWaits;            ///< how the wait for phones goes on or ends
        ThreadKind kind = ThreadKind::kAny;  ///< of its last line that shows it

        explicit Lane(std::string thread) : Writer{std::move(thread)} {}
        bool Is(ItemKind one) const { return operation && operation->kind == one; }
        /// Such an operation is under way, itself or as a part of another one.
        bool Includes(ItemKind one) const {
            const bool isOfUpdate = one == ItemKind::kUpdate || one == ItemKind::kReadNumber;
            return Is(one) || (Is(ItemKind::kUpdate) && isOfUpdate) ||
                   (Is(ItemKind::kWrite) && (isOfUpdate || one == ItemKind::kRead));
        }
        unsigned& Seen(Role role) { return seen.at(static_cast<std::size_t>(role)); }
        /// Images that were written.
        unsigned Attempts() {
            const unsigned stored = Seen(Role::kWriteStored) + Seen(Role::kRenewStored);
            return Seen(Role::kChipRetry) + std::min(stored, 1U);
        }
    };
    struct Tag {
        std::string route;
        std::string chip;
        unsigned traits = 0;  ///< of both
    };
    struct At;
    /// What a line of a role does to the story, from meanings.txt. By role.
    struct Rule {
        void (ProcessStory::*action)(const At& at);
        ItemKind kind;
        Outcome outcome;
    };
    /// A line that an action is for.
    struct At {
        Lane& lane;
        const Match& match;
        const Mark& place;
        const Meaning& meaning;
        const Rule& rule;
        bool HasFailed() const { return rule.outcome == Outcome::kFailed; }
    };
    static const std::array<Rule, kRuleCount> kRules;

    // Made of meanings.txt: void ACTION(const At& at); for each action of the rules.
#include "lab/explain/ActionList.h"

    void WatchClock(const Mark& place);
    bool Holds(const Meaning& one, Lane& lane, const Match& match) const;
    static void AddStep(const At& at);
    void Finish(Lane& lane);
    /// Ends an operation that has no last line, or whose last line did not come.
    void Close(Lane& lane);
    /// A failure that belongs to no operation: told by the meaning of its last line.
    void TellLoose(Lane& lane);
    void TellChain(Lane& lane, ItemKind kind, const Meaning& meaning);
    void Tell(Item item);
    std::string FirstSentence(const Item& item) const;
    void CountItem(const Item& item, const Json& object);
    void Open(Items& items, const At& at);
    /// Of a visit or a new number: its end is not in the log.
    void Lose(Items& open);
    /// What began before that line belongs to a process that has ended.
    void LoseBefore(std::uint64_t order);
    void EndChain(Source& source);
    bool IsFromKeyboard(const Lane& lane) const;
    Source& SourceOf(const Lane& lane) {
        return IsFromKeyboard(lane) ? m_keyboard : m_chip;
    }
    Tag FirstTag() const {
        return m_tags.empty() ? Tag() : m_tags.begin()->second;
    }
    bool Has(Trait trait) const {
        return (FirstTag().traits & trait) != 0;
    }

    const ItemSink& m_sink;
    std::map<bool, Tag> m_tags;  // the one that DeviceInit found, then the Bluetooth keyboard
    std::string m_firstTime;
    std::string m_lastTime;
    std::uint64_t m_records = 0;
    std::uint64_t m_notNew = 0;
    Json m_kinds = Json::object();
    std::map<ItemKind, std::pair<double, double>> m_sums;  // microseconds, and of how many
    Json m_failures = Json::array();
    Json m_unusual = Json::array();

    std::list<Lane> m_lanes;
    Source m_chip;
    Source m_keyboard;
    Items m_renewals;
    std::uint64_t m_earlyRenewals = 0;  // that ended before the line of their beginning
    std::string m_rearmed;              // by what, while a phone was there
    bool m_hasThreads = false;          // that report phones
    bool m_isLogsEnd = false;
    Micros m_logsEnd;           // unknown before it
    Micros m_latest;            // time of any line
    Mark m_jump;                // where the clock went back
    unsigned m_earlyLines = 0;  // since then
};

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

  private:
    void Tell(const Json& item);

    ItemSink m_sink;
    ItemSink m_tell = [this](const Json& item) { Tell(item); };
    Json m_note;  // held back to count its repetitions
    std::list<ProcessStory> m_processes;
    std::uint64_t m_taken = 0;
    std::uint64_t m_dropped = 0;
    Micros m_lastMicros;
};

}  // namespace lab::explain
