// The story of one process of a log. Every list in it has a bound: what exceeds it becomes open, or
// dropped where only a figure is lost.
#pragma once

#include <bitset>
#include <deque>
#include <map>

#include "lab/explain/Story.h"

namespace lab::explain {

class ProcessStory {
  public:
    ProcessStory(std::string_view name, const Story::Sink& sink);

    void Take(const Entry& entry);
    void Flush();
    /// No line follows: the log ends at `lastMicros`, or the process is no longer kept.
    void End(bool isLogsEnd, Micros lastMicros);
    const Totals& Figures() const { return m_totals; }
    std::uint64_t LastOrder() const { return m_lastOrder; }

  private:
    /// An operation of the host that has begun.
    struct Operation {
        ItemKind kind = ItemKind::kNote;
        Mark begin;
        bool isDone = false;  ///< of one without a last line: has come to its end
        bool isOdd = false;
        Micros doneAt;
        unsigned tries = 0;
        std::string note;  ///< a further sentence
    };
    struct Visit {
        Mark begin;
        std::string note;
        Micros left;
        bool hasLeaveStatus = false;
    };
    /// What phones are reported by: the chip, or a keyboard.
    struct Source {
        std::deque<Visit> open;
        Micros lastEnd;
        Mark chainBegin;
        unsigned chained = 0;  ///< visits with short pauses
    };
    /// A thread; of a log without threads, all of them.
    struct Lane {
        std::string thread;
        std::optional<Operation> operation;
        std::vector<Step> chain;
        std::optional<Entry> held;         ///< its meaning depends on the next line
        std::optional<Step> messageCause;  ///< why the host's message has not been filled
        std::bitset<static_cast<std::size_t>(Role::kCount)> seen;  ///< since the operation began
        Role previous = Role::kDetail;
        ThreadKind kind = ThreadKind::kAny;  ///< of its last line that shows it
        std::uint64_t threadsStart = 0;      ///< the order of the line
        bool isLoopNormal = false;
        bool isRefusalNormal = false;
        unsigned retries = 0;  ///< of a chip's image
        std::uint64_t lastOrder = 0;
        bool IsIdle() const { return !operation && chain.empty() && !held; }
        bool Is(ItemKind one) const { return operation && operation->kind == one; }
        bool Writes() const { return Is(ItemKind::kWrite) || Is(ItemKind::kUpdate); }
        bool HasSeen(Role role) const { return seen[static_cast<std::size_t>(role)]; }
    };
    /// What a line of a role does to the story, from meanings.txt. By role.
    struct Rule {
        void (ProcessStory::*action)(Lane& lane, const Entry& entry, ItemKind kind);
        ItemKind kind;
    };
    static const Rule kRules[];

    // The actions of the rules.
    void Notice(Lane& lane, const Entry& entry, ItemKind kind);
    void AddStep(Lane& lane, const Entry& entry, ItemKind kind);
    void AddLoose(Lane& lane, const Entry& entry, ItemKind kind);
    void AddUnusual(Lane& lane, const Entry& entry, ItemKind kind);
    void Begin(Lane& lane, const Entry& entry, ItemKind kind);
    void Try(Lane& lane, const Entry& entry, ItemKind kind);
    void Done(Lane& lane, const Entry& entry, ItemKind kind);
    void Succeed(Lane& lane, const Entry& entry, ItemKind kind);
    void Fail(Lane& lane, const Entry& entry, ItemKind kind);
    void FindRoute(Lane& lane, const Entry& entry, ItemKind kind);
    void FindChip(Lane& lane, const Entry& entry, ItemKind kind);
    void NotRead(Lane& lane, const Entry& entry, ItemKind kind);
    void HaveThreads(Lane& lane, const Entry& entry, ItemKind kind);
    void FailNumberRead(Lane& lane, const Entry& entry, ItemKind kind);
    void BeginRenewal(Lane& lane, const Entry& entry, ItemKind kind);
    void EndRenewal(Lane& lane, const Entry& entry, ItemKind kind);
    void BeginVisit(Lane& lane, const Entry& entry, ItemKind kind);
    void EndVisit(Lane& lane, const Entry& entry, ItemKind kind);
    void MissListener(Lane& lane, const Entry& entry, ItemKind kind);
    void Wait(Lane& lane, const Entry& entry, ItemKind kind);
    void RefuseRequest(Lane& lane, const Entry& entry, ItemKind kind);
    void EndLoop(Lane& lane, const Entry& entry, ItemKind kind);

    Lane& LaneOf(const Entry& entry);
    void WatchClock(const Mark& place);
    void Settle(Lane& lane, Role next);
    void Apply(Lane& lane, Entry entry, Role next);
    void Finish(Lane& lane, Outcome outcome, Micros end);
    /// Ends an operation that has no last line, or whose last line did not come.
    void Close(Lane& lane);
    /// A failure that belongs to no operation: told by the meaning of its last line.
    void TellLoose(Lane& lane);
    void TellChain(Lane& lane, ItemKind kind, std::string_view text);
    void TellNote(const Mark& begin, std::string text, std::string_view advice = {});
    /// Of something without an end.
    void TellOpen(ItemKind kind, const Mark& begin, const std::string& text);
    void Tell(Item item);
    void LoseVisit(Source& source);
    void LoseRenewal();
    /// What began before that line belongs to a process that has ended.
    void LoseBefore(std::uint64_t order);
    void EndChain(Source& source);
    bool IsFromKeyboard(const Lane& lane) const;
    Source& SourceOf(const Lane& lane) { return IsFromKeyboard(lane) ? m_keyboard : m_chip; }
    bool Has(Trait trait) const {
        return !m_totals.tags.empty() && (m_totals.tags.front().traits & trait) != 0;
    }

    std::string_view AdviceOf(const Advice& advice) const {
        return advice[m_totals.tags.empty() ? 0 : Has(kInKeyboard) ? 2 : 1];
    }

    const Story::Sink& m_sink;
    Totals m_totals;
    std::optional<Item> m_note;  // held back to count its repetitions
    std::map<std::string, Lane, std::less<>> m_lanes;
    Source m_chip;
    Source m_keyboard;
    std::deque<Mark> m_renewals;
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
