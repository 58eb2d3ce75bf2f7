// What the rules do: to the operations of the host, the new numbers, the phones and the threads.
#include <algorithm>
#include <utility>

#include "lab/explain/ProcessStory.h"

namespace lab::explain {

namespace {

constexpr std::size_t kMostSteps = 16;
constexpr std::size_t kLongestStep = 128;  // bytes of a line that is shown
constexpr std::size_t kMostRenewals = 256;
constexpr std::size_t kMostVisits = 16;
constexpr std::int64_t kChainPause = 1'000'000;  // microseconds between two visits of a chain
constexpr unsigned kShortestChain = 3;           // visits
constexpr std::int64_t kSlowListener = 1'000'000;
constexpr std::uint32_t kRequestNotEnded = 996;  // how a wait ends that a stop has woken

/// An operation that the other one contains is no item of its own.
bool Contains(ItemKind outer, ItemKind inner) {
    return outer == ItemKind::kWrite && (inner == ItemKind::kUpdate || inner == ItemKind::kRead);
}

}  // namespace

// Remembers a fact.
void ProcessStory::Notice(Lane& lane, const Entry& entry, ItemKind kind) {
    Operation none;
    Operation& operation = lane.operation ? *lane.operation : none;
    switch (entry.match.meaning->role) {
        case Role::kMessageBegins:
            TellLoose(lane);
            lane.messageCause.reset();
            break;
        case Role::kContentSet:  // a read has no last line
            if (lane.Is(ItemKind::kRead) && operation.isDone) {
                Close(lane);
            }
            break;
        case Role::kStartUndone:
            operation.isDone = false;
            break;
        case Role::kNoChip:  // that is normal after a write to a keyboard
            if (lane.previous != Role::kThreadsReady) {
                AddStep(lane, entry, kind);
            }
            break;
        case Role::kWriteCheck:
            if (entry.match.firstArgument == "0") {
                AddStep(lane, entry, kind);
            }
            break;
        case Role::kChipRetry:
            ++lane.retries;
            break;
        case Role::kThreadsStart:
            lane.threadsStart = entry.place.order;
            m_rearmed = m_chip.open.empty() ? "" : "WriteMessage";
            break;
        case Role::kRenewKnown:
            ++m_totals.known;
            break;
        case Role::kVisitLeft:
            if (!m_chip.open.empty()) {
                m_chip.open.front().left = entry.place.micros;
            }
            break;
        case Role::kLeaveStatus:
            TellLoose(lane);
            for (Visit& visit : m_chip.open) {
                visit.hasLeaveStatus = true;
            }
            break;
        default:
            break;
    }
}

void ProcessStory::AddStep(Lane& lane, const Entry& entry, ItemKind /*kind*/) {
    const Match& match = entry.match;
    const auto known = std::find_if(lane.chain.begin(), lane.chain.end(), [&](const Step& step) {
        return step.meaning == match.meaning && step.code == match.code;
    });
    if (known != lane.chain.end()) {
        ++known->times;
    } else if (lane.chain.size() < kMostSteps) {
        lane.chain.push_back({match.meaning, std::string(match.text.substr(0, kLongestStep)),
                              match.code, entry.place});
    }
}

void ProcessStory::AddLoose(Lane& lane, const Entry& entry, ItemKind kind) {
    AddStep(lane, entry, kind);
    if (!lane.operation || kind == ItemKind::kRenew) {
        TellChain(lane, kind, entry.match.meaning->means);
    }
}

void ProcessStory::AddUnusual(Lane& lane, const Entry& entry, ItemKind /*kind*/) {
    TellNote(entry.place, std::string(entry.match.meaning->means),
             AdviceOf(entry.match.meaning->advice));
    m_note->thread = lane.thread;
}

void ProcessStory::Begin(Lane& lane, const Entry& entry, ItemKind kind) {
    Close(lane);
    lane.seen.reset();
    lane.retries = 0;
    Operation operation;
    operation.kind = kind;
    operation.begin = entry.place;
    operation.isDone = kind == ItemKind::kDisconnect;  // it has no last line
    lane.operation = std::move(operation);
    if (kind == ItemKind::kCreate && !m_chip.open.empty()) {
        m_rearmed = "Create";
    }
}

void ProcessStory::Try(Lane& lane, const Entry& entry, ItemKind kind) {
    if (!lane.operation || lane.operation->isDone ||
        (!lane.Is(kind) && !Contains(lane.operation->kind, kind))) {
        Begin(lane, entry, kind);
    }
    lane.operation->tries += kind == ItemKind::kRead ? 0 : 1;
}

void ProcessStory::Done(Lane& lane, const Entry& entry, ItemKind kind) {
    if (lane.Is(kind)) {
        lane.operation->isDone = true;
        lane.operation->doneAt = entry.place.micros;
    }
}

void ProcessStory::Succeed(Lane& lane, const Entry& entry, ItemKind kind) {
    if (lane.operation && Contains(lane.operation->kind, kind)) {
        return;
    }
    if (!lane.Is(kind)) {  // its first line is missing
        Begin(lane, entry, kind);
    }
    Finish(lane, Outcome::kWorked, entry.place.micros);
}

void ProcessStory::Fail(Lane& lane, const Entry& entry, ItemKind kind) {
    AddStep(lane, entry, kind);
    if (lane.operation && Contains(lane.operation->kind, kind)) {
        return;  // seen: the outer one fails at its end
    }
    if (!lane.Is(kind)) {
        std::vector<Step> chain = std::exchange(lane.chain, {});
        Begin(lane, entry, kind);
        lane.chain.swap(chain);
    }
    if (kind == ItemKind::kCreate && lane.messageCause) {
        lane.chain.insert(lane.chain.begin(), *std::exchange(lane.messageCause, std::nullopt));
    }
    Finish(lane, Outcome::kFailed, entry.place.micros);
}

void ProcessStory::FindRoute(Lane& lane, const Entry& entry, ItemKind kind) {
    const Meaning& meaning = *entry.match.meaning;
    std::vector<Tag>& tags = m_totals.tags;
    const unsigned own = meaning.traits & kHasOwnClient;
    const auto isReplaced = [own](const Tag& tag) { return (tag.traits & kHasOwnClient) == own; };
    tags.erase(std::remove_if(tags.begin(), tags.end(), isReplaced), tags.end());
    Tag& tag = *tags.insert(own != 0 ? tags.end() : tags.begin(), Tag());
    tag.route = meaning.says;
    tag.traits = meaning.traits;
    if (own != 0) {
        Succeed(lane, entry, kind);
    }
    // A route was found later, so the missing driver is no fault.
    const auto isMissing = [](const Step& step) {
        return step.meaning->role == Role::kDriverMissing;
    };
    lane.chain.erase(std::remove_if(lane.chain.begin(), lane.chain.end(), isMissing),
                     lane.chain.end());
}

void ProcessStory::FindChip(Lane& lane, const Entry& entry, ItemKind kind) {
    const Meaning& meaning = *entry.match.meaning;
    if (m_totals.tags.empty() || Has(kHasOwnClient)) {
        m_totals.tags.insert(m_totals.tags.begin(), Tag());
    }
    Tag& tag = m_totals.tags.front();
    if (meaning.role == Role::kChip || lane.previous != Role::kChip) {
        tag.isSilent = meaning.role == Role::kChipLike && lane.previous == Role::kChipSilent;
        tag.chip = tag.isSilent ? "silent chip" : std::string(meaning.says);
        tag.traits = (tag.traits & (kChipBehindDriver | kInKeyboard)) | meaning.traits;
    }
    if ((meaning.traits & kUnprepared) != 0) {
        Done(lane, entry, kind);
    }
}

void ProcessStory::NotRead(Lane& lane, const Entry& /*entry*/, ItemKind kind) {
    // A chain without one of these says that the tag could not be read at all.
    const bool isHarmless = std::any_of(lane.chain.begin(), lane.chain.end(), [](const Step& step) {
        const Role role = step.meaning->role;
        return role == Role::kEmptyTag || role == Role::kForeignContent ||
               role == Role::kForeignRead;
    });
    if (!lane.Is(kind)) {
        return;
    }
    lane.operation->note = " Before it the tag held no message of this library.";
    if (isHarmless) {
        lane.chain.clear();
    } else {
        lane.operation->isOdd = true;
        lane.operation->note = " Before it the tag could not be read.";
    }
}

void ProcessStory::HaveThreads(Lane& lane, const Entry& entry, ItemKind kind) {
    const bool hasFailed = entry.match.meaning->role == Role::kThreadsFail;
    if (hasFailed) {
        AddStep(lane, entry, kind);
    }
    // The thread that watches for leaves stays for the whole life of a process, or ends in the
    // middle of a visit.
    if (std::exchange(m_hasThreads, true) && !lane.HasSeen(Role::kThreadsKnown)) {
        LoseBefore(lane.threadsStart);
    }
    if (lane.Is(kind)) {
        lane.operation->note +=
            hasFailed ? " The threads that report phones could not be started." : "";
        const bool isFailed = hasFailed || lane.HasSeen(Role::kWriteFails);
        Finish(lane, isFailed ? Outcome::kFailed : Outcome::kWorked, entry.place.micros);
    }
}

void ProcessStory::FailNumberRead(Lane& lane, const Entry& entry, ItemKind kind) {
    AddStep(lane, entry, kind);
    // Without a write around it, it is an operation of its own.
    if (!lane.HasSeen(Role::kRenewStored) && !lane.Writes()) {
        std::vector<Step> chain = std::exchange(lane.chain, {});
        Close(lane);
        lane.chain.swap(chain);
        TellChain(lane, kind, "ReadRandNum failed.");
    }
}

void ProcessStory::BeginRenewal(Lane& /*lane*/, const Entry& entry, ItemKind /*kind*/) {
    if (m_earlyRenewals > 0) {
        --m_earlyRenewals;
        return;
    }
    if (m_renewals.size() == kMostRenewals) {
        m_renewals.pop_front();
    }
    m_renewals.push_back(entry.place);
}

void ProcessStory::EndRenewal(Lane& lane, const Entry& entry, ItemKind kind) {
    const bool hasFailed = entry.match.meaning->role == Role::kRenewFails;
    Item item{kind, hasFailed ? Outcome::kFailed : Outcome::kWorked, entry.place, lane.thread,
              "WriteRandNum: " + std::string(entry.match.meaning->says) + "."};
    if (m_renewals.empty()) {
        ++m_earlyRenewals;
    } else {
        item.begin = m_renewals.front();
        item.micros = Between(item.begin.micros, entry.place.micros);
        m_renewals.pop_front();
    }
    item.attempts = lane.retries + (lane.HasSeen(Role::kRenewStored) ? 1 : 0);
    if (!lane.operation) {
        lane.retries = 0;
        lane.seen.reset();
    }
    if (hasFailed) {
        AddStep(lane, entry, kind);
    }
    // With an operation in the same lane the steps are more likely that operation's.
    if (hasFailed || !lane.operation) {
        item.chain.swap(lane.chain);
    }
    Tell(std::move(item));
}

void ProcessStory::LoseRenewal() {
    TellOpen(ItemKind::kRenew, m_renewals.front(),
             m_isLogsEnd ? "WriteRandNum: the new number is not on the tag yet when the log ends."
                         : "WriteRandNum: its end is not in the log.");
    m_renewals.pop_front();
}

void ProcessStory::LoseBefore(std::uint64_t order) {
    while (!m_chip.open.empty() && m_chip.open.front().begin.order < order) {
        LoseVisit(m_chip);
    }
    while (!m_renewals.empty() && m_renewals.front().order < order) {
        LoseRenewal();
    }
}

// A keyboard's reports are handled on its own threads, or on one of the host's.
bool ProcessStory::IsFromKeyboard(const Lane& lane) const {
    return lane.kind == ThreadKind::kAny
               ? !m_totals.tags.empty() && !Has(kChipBehindDriver)
               : lane.kind != ThreadKind::kInterrupt && lane.kind != ThreadKind::kDefer;
}

void ProcessStory::BeginVisit(Lane& lane, const Entry& entry, ItemKind /*kind*/) {
    TellLoose(lane);
    Source& source = SourceOf(lane);
    std::deque<Visit>& open = source.open;
    if (!open.empty() && (IsFromKeyboard(lane) || open.size() == kMostVisits)) {
        LoseVisit(source);  // a keyboard reports both ends of each visit itself
    }
    const Micros pause = Between(source.lastEnd, entry.place.micros);
    if (!pause || *pause > kChainPause || source.chained == 0) {
        EndChain(source);
        source.chainBegin = entry.place;
    }
    ++source.chained;
    open.emplace_back();
    open.back().begin = entry.place;
    if (!IsFromKeyboard(lane) && open.size() > 1 && !m_rearmed.empty()) {
        open.back().note = " It is probably the phone of the visit before: a " +
                           std::exchange(m_rearmed, {}) +
                           " while it was there has it reported a second time.";
    }
}

void ProcessStory::EndVisit(Lane& lane, const Entry& entry, ItemKind kind) {
    Source& source = SourceOf(lane);
    if (source.open.empty()) {
        TellNote(entry.place, "A phone left, and its arrival is not in this log.");
        return;
    }
    const Visit visit = std::move(source.open.front());
    source.open.pop_front();
    std::string odd = visit.note;
    const Micros listener = Between(visit.left, entry.place.micros);
    if (listener && *listener > kSlowListener) {
        odd += " The listener took " + std::to_string(*listener / 1000) +
               " ms for event 1; the next phone waits that long.";
    }
    if (Has(kReportsLeaves) && !IsFromKeyboard(lane) && !visit.hasLeaveStatus) {
        odd += " The chip did not report its leave; the library stopped waiting for it.";
    }
    Item item{kind, odd.empty() ? Outcome::kWorked : Outcome::kUnusual, visit.begin, lane.thread,
              "A phone was at the tag." + odd};
    item.micros = Between(visit.begin.micros, visit.left ? visit.left : entry.place.micros);
    source.lastEnd = entry.place.micros;
    Tell(std::move(item));
}

void ProcessStory::MissListener(Lane& lane, const Entry& entry, ItemKind kind) {
    Source& source = SourceOf(lane);
    if (lane.previous == Role::kVisitBegins && !source.open.empty()) {
        source.open.back().note = " The host had no listener when it came.";
        if (!IsFromKeyboard(lane)) {
            source.open.pop_back();  // the library has not opened it
        }
    }
    AddUnusual(lane, entry, kind);
}

void ProcessStory::LoseVisit(Source& source) {
    TellOpen(ItemKind::kVisit, source.open.front().begin,
             m_isLogsEnd ? "A phone came, and has not left when the log ends."
                         : "A phone came, and its leave is not in the log.");
    source.open.pop_front();
}

void ProcessStory::EndChain(Source& source) {
    const unsigned visits = std::exchange(source.chained, 0);
    if (visits >= kShortestChain) {
        TellNote(source.chainBegin,
                 "A chain of " + std::to_string(visits) +
                     " visits with less than a second between them: probably one "
                     "phone that was held at the edge of the field.");
    }
}

void ProcessStory::Wait(Lane& lane, const Entry& /*entry*/, ItemKind /*kind*/) {
    TellLoose(lane);
    lane.isLoopNormal = lane.isRefusalNormal = false;
}

void ProcessStory::RefuseRequest(Lane& lane, const Entry& entry, ItemKind kind) {
    const Meaning& meaning = *entry.match.meaning;
    if (meaning.role == Role::kLoopError && entry.match.code == kRequestNotEnded) {
        lane.isLoopNormal = true;
    } else if (meaning.role == Role::kLoopRefused && meaning.thread == ThreadKind::kInterrupt &&
               !m_totals.tags.empty() && !Has(kChipBehindDriver)) {
        lane.isRefusalNormal = true;  // without a chip nothing raises an interrupt
    } else {
        AddStep(lane, entry, kind);
    }
}

void ProcessStory::EndLoop(Lane& lane, const Entry& entry, ItemKind kind) {
    if (!lane.isRefusalNormal && !lane.chain.empty() && !lane.operation) {
        TellChain(lane, kind, entry.match.meaning->means);
    } else if (lane.isLoopNormal) {
        Tell({kind, Outcome::kWorked, entry.place, lane.thread,
              "The library stops waiting for phones, because a manager was released or the device "
              "is started again."});
    }
}

}  // namespace lab::explain
