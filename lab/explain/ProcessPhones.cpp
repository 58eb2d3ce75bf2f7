// What the lines of the library's own threads do to the story: new numbers, phones, the threads
// themselves.
#include "lab/explain/ProcessStory.h"

#include <algorithm>
#include <utility>

namespace lab::explain {

namespace {

constexpr std::size_t kMostRenewals = 256;
constexpr std::size_t kMostVisits = 16;
constexpr std::int64_t kMillisecond = 1000;
constexpr std::int64_t kChainPause = 1000 * kMillisecond;  // between two visits of a chain
constexpr unsigned kShortestChain = 3;                     // visits
constexpr std::int64_t kSlowListener = 1000 * kMillisecond;
constexpr std::uint32_t kRequestNotEnded = 996;  // how a wait ends that a stop has woken

}  // namespace

bool ProcessStory::TakeRenewal(Lane& lane, const Entry& entry) {
    switch (entry.match.meaning->role) {
        case Role::kRenewBegins:
            if (m_earlyRenewals > 0) {
                --m_earlyRenewals;
                break;
            }
            if (m_renewals.size() == kMostRenewals) {
                m_renewals.pop_front();
            }
            m_renewals.push_back({entry.line, std::string(entry.time), entry.micros});
            break;
        case Role::kRenewKnown:
            ++m_totals.known;
            break;
        case Role::kRenewRefused:
            AddStep(lane, entry);
            TellLoose(lane, ItemKind::kRenew, "WriteRandNum failed: the number was refused.");
            break;
        case Role::kRenewStored:
            lane.isRenewStored = true;
            lane.isRenewTold = false;
            break;
        case Role::kReadBack:
            break;
        case Role::kRenewEnds:
            FinishRenewal(lane, entry, Outcome::kWorked, "the new number is on the tag.");
            lane.isOver = true;
            break;
        case Role::kRenewOutdated:
            FinishRenewal(lane, entry, Outcome::kWorked,
                          "the number was not written, because another manager has put a newer "
                          "message on the tag.");
            lane.isOver = true;
            break;
        case Role::kRenewFails:
        case Role::kRenewFailed:
            if (entry.match.meaning->role == Role::kRenewFailed &&
                std::exchange(lane.isRenewTold, false)) {
                break;
            }
            AddStep(lane, entry);
            FinishRenewal(lane, entry, Outcome::kFailed, "the new number is not on the tag.");
            lane.isRenewTold = entry.match.meaning->role == Role::kRenewFails;
            break;
        default:
            return false;
    }
    return true;
}

void ProcessStory::FinishRenewal(Lane& lane, const Entry& entry, Outcome outcome,
                                 const char* text) {
    Item item;
    item.kind = ItemKind::kRenew;
    item.outcome = outcome;
    item.thread = lane.thread;
    item.line = entry.line;
    item.time = entry.time;
    if (m_renewals.empty()) {
        ++m_earlyRenewals;
    } else {
        item.line = m_renewals.front().line;
        item.time = m_renewals.front().time;
        item.micros = Between(m_renewals.front().micros, entry.micros);
        m_renewals.pop_front();
    }
    item.text = "WriteRandNum: " + std::string(text);
    item.attempts = lane.renewRetries + (lane.isRenewStored ? 1 : 0);
    // With an operation in the same lane the steps are more likely that operation's.
    if (outcome == Outcome::kFailed || !lane.operation.isOpen) {
        item.chain.swap(lane.chain);
    }
    if (outcome == Outcome::kWorked && (!item.chain.empty() || item.attempts > 1)) {
        item.outcome = Outcome::kUnusual;
        item.text += item.attempts > 1 ? Attempts(item.attempts) : kFailuresOnTheWay;
    }
    lane.renewRetries = 0;
    lane.isRenewStored = false;
    Tell(std::move(item));
}

bool ProcessStory::TakeVisit(Lane& lane, const Entry& entry) {
    switch (entry.match.meaning->role) {
        case Role::kVisitBegins:
            BeginVisit(lane, entry);
            break;
        case Role::kVisitCounts:
            TellLoose(lane);
            break;
        case Role::kLeaveStatus:
            TellLoose(lane);
            for (Visit& visit : m_visits) {
                visit.hasLeaveStatus = true;
            }
            break;
        case Role::kVisitLeft:
            if (!m_visits.empty()) {
                m_visits.front().left = entry.micros;
            }
            break;
        case Role::kVisitEnds:
            EndVisit(lane, entry);
            break;
        case Role::kVisitNobody:
            if (lane.previous == Role::kVisitBegins && !m_visits.empty()) {
                m_visits.back().isUnheard = true;
                if (HasChipRoute()) {
                    m_visits.pop_back();  // the library has not opened it
                }
            }
            TellOddity(lane, entry, entry.match.meaning->means, entry.match.meaning->remedy);
            break;
        default:
            return false;
    }
    return true;
}

void ProcessStory::BeginVisit(Lane& lane, const Entry& entry) {
    TellLoose(lane);
    if (!m_visits.empty() && (!HasChipRoute() || m_visits.size() == kMostVisits)) {
        // A keyboard reports both ends of each visit itself.
        LoseVisit("A phone came, and the next one came before its leave was reported.");
    }
    const auto pause = Between(m_lastVisitEnd, entry.micros);
    if (!pause || *pause > kChainPause || m_chainedVisits == 0) {
        EndChainOfVisits();
        m_chainBegin = {entry.line, std::string(entry.time), entry.micros};
    }
    ++m_chainedVisits;
    m_visits.push_back({{entry.line, std::string(entry.time), entry.micros}, {}, false, false});
}

void ProcessStory::EndVisit(Lane& lane, const Entry& entry) {
    if (m_visits.empty()) {
        TellOddity(lane, entry, "A phone left, and its arrival is not in this log.", {});
        return;
    }
    const Visit visit = m_visits.front();
    m_visits.pop_front();
    Item item;
    item.kind = ItemKind::kVisit;
    item.line = visit.begin.line;
    item.time = visit.begin.time;
    item.micros = Between(visit.begin.micros, visit.left ? visit.left : entry.micros);
    item.thread = lane.thread;
    item.text = "A phone was at the tag.";
    if (visit.isUnheard) {
        item.outcome = Outcome::kUnusual;
        item.text += " The host had no listener when it came.";
    }
    m_lastVisitEnd = entry.micros;
    const auto listener = Between(visit.left, entry.micros);
    if (listener && *listener > kSlowListener) {
        item.outcome = Outcome::kUnusual;
        item.text += " The listener took " + std::to_string(*listener / kMillisecond) +
                     " ms for event 1; the next phone waits that long.";
    }
    if (m_totals.chip == kFanli && !visit.hasLeaveStatus) {
        item.outcome = Outcome::kUnusual;
        item.text += " The chip did not report its leave; the library stopped waiting for it.";
    }
    Tell(std::move(item));
}

void ProcessStory::LoseVisit(const char* text) {
    Item item;
    item.kind = ItemKind::kVisit;
    LeaveOpen(item, m_visits.front().begin, "A phone came, and has not left when the log ends.",
              text);
    m_visits.pop_front();
    Tell(std::move(item));
}

void ProcessStory::LoseRenewal() {
    Item item;
    item.kind = ItemKind::kRenew;
    LeaveOpen(item, m_renewals.front(),
              "WriteRandNum: the new number is not on the tag yet when the log ends.",
              "WriteRandNum: its end is not in the log.");
    m_renewals.pop_front();
    Tell(std::move(item));
}

void ProcessStory::LoseBefore(std::uint64_t line) {
    while (HasChipRoute() && !m_visits.empty() && m_visits.front().begin.line < line) {
        LoseVisit("A phone came, and its leave is not in the log.");
    }
    while (!m_renewals.empty() && m_renewals.front().line < line) {
        LoseRenewal();
    }
}

void ProcessStory::EndChainOfVisits() {
    const unsigned visits = std::exchange(m_chainedVisits, 0);
    if (visits < kShortestChain) {
        return;
    }
    Item item;
    item.kind = ItemKind::kNote;
    item.outcome = Outcome::kUnusual;
    item.line = m_chainBegin.line;
    item.time = m_chainBegin.time;
    item.text = "A chain of " + std::to_string(visits) +
                " visits with less than a second between them: probably one phone that was held at "
                "the edge of the field.";
    Tell(std::move(item));
}

bool ProcessStory::TakeReporting(Lane& lane, const Entry& entry) {
    const Meaning& meaning = *entry.match.meaning;
    switch (meaning.role) {
        case Role::kWaits:
            TellLoose(lane);
            lane.isLoopNormal = lane.isRefusalNormal = false;
            break;
        case Role::kLoopError:
            if (entry.match.code == kRequestNotEnded) {
                lane.isLoopNormal = true;
            } else {
                AddStep(lane, entry);
            }
            break;
        case Role::kLoopRefused:
            if (meaning.says == "interrupt" && !HasChipRoute()) {
                lane.isRefusalNormal = true;
            } else {
                AddStep(lane, entry);
            }
            break;
        case Role::kLoopFails:
            AddStep(lane, entry);
            TellLoose(lane, ItemKind::kReporting, meaning.means);
            break;
        case Role::kLoopEnds:
            if (!lane.isRefusalNormal && !lane.chain.empty() && !lane.operation.isOpen) {
                TellLoose(lane, ItemKind::kReporting, meaning.means);
            } else if (lane.isLoopNormal) {
                Item item;
                item.kind = ItemKind::kReporting;
                item.line = entry.line;
                item.time = entry.time;
                item.thread = lane.thread;
                item.text =
                    "The library stops waiting for phones, because a manager was released "
                    "or the device is started again.";
                Tell(std::move(item));
            }
            break;
        case Role::kInterruptLost:
            AddStep(lane, entry);
            TellLoose(lane, ItemKind::kFailure, meaning.means);
            break;
        case Role::kMcu:
        case Role::kUnusual:
            TellOddity(lane, entry, meaning.means, meaning.remedy);
            break;
        default:
            return false;
    }
    return true;
}

}  // namespace lab::explain
