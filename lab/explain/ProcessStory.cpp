#include "lab/explain/ProcessStory.h"

#include <algorithm>
#include <utility>

#include "lab/explain/Advice.h"

namespace lab::explain {

namespace {

// With Story::kMostProcesses these bound the memory.
constexpr std::size_t kMostLanes = 32;
constexpr std::size_t kMostSteps = 16;
constexpr std::size_t kLongestStep = 128;  // bytes of a line that is shown

const char* NameOf(ItemKind kind) {
    switch (kind) {
        case ItemKind::kCreate:
            return "Create";
        case ItemKind::kStart:
            return "DeviceInit";
        case ItemKind::kWrite:
            return "WriteMessage";
        case ItemKind::kUpdate:
            return "UpdateNfcData";
        case ItemKind::kRefresh:
            return "UpdateNfcContent";
        case ItemKind::kRead:
            return "ReadMessage";
        case ItemKind::kConnect:
            return "BtConnect";
        default:
            return "the operation";
    }
}

const char* SuccessOf(ItemKind kind) {
    switch (kind) {
        case ItemKind::kCreate:
            return "the manager exists";
        case ItemKind::kWrite:
        case ItemKind::kUpdate:
            return "the message is on the tag";
        case ItemKind::kRefresh:
            return "the message is on the tag";
        case ItemKind::kRead:
            return "the tag was read";
        case ItemKind::kConnect:
            return "the keyboard is connected";
        default:
            return "done";
    }
}

}  // namespace

std::optional<std::int64_t> Between(std::optional<std::int64_t> begin,
                                    std::optional<std::int64_t> end) {
    // Clocks are set back at times; the threads of a log are not in a strict order either. The
    // bound keeps a sum of many from overflowing.
    constexpr std::int64_t kLongest = 1'000'000'000'000'000;
    if (!begin || !end || *end < *begin) {
        return std::nullopt;
    }
    const auto span = static_cast<std::uint64_t>(*end) - static_cast<std::uint64_t>(*begin);
    return span > kLongest ? std::nullopt : std::optional(static_cast<std::int64_t>(span));
}

std::string Attempts(unsigned attempts) {
    return " It took " + std::to_string(attempts) + " attempts.";
}

bool HasImage(ItemKind kind) {
    return kind == ItemKind::kWrite || kind == ItemKind::kUpdate || kind == ItemKind::kRefresh;
}

ProcessStory::ProcessStory(std::string_view name, const Story::Sink& sink) : m_sink(sink) {
    m_totals.process = name;
}

ProcessStory::Lane& ProcessStory::LaneOf(const Entry& entry) {
    auto found = m_lanes.find(entry.thread);
    if (found == m_lanes.end()) {
        if (m_lanes.size() == kMostLanes) {
            const auto oldest =
                std::min_element(m_lanes.begin(), m_lanes.end(), [](const auto& a, const auto& b) {
                    // One that waits for nothing goes first.
                    return std::pair(!a.second.IsIdle(), a.second.lastLine) <
                           std::pair(!b.second.IsIdle(), b.second.lastLine);
                });
            Close(oldest->second);
            TellLoose(oldest->second);
            m_lanes.erase(oldest);
        }
        found = m_lanes.emplace(entry.thread, Lane{}).first;
        found->second.thread = entry.thread;
    }
    found->second.lastLine = entry.line;
    return found->second;
}

void ProcessStory::Take(const Entry& entry) {
    ++m_totals.records;
    if (!entry.time.empty()) {
        if (m_totals.firstTime.empty()) {
            m_totals.firstTime = entry.time;
        }
        m_totals.lastTime = entry.time;
    }
    Lane& lane = LaneOf(entry);
    if (entry.micros) {
        if (const auto jump = m_clock.Take(entry.line, entry.time, *entry.micros)) {
            Item item;
            item.outcome = Outcome::kUnusual;
            item.line = jump->line;
            item.time = jump->time;
            item.micros = jump->micros;
            item.text = "The clock goes back here: it was set, or the PC was started again.";
            Tell(std::move(item));
        }
    }
    const Role role = entry.match.meaning->role;
    if (role != Role::kDetail && !TakeStart(lane, entry) && !TakeWrite(lane, entry) &&
        !TakeReading(lane, entry) && !TakeRenewal(lane, entry) && !TakeVisit(lane, entry) &&
        !TakeReporting(lane, entry)) {
        TakeOther(lane, entry);
    }
    lane.previous = role;
    if (lane.isOver && !lane.thread.empty() && lane.IsIdle()) {
        m_lanes.erase(lane.thread);  // each renewal has a thread of its own
    }
}

void ProcessStory::End(bool isLogsEnd, Micros lastMicros) {
    m_isLogsEnd = isLogsEnd;
    m_logsEnd = lastMicros;
    for (auto& [name, lane] : m_lanes) {
        Close(lane);
        TellLoose(lane);
    }
    EndChainOfVisits();
    while (!m_visits.empty()) {
        LoseVisit("A phone came, and its leave is not in the log.");
    }
    while (!m_renewals.empty()) {
        LoseRenewal();
    }
}

void ProcessStory::LeaveOpen(Item& item, const Beginning& begin, const char* atEnd,
                             const char* otherwise) {
    item.outcome = Outcome::kOpen;
    item.line = begin.line;
    item.time = begin.time;
    item.isAtEnd = m_isLogsEnd;
    item.micros = m_isLogsEnd ? Between(begin.micros, m_logsEnd) : std::nullopt;
    item.text += m_isLogsEnd ? atEnd : otherwise;
}

void ProcessStory::Begin(Lane& lane, ItemKind kind, const Entry& entry) {
    Close(lane);
    TellLoose(lane);
    lane.operation = Operation();
    lane.operation.kind = kind;
    lane.operation.isOpen = true;
    lane.operation.begin = {entry.line, std::string(entry.time), entry.micros};
}

void ProcessStory::Close(Lane& lane) {
    const Operation& operation = lane.operation;
    if (operation.isOpen) {
        Finish(lane, operation.isDone ? Outcome::kWorked : Outcome::kOpen, operation.doneAt);
    }
}

void ProcessStory::Finish(Lane& lane, Outcome outcome, Micros end) {
    Operation& operation = lane.operation;
    operation.isOpen = false;
    Item item;
    item.kind = operation.kind;
    item.outcome = outcome;
    item.line = operation.begin.line;
    item.time = operation.begin.time;
    item.micros = Between(operation.begin.micros, end);
    item.thread = lane.thread;
    item.text = NameOf(operation.kind);
    if (HasImage(operation.kind)) {
        item.attempts =
            std::max(operation.tries, operation.chipRetries + (operation.isStored ? 1U : 0U));
    } else if (operation.kind == ItemKind::kStart) {
        item.attempts = operation.tries;
    }
    if (outcome == Outcome::kOpen) {
        LeaveOpen(item, operation.begin, ": not finished when the log ends.",
                  ": its end is not in the log.");
    } else if (outcome == Outcome::kFailed) {
        item.text += " failed";
        if (HasImage(operation.kind)) {
            item.text += operation.isStored ? ": the image was written, but not found on the tag"
                                            : ": the message is not on the tag";
        }
        item.text += ".";
    } else if (operation.kind == ItemKind::kStart) {
        item.text += ": the tag is open";
        item.text += m_totals.route.empty() ? "" : " on " + m_totals.route;
        if (m_totals.chip == kSilent) {
            item.text += ". The chip has not answered";
        } else if (HasChipRoute() && !m_totals.chip.empty()) {
            item.text += ", chip " + m_totals.chip;
        }
        item.text += ".";
    } else {
        item.text += ": " + std::string(SuccessOf(operation.kind)) + ".";
    }
    if (outcome == Outcome::kWorked && item.attempts > 1) {
        item.text += Attempts(item.attempts);
    }
    if (!operation.note.empty()) {
        item.text += " " + operation.note;
    }
    item.chain.swap(lane.chain);
    if (outcome == Outcome::kWorked &&
        (!item.chain.empty() || item.attempts > 1 || operation.isOdd)) {
        item.outcome = Outcome::kUnusual;
        item.text += item.attempts > 1 || operation.isOdd ? "" : kFailuresOnTheWay;
    }
    Tell(std::move(item));
}

void ProcessStory::AddStep(Lane& lane, const Entry& entry) {
    const Match& match = entry.match;
    if (lane.chain.empty()) {
        lane.chainTime = entry.time;
    }
    for (Step& step : lane.chain) {
        if (step.meaning == match.meaning && step.code == match.code) {
            ++step.times;
            return;
        }
    }
    if (lane.chain.size() < kMostSteps) {
        lane.chain.push_back({match.meaning, std::string(match.text.substr(0, kLongestStep)),
                              match.code, entry.line, 1});
    }
}

// A route was found later, so the missing driver is no fault.
void ProcessStory::DropMissingDriver(Lane& lane) {
    const auto end = std::remove_if(lane.chain.begin(), lane.chain.end(), [](const Step& step) {
        return step.meaning->role == Role::kDriverMissing;
    });
    lane.chain.erase(end, lane.chain.end());
}

void ProcessStory::TellLoose(Lane& lane) {
    if (!lane.operation.isOpen && !lane.chain.empty()) {
        TellLoose(lane, ItemKind::kFailure, lane.chain.back().meaning->means);
    }
}

void ProcessStory::TellLoose(Lane& lane, ItemKind kind, std::string text) {
    Item item;
    item.kind = kind;
    item.outcome = Outcome::kFailed;
    item.thread = lane.thread;
    item.chain.swap(lane.chain);
    item.line = item.chain.front().line;
    item.time = lane.chainTime;
    item.text = std::move(text);
    Tell(std::move(item));
}

void ProcessStory::TellOddity(const Lane& lane, const Entry& entry, std::string text,
                              std::string remedy) {
    Item item;
    item.kind = ItemKind::kNote;
    item.outcome = Outcome::kUnusual;
    item.line = entry.line;
    item.time = entry.time;
    item.thread = lane.thread;
    item.text = std::move(text);
    item.remedy = std::move(remedy);
    Tell(std::move(item));
}

void ProcessStory::Tell(Item item) {
    item.process = m_totals.process;
    if (const Step* const cause = CauseOf(item.chain)) {
        item.cause = Explained(*cause);
        item.remedy = RemedyOf(*cause);
        if (item.outcome == Outcome::kUnusual && !item.remedy.empty()) {
            item.remedy.insert(0, "Nothing, if it is rare. Otherwise: ");
        }
    }
    item.remedy = AdviceFor(m_totals.route, item.remedy);
    Totals::Timed& of = m_totals.kinds[item.kind];
    of.failed += item.outcome == Outcome::kFailed ? 1 : 0;
    of.open += item.outcome == Outcome::kOpen ? 1 : 0;
    of.atEnd += item.outcome == Outcome::kOpen && item.isAtEnd ? 1 : 0;
    const bool hasWorked = item.outcome == Outcome::kWorked || item.outcome == Outcome::kUnusual;
    of.worked += hasWorked ? 1 : 0;
    of.retried += hasWorked && item.attempts > 1 ? 1 : 0;
    if (hasWorked && item.micros) {
        ++of.timed;
        of.sum += *item.micros;
        of.longest = std::max(of.longest, *item.micros);
    }
    const auto count = [](std::map<std::string, Totals::Cause>& list, const std::string& text,
                          const std::string& remedy) {
        const auto found = list.find(text);
        if (found != list.end()) {
            ++found->second.times;
        } else if (list.size() < Totals::kMostCauses) {
            list[text] = {1, remedy};
        }
    };
    if (item.outcome == Outcome::kFailed) {
        count(m_totals.causes, item.cause.empty() ? item.text : item.cause, item.remedy);
    } else if (item.outcome == Outcome::kUnusual) {
        ++m_totals.unusual;
        count(m_totals.oddities, item.text, item.remedy);
    }
    m_sink(item);
}

}  // namespace lab::explain
