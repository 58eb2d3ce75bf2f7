// The story of one process of a log. Every list in it has a bound: what exceeds it becomes open,
// or dropped where only a figure is lost.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lab/explain/ClockJump.h"
#include "lab/explain/Story.h"

namespace lab::explain {

constexpr std::string_view kFanli = "Fanli";  // the chip that reports each leave
constexpr std::string_view kSilent = "silent chip";

/// Nothing when a time is unknown, or the clock was set back.
std::optional<std::int64_t> Between(std::optional<std::int64_t> begin,
                                    std::optional<std::int64_t> end);
/// Further sentences of an item that has worked in the end.
std::string Attempts(unsigned attempts);
constexpr char kFailuresOnTheWay[] = " There were failures on the way.";
/// The operation writes an image.
bool HasImage(ItemKind kind);

class ProcessStory {
  public:
    ProcessStory(std::string_view name, const Story::Sink& sink);

    void Take(const Entry& entry);
    /// No line follows: the log ends at `lastMicros`, or the process is no longer kept.
    void End(bool isLogsEnd, std::optional<std::int64_t> lastMicros);
    const Totals& Figures() const { return m_totals; }

  private:
    using Micros = std::optional<std::int64_t>;

    struct Beginning {
        std::uint64_t line = 0;
        std::string time;
        Micros micros;
    };
    /// An operation of the host that has begun.
    struct Operation {
        ItemKind kind = ItemKind::kNote;
        Beginning begin;
        bool isOpen = false;
        bool isDone = false;  ///< of one without a last line: has come to its end
        bool hasFailed = false;
        bool isStored = false;
        bool isOdd = false;
        Micros doneAt;
        unsigned tries = 0;
        unsigned chipRetries = 0;
        std::string note;  ///< a further sentence
    };
    struct Visit {
        Beginning begin;
        Micros left;
        bool hasLeaveStatus = false;
        bool isUnheard = false;  ///< the host had no listener
    };
    /// A thread; of a log without threads, all of them.
    struct Lane {
        std::string thread;
        Operation operation;
        std::vector<Step> chain;
        std::string chainTime;
        Role previous = Role::kDetail;
        std::uint64_t threadsStart = 0;  ///< the line where the reporting threads were started
        bool isWatchKnown = false;       ///< the one that watches for leaves was found running
        bool isLoopNormal = false;
        bool isRefusalNormal = false;
        bool isRenewStored = false;
        bool isRenewTold = false;
        unsigned renewRetries = 0;
        bool isOver = false;
        std::uint64_t lastLine = 0;
        bool IsIdle() const { return !operation.isOpen && chain.empty(); }
    };

    Lane& LaneOf(const Entry& entry);
    // Each true when the role was one of its own.
    bool TakeStart(Lane& lane, const Entry& entry);
    bool TakeWrite(Lane& lane, const Entry& entry);
    bool TakeReading(Lane& lane, const Entry& entry);
    bool TakeRenewal(Lane& lane, const Entry& entry);
    bool TakeVisit(Lane& lane, const Entry& entry);
    bool TakeReporting(Lane& lane, const Entry& entry);
    void TakeOther(Lane& lane, const Entry& entry);

    void Begin(Lane& lane, ItemKind kind, const Entry& entry);
    void Finish(Lane& lane, Outcome outcome, Micros end);
    /// Ends an operation that has no last line, or whose last line did not come.
    void Close(Lane& lane);
    void AddStep(Lane& lane, const Entry& entry);
    void DropMissingDriver(Lane& lane);
    void NotRead(Lane& lane);
    void FinishRenewal(Lane& lane, const Entry& entry, Outcome outcome, const char* text);
    void BeginVisit(Lane& lane, const Entry& entry);
    void EndVisit(Lane& lane, const Entry& entry);
    void LoseVisit(const char* text);
    void LoseRenewal();
    /// What began before `line` belongs to a process that has ended.
    void LoseBefore(std::uint64_t line);
    /// Says of an item that its end is missing, and why.
    void LeaveOpen(Item& item, const Beginning& begin, const char* atEnd, const char* otherwise);
    void EndChainOfVisits();
    /// A failure that belongs to no operation: told by the meaning of its last line.
    void TellLoose(Lane& lane);
    void TellLoose(Lane& lane, ItemKind kind, std::string text);
    void TellOddity(const Lane& lane, const Entry& entry, std::string text, std::string remedy);
    void Tell(Item item);
    bool HasChipRoute() const { return m_totals.route != "HID" && m_totals.route != "Bluetooth"; }

    const Story::Sink& m_sink;
    Totals m_totals;
    ClockJump m_clock;
    bool m_isLogsEnd = false;
    Micros m_logsEnd;
    bool m_hasThreads = false;  // that report phones
    std::map<std::string, Lane, std::less<>> m_lanes;
    std::deque<Visit> m_visits;  // that are open
    std::deque<Beginning> m_renewals;
    std::uint64_t m_earlyRenewals = 0;  // that ended before the line of their beginning
    Micros m_lastVisitEnd;
    Beginning m_chainBegin;
    unsigned m_chainedVisits = 0;
};

}  // namespace lab::explain
