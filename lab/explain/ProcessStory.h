// The story of one process of a log. Every list in it has a bound: what exceeds it becomes open, or
// dropped where only a figure is lost.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
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

/// Takes one thing that happened, with the fields that docs/lab.md lists.
using ItemSink = std::function<void(const Json& item)>;

/// Nothing when a time is unknown, or the clock was set back.
Micros Between(Micros begin, Micros end);

/// A line of a failure. The same line counts again instead of becoming another step.
struct Step {
    const Meaning* meaning = nullptr;
    std::string text;
    std::optional<std::uint32_t> code;
    Mark place;
    std::uint64_t times = 1;
    bool Is(std::initializer_list<Role> roles) const {
        return std::count(roles.begin(), roles.end(), meaning->role) > 0;
    }
};
using Chain = std::vector<Step>;

enum class Outcome : std::uint8_t { kWorked, kFailed, kOpen, kUnusual };

class ProcessStory {
  public:
    ProcessStory(std::string name, const ItemSink& sink) : m_sink(sink), m_name(std::move(name)) {}

    void Take(const Match& match, const Mark& place);
    void Flush();
    /// No line follows: the log ends at `lastMicros`, or the process is no longer kept.
    void End(bool isLogsEnd, Micros lastMicros);
    Json Figures() const;
    const std::string& Name() const { return m_name; }
    std::uint64_t LastOrder() const { return m_lastOrder; }

  private:
    /// One thing that is told, or that is under way.
    struct Item {
        ItemKind kind;
        Mark begin;
        /// Under way: kWorked when an operation without a last line has come to its end, or the
        /// chip has said that the phone left; kFailed when a part has failed.
        Outcome outcome = Outcome::kOpen;
        Micros end{};
        std::string text{};       ///< under way: a further sentence
        std::string_view says{};  ///< the result, from meanings.txt
        Chain chain{};
        unsigned attempts = 0;
        std::string remedy{};
    };
    /// What phones are reported by: the chip, or a keyboard.
    struct Source {
        std::deque<Item> open;
        Micros lastEnd;
        Mark chainBegin;
        unsigned chained = 0;  ///< visits with short pauses
    };
    struct Seen {
        unsigned times = 0;
        std::uint64_t order = 0;  ///< of the last one
    };
    /// A thread; of a log without threads, all of them.
    struct Lane {
        std::optional<Item> operation;
        Chain chain;
        std::optional<std::pair<Match, Mark>> held;  ///< its meaning depends on the next line
        std::optional<Step> messageCause;            ///< why the host's message was not filled
        std::array<Seen, kRuleCount> seen;           ///< by role, since the operation began
        Role previous = Role::kDetail;
        ThreadKind kind = ThreadKind::kAny;  ///< of its last line that shows it
        Role loop = Role::kWaits;            ///< how it goes on or ends
        std::uint64_t lastOrder = 0;
        bool Is(ItemKind one) const { return operation && operation->kind == one; }
        /// Its end is not the end of what is under way.
        bool IsPart(ItemKind one) const {
            return Is(ItemKind::kWrite) && (one == ItemKind::kUpdate || one == ItemKind::kRead);
        }
        Seen& Of(Role role) { return seen.at(static_cast<std::size_t>(role)); }
        bool HasSeen(Role role) { return Of(role).times > 0; }
        /// Images that were written.
        unsigned Attempts() {
            const bool isStored = HasSeen(Role::kWriteStored) || HasSeen(Role::kRenewStored);
            return Of(Role::kChipRetry).times + (isStored ? 1 : 0);
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
    };
    static const std::array<Rule, kRuleCount> kRules;

    // Made of meanings.txt: void ACTION(const At& at); for each action of the rules.
#include "lab/explain/ActionList.h"

    Lane& LaneOf(const Mark& place);
    void WatchClock(const Mark& place);
    bool Holds(const Meaning& one, Lane& lane, const Match& match, Role next) const;
    void Settle(Lane& lane, Role next);
    void Apply(Lane& lane, const Match& match, const Mark& place, Role next);
    void Finish(Lane& lane);
    /// Ends an operation that has no last line, or whose last line did not come.
    void Close(Lane& lane);
    /// A failure that belongs to no operation: told by the meaning of its last line.
    void TellLoose(Lane& lane);
    void TellChain(Lane& lane, ItemKind kind, std::string_view text);
    void TellNote(const Mark& begin, const std::string& text, const Advice& advice = {});
    void Tell(Item item);
    void CountItem(const Item& item, const Json& object);
    /// Of a visit or a new number: its end is not in the log.
    void Lose(std::deque<Item>& open);
    /// What began before that line belongs to a process that has ended.
    void LoseBefore(std::uint64_t order);
    void EndChain(Source& source);
    bool IsFromKeyboard(const Lane& lane) const;
    Source& SourceOf(const Lane& lane) {
        return IsFromKeyboard(lane) ? m_keyboard : m_chip;
    }
    bool Has(Trait trait) const {
        return !m_tags.empty() && (m_tags.begin()->second.traits & trait) != 0;
    }
    std::string AdviceOf(const Advice& advice) const {
        return std::string(advice[m_tags.empty() ? 0 : Has(kInKeyboard) ? 2 : 1]);
    }

    const ItemSink& m_sink;
    std::string m_name;
    std::map<bool, Tag> m_tags;  // the one that DeviceInit found, then the Bluetooth keyboard
    std::string m_firstTime;
    std::string m_lastTime;
    std::uint64_t m_records = 0;
    std::uint64_t m_notNew = 0;
    Json m_kinds = Json::object();
    std::map<ItemKind, std::pair<std::int64_t, std::int64_t>> m_sums;  // microseconds, and of what
    Json m_failures = Json::array();
    Json m_unusual = Json::array();

    Json m_note;  // held back to count its repetitions
    std::map<std::string, Lane, std::less<>> m_lanes;
    Source m_chip;
    Source m_keyboard;
    std::deque<Item> m_renewals;
    std::uint64_t m_earlyRenewals = 0;  // that ended before the line of their beginning
    std::string m_rearmed;              // by what, while a phone was there
    bool m_hasThreads = false;          // that report phones
    bool m_isLogsEnd = false;
    Micros m_logsEnd;
    Micros m_latest;            // time of any line
    Mark m_jump;                // where the clock went back
    unsigned m_earlyLines = 0;  // since then
    std::uint64_t m_lastOrder = 0;
};

}  // namespace lab::explain
