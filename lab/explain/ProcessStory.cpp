#include "lab/explain/ProcessStory.h"

#include <algorithm>
#include <utility>

namespace lab::explain {

namespace {

constexpr std::size_t kMostLanes = 1024;
constexpr std::size_t kMostSteps = 32;
constexpr std::size_t kMostVisits = 16;
constexpr std::size_t kMostRenewals = 256;
constexpr std::int64_t kMillisecond = 1000;
constexpr std::int64_t kChainPause = 1000 * kMillisecond;  // between two visits of a chain
constexpr unsigned kShortestChain = 3;                     // visits
constexpr std::int64_t kSlowListener = 1000 * kMillisecond;
constexpr std::uint32_t kFileNotFound = 2;
constexpr std::uint32_t kRequestNotEnded = 996;  // how a wait ends that a stop has woken
constexpr std::string_view kFanli = "Fanli";

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
            return "the message stands on the tag";
        case ItemKind::kRefresh:
            return "the tag holds the message";
        case ItemKind::kRead:
            return "the tag was read";
        case ItemKind::kConnect:
            return "the keyboard is connected";
        default:
            return "done";
    }
}

bool HasImage(ItemKind kind) {
    return kind == ItemKind::kWrite || kind == ItemKind::kUpdate || kind == ItemKind::kRefresh;
}

/// The step that explains the others best.
const Step* CauseOf(const std::vector<Step>& chain) {
    // A driver that is there and cannot be opened says more than the search that goes on.
    auto best = std::find_if(chain.begin(), chain.end(), [](const Step& step) {
        return step.meaning->role == Role::kDriverMissing && step.code != kFileNotFound;
    });
    if (best == chain.end()) {
        best = std::find_if(chain.begin(), chain.end(),
                            [](const Step& step) { return step.meaning->role == Role::kRoot; });
    }
    return best != chain.end() ? &*best : (chain.empty() ? nullptr : &chain.front());
}

std::string Explained(const Step& step) {
    std::string text = step.meaning->means;
    if (step.code && *step.code != 0) {
        const std::string_view code = Meanings::Get().CodeText(*step.code);
        text += " Code " + std::to_string(*step.code);
        text += code.empty() ? "." : ": " + std::string(code) + ".";
    }
    return text;
}

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

}  // namespace

ProcessStory::ProcessStory(std::string_view name, const Story::Sink& sink) : m_sink(sink) {
    m_totals.process = name;
}

ProcessStory::Lane& ProcessStory::LaneOf(const Entry& entry) {
    auto found = m_lanes.find(entry.thread);
    if (found == m_lanes.end()) {
        if (m_lanes.size() == kMostLanes) {
            const auto oldest = std::min_element(
                m_lanes.begin(), m_lanes.end(),
                [](const auto& a, const auto& b) { return a.second.lastLine < b.second.lastLine; });
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
    ++m_totals.lines;
    if (!entry.time.empty()) {
        if (m_totals.firstTime.empty()) {
            m_totals.firstTime = entry.time;
        }
        m_totals.lastTime = entry.time;
    }
    Lane& lane = LaneOf(entry);
    const Role role = entry.match.meaning->role;
    if (role != Role::kDetail && !TakeStart(lane, entry) && !TakeWrite(lane, entry) &&
        !TakeReading(lane, entry) && !TakeRenewal(lane, entry) && !TakeVisit(lane, entry) &&
        !TakeReporting(lane, entry)) {
        TakeOther(lane, entry);
    }
    lane.previous = role;
    if (lane.isOver && !lane.thread.empty() && !lane.operation.isOpen && lane.chain.empty()) {
        m_lanes.erase(lane.thread);  // each renewal has a thread of its own
    }
}

void ProcessStory::End() {
    for (auto& [name, lane] : m_lanes) {
        Close(lane);
        TellLoose(lane);
    }
    EndChainOfVisits();
    while (!m_visits.empty()) {
        LoseVisit("A phone came, and the log ends without its leave.");
    }
    for (const Beginning& begin : m_renewals) {
        Item item;
        item.kind = ItemKind::kRenew;
        item.outcome = Outcome::kOpen;
        item.line = begin.line;
        item.time = begin.time;
        item.text = "WriteRandNum: the log ends before the new number is on the tag.";
        Tell(std::move(item));
    }
    m_renewals.clear();
}

// ---- operations -----------------------------------------------------------------------------

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
        item.text += ": it has begun, and its end is not in the log.";
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
        item.text += HasChipRoute() && !m_totals.chip.empty() ? ", chip " + m_totals.chip : "";
        item.text += ".";
    } else {
        item.text += ": " + std::string(SuccessOf(operation.kind)) + ".";
    }
    if (outcome == Outcome::kWorked && item.attempts > 1) {
        item.text += " It took " + std::to_string(item.attempts) + " attempts.";
    }
    if (!operation.note.empty()) {
        item.text += " " + operation.note;
    }
    item.chain.swap(lane.chain);
    if (outcome == Outcome::kWorked &&
        (!item.chain.empty() || item.attempts > 1 || operation.isOdd)) {
        item.outcome = Outcome::kUnusual;
        item.text += item.attempts > 1 || operation.isOdd ? "" : " There were failures on the way.";
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
        lane.chain.push_back({match.meaning, std::string(match.text), match.code, entry.line, 1});
    }
}

// A route was found later, so the missing driver is no fault.
void ProcessStory::DropMissingDriver(Lane& lane) {
    const auto end = std::remove_if(lane.chain.begin(), lane.chain.end(), [](const Step& step) {
        return step.meaning->role == Role::kDriverMissing;
    });
    lane.chain.erase(end, lane.chain.end());
}

bool ProcessStory::TakeStart(Lane& lane, const Entry& entry) {
    Operation& operation = lane.operation;
    const Meaning& meaning = *entry.match.meaning;
    switch (meaning.role) {
        case Role::kCreateBegins:
            Begin(lane, ItemKind::kCreate, entry);
            return true;
        case Role::kCreateEnds:
        case Role::kCreateFails: {
            if (!operation.isOpen || operation.kind != ItemKind::kCreate) {
                std::vector<Step> chain;
                chain.swap(lane.chain);  // of this Create: it has no first line
                Begin(lane, ItemKind::kCreate, entry);
                lane.chain.swap(chain);
            }
            const bool worked = meaning.role == Role::kCreateEnds;
            if (!worked) {
                AddStep(lane, entry);
            }
            Finish(lane, worked ? Outcome::kWorked : Outcome::kFailed, entry.micros);
            return true;
        }
        case Role::kStartBegins:
            Begin(lane, ItemKind::kStart, entry);
            return true;
        case Role::kStartTries:
            if (!operation.isOpen ||
                (operation.kind != ItemKind::kStart && operation.kind != ItemKind::kRefresh)) {
                Begin(lane, ItemKind::kStart, entry);
            }
            operation.isDone = false;
            operation.tries += operation.kind == ItemKind::kStart ? 1 : 0;
            return true;
        case Role::kStartUndone:
            operation.isDone = false;
            return true;
        case Role::kStartFails:
            if (operation.isOpen) {
                Finish(lane, Outcome::kFailed, entry.micros);
            } else {
                AddStep(lane, entry);
                TellLoose(lane, ItemKind::kStart, meaning.means);
            }
            return true;
        case Role::kRoute:
            m_totals.route = meaning.says;
            m_totals.chip.clear();
            DropMissingDriver(lane);
            return true;
        case Role::kChip:
            m_totals.chip = meaning.says;
            break;
        case Role::kChipLike:
            if (lane.previous != Role::kChip) {
                m_totals.chip = meaning.says;
            }
            return true;
        case Role::kReady:
            break;
        default:
            return false;
    }
    // An unknown chip is not prepared: its name is the last line of a start.
    if (operation.isOpen && (meaning.role == Role::kReady || meaning.says != kFanli)) {
        operation.isDone = meaning.role == Role::kReady || m_totals.chip.front() == 'u';
        operation.doneAt = entry.micros;
    }
    return true;
}

bool ProcessStory::TakeWrite(Lane& lane, const Entry& entry) {
    Operation& operation = lane.operation;
    const bool isUpdate = operation.isOpen && operation.kind == ItemKind::kUpdate;
    const bool isWrite = operation.isOpen && operation.kind == ItemKind::kWrite;
    switch (entry.match.meaning->role) {
        case Role::kWriteBegins:
            Begin(lane, ItemKind::kWrite, entry);
            break;
        case Role::kWriteTries:
            if (!operation.isOpen || !HasImage(operation.kind)) {
                Begin(lane, ItemKind::kUpdate, entry);
            }
            ++operation.tries;
            break;
        case Role::kWriteCheck:
            if (entry.match.firstArgument == "0") {
                AddStep(lane, entry);
            }
            break;
        case Role::kChipRetry:
            ++(operation.isOpen && HasImage(operation.kind) ? operation.chipRetries
                                                            : lane.renewRetries);
            break;
        case Role::kNotRead:
            NotRead(lane);
            break;
        case Role::kWriteStored:
            operation.isStored = true;
            break;
        case Role::kWriteStood:
            if (isUpdate) {
                Finish(lane, Outcome::kWorked, entry.micros);
            }
            break;
        case Role::kWriteRefused:
        case Role::kWriteFails:
        case Role::kWriteFailed:
            AddStep(lane, entry);
            operation.hasFailed = true;
            if (isUpdate || (isWrite && entry.match.meaning->role == Role::kWriteRefused)) {
                Finish(lane, Outcome::kFailed, entry.micros);
            }
            break;
        case Role::kThreadsStart:
            break;
        case Role::kThreadsFail:
            AddStep(lane, entry);
            operation.note = "The threads that report phones could not be started.";
            operation.hasFailed = true;
            [[fallthrough]];
        case Role::kThreadsReady:
            if (isWrite) {
                Finish(lane, operation.hasFailed ? Outcome::kFailed : Outcome::kWorked,
                       entry.micros);
            }
            break;
        default:
            return false;
    }
    return true;
}

void ProcessStory::NotRead(Lane& lane) {
    const bool isHarmless = std::any_of(lane.chain.begin(), lane.chain.end(), [](const Step& step) {
        return step.meaning->role == Role::kEmptyTag || step.meaning->role == Role::kForeignContent;
    });
    const Step* const cause = CauseOf(lane.chain);
    if (isHarmless || cause == nullptr) {
        lane.operation.note = "Before it the tag held no message of this library.";
    } else {
        lane.operation.note = "Before it the tag could not be read: " + Explained(*cause);
        lane.operation.isOdd = true;
    }
    lane.chain.clear();
}

bool ProcessStory::TakeReading(Lane& lane, const Entry& entry) {
    Operation& operation = lane.operation;
    const bool isRead = operation.isOpen && operation.kind == ItemKind::kRead;
    const bool isRefresh = operation.isOpen && operation.kind == ItemKind::kRefresh;
    const Meaning& meaning = *entry.match.meaning;
    switch (meaning.role) {
        case Role::kReadBegins:
            if (!operation.isOpen || !HasImage(operation.kind)) {
                Begin(lane, ItemKind::kRead, entry);
            }
            break;
        case Role::kReadEnds:
            if (isRead) {
                operation.isDone = true;
                operation.doneAt = entry.micros;
            }
            break;
        case Role::kContentSet:
            if (isRead && operation.isDone) {
                Close(lane);
            }
            break;
        case Role::kReadFails:
            AddStep(lane, entry);
            if (isRead) {
                Finish(lane, Outcome::kFailed, entry.micros);
            }
            break;
        case Role::kRefreshBegins:
            Begin(lane, ItemKind::kRefresh, entry);
            break;
        case Role::kRefreshEnds:
            operation.isDone |= isRefresh;
            operation.doneAt = entry.micros;
            break;
        case Role::kRefreshFails:
            AddStep(lane, entry);
            if (isRefresh) {
                Finish(lane, Outcome::kFailed, entry.micros);
            }
            break;
        case Role::kNumberReadFails:
            AddStep(lane, entry);
            // Without a write around it, it is an operation of its own.
            if (!lane.isRenewStored && (!operation.isOpen || !HasImage(operation.kind))) {
                Close(lane);
                TellLoose(lane, ItemKind::kReadNumber, "ReadRandNum failed.");
            }
            break;
        default:
            return false;
    }
    return true;
}

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
    }
    lane.renewRetries = 0;
    lane.isRenewStored = false;
    Tell(std::move(item));
}

// ---- phones ---------------------------------------------------------------------------------

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
        LoseVisit("A phone came, and its leave was never reported: the next one came first.");
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
        TellOddity(lane, entry, "A phone left whose coming is not in this log.", {});
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
        item.text += " The chip never reported its leave; the library gave the phone up.";
    }
    Tell(std::move(item));
}

void ProcessStory::LoseVisit(const char* text) {
    Item item;
    item.kind = ItemKind::kVisit;
    item.outcome = Outcome::kOpen;
    item.line = m_visits.front().begin.line;
    item.time = m_visits.front().begin.time;
    item.text = text;
    m_visits.pop_front();
    Tell(std::move(item));
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

void ProcessStory::TakeOther(Lane& lane, const Entry& entry) {
    const Meaning& meaning = *entry.match.meaning;
    switch (meaning.role) {
        case Role::kNoChip:
            if (lane.previous != Role::kThreadsReady) {
                AddStep(lane, entry);
            }
            break;
        case Role::kRadioFails:
            AddStep(lane, entry);
            if (!lane.operation.isOpen) {
                TellLoose(lane, ItemKind::kFailure, meaning.means);
            }
            break;
        case Role::kConnectBegins:
            Begin(lane, ItemKind::kConnect, entry);
            break;
        case Role::kConnectEnds:
        case Role::kConnectFails: {
            const bool worked = meaning.role == Role::kConnectEnds;
            if (!lane.operation.isOpen || lane.operation.kind != ItemKind::kConnect) {
                Begin(lane, ItemKind::kConnect, entry);
            }
            if (worked) {
                m_totals.route = "Bluetooth";
                m_totals.chip.clear();
            } else {
                AddStep(lane, entry);
            }
            Finish(lane, worked ? Outcome::kWorked : Outcome::kFailed, entry.micros);
            break;
        }
        case Role::kDisconnect: {
            Close(lane);
            TellLoose(lane);
            Item item;
            item.kind = ItemKind::kDisconnect;
            item.line = entry.line;
            item.time = entry.time;
            item.thread = lane.thread;
            item.text = "BtDisconnect: the host disconnects the keyboard.";
            Tell(std::move(item));
            break;
        }
        case Role::kDisconnectRefused:
            AddStep(lane, entry);
            TellLoose(lane, ItemKind::kDisconnect, "BtDisconnect failed.");
            break;
        default:
            AddStep(lane, entry);
            break;
    }
}

// ---- telling --------------------------------------------------------------------------------

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
        item.remedy = cause->meaning->remedy;
    }
    Totals::Timed& of = m_totals.kinds[item.kind];
    of.failed += item.outcome == Outcome::kFailed ? 1 : 0;
    of.open += item.outcome == Outcome::kOpen ? 1 : 0;
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
