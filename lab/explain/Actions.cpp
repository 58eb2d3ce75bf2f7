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

/// Something that is a part of what is under way is no item of its own.
bool Contains(const std::optional<ItemKind>& outer, ItemKind inner) {
    return outer == ItemKind::kWrite && (inner == ItemKind::kUpdate || inner == ItemKind::kRead);
}

}  // namespace

// Remembers a fact.
void ProcessStory::Notice(const At& at) {
    Lane& lane = at.lane;
    switch (at.role) {
        case Role::kMessageBegins:
            TellLoose(lane);
            lane.messageCause.reset();
            break;
        case Role::kContentSet:  // a read has no last line
            if (lane.Is(ItemKind::kRead) && lane.operation->isDone) {
                Close(lane);
            }
            break;
        case Role::kStartUndone:
            if (lane.operation) {
                lane.operation->isDone = false;
            }
            break;
        case Role::kNoChip:  // that is normal after a write to a keyboard
            if (lane.previous != Role::kThreadsReady) {
                AddStep(at);
            }
            break;
        case Role::kWriteCheck:
            if (at.match.firstArgument == "0") {
                AddStep(at);
            }
            break;
        case Role::kChipRetry:
            ++lane.retries;
            break;
        case Role::kThreadsStart:
            lane.threadsStart = at.place.order;
            m_rearmed = m_chip.open.empty() ? "" : "WriteMessage";
            break;
        case Role::kRenewKnown:
            ++m_notNew;
            break;
        case Role::kVisitLeft:
            if (!m_chip.open.empty()) {
                m_chip.open.front().end = at.place.micros;
            }
            break;
        case Role::kLeaveStatus:
            TellLoose(lane);
            for (Begun& visit : m_chip.open) {
                visit.hasLeaveStatus = true;
            }
            break;
        default:
            break;
    }
}

void ProcessStory::AddStep(const At& at) {
    std::vector<Step>& chain = at.lane.chain;
    const auto known = std::find_if(chain.begin(), chain.end(), [&](const Step& step) {
        return step.meaning == &at.meaning && step.code == at.match.code;
    });
    if (known != chain.end()) {
        ++known->times;
    } else if (chain.size() < kMostSteps) {
        chain.push_back({&at.meaning, std::string(at.match.text.substr(0, kLongestStep)),
                         at.match.code, at.place});
    }
}

void ProcessStory::AddLoose(const At& at) {
    AddStep(at);
    if (!at.lane.operation || at.kind == ItemKind::kRenew) {
        TellChain(at.lane, at.kind, at.meaning.means);
    }
}

void ProcessStory::AddUnusual(const At& at) {
    TellNote(at.place, std::string(at.meaning.means), at.lane.thread, at.meaning.advice);
}

void ProcessStory::Begin(const At& at) {
    Close(at.lane);
    at.lane.seen.reset();
    at.lane.retries = 0;
    at.lane.operation = Begun{at.kind, at.place};
    at.lane.operation->isDone = at.kind == ItemKind::kDisconnect;  // it has no last line
    if (at.kind == ItemKind::kCreate && !m_chip.open.empty()) {
        m_rearmed = "Create";
    }
}

void ProcessStory::Try(const At& at) {
    const std::optional<Begun>& operation = at.lane.operation;
    if (!operation || operation->isDone ||
        (operation->kind != at.kind && !Contains(operation->kind, at.kind))) {
        Begin(at);
    }
    at.lane.operation->tries += at.kind == ItemKind::kRead ? 0 : 1;
}

void ProcessStory::Done(const At& at) {
    if (at.lane.Is(at.kind)) {
        at.lane.operation->isDone = true;
        at.lane.operation->end = at.place.micros;
    }
}

void ProcessStory::Succeed(const At& at) {
    if (at.lane.operation && Contains(at.lane.operation->kind, at.kind)) {
        return;
    }
    if (!at.lane.Is(at.kind)) {  // its first line is missing
        Begin(at);
    }
    Finish(at.lane, Outcome::kWorked, at.place.micros);
}

void ProcessStory::Fail(const At& at) {
    Lane& lane = at.lane;
    AddStep(at);
    if (lane.operation && Contains(lane.operation->kind, at.kind)) {
        return;  // seen: the outer one fails at its end
    }
    if (!lane.Is(at.kind)) {
        std::vector<Step> chain = std::exchange(lane.chain, {});
        Begin(at);
        lane.chain.swap(chain);
    }
    if (at.kind == ItemKind::kCreate && lane.messageCause) {
        lane.chain.insert(lane.chain.begin(), *std::exchange(lane.messageCause, std::nullopt));
    }
    Finish(lane, Outcome::kFailed, at.place.micros);
}

void ProcessStory::FindRoute(const At& at) {
    const unsigned own = at.meaning.traits & kHasOwnClient;
    const auto isReplaced = [own](const Tag& tag) { return (tag.traits & kHasOwnClient) == own; };
    m_tags.erase(std::remove_if(m_tags.begin(), m_tags.end(), isReplaced), m_tags.end());
    m_tags.insert(own != 0 ? m_tags.end() : m_tags.begin(),
                  Tag{std::string(at.meaning.says), {}, at.meaning.traits});
    if (own != 0) {
        Succeed(at);
    }
    // A route was found later, so the missing driver is no fault.
    std::vector<Step>& chain = at.lane.chain;
    const auto isMissing = [](const Step& one) {
        return one.meaning->role == Role::kDriverMissing;
    };
    chain.erase(std::remove_if(chain.begin(), chain.end(), isMissing), chain.end());
}

void ProcessStory::FindChip(const At& at) {
    if (m_tags.empty() || Has(kHasOwnClient)) {
        m_tags.insert(m_tags.begin(), Tag());
    }
    Tag& tag = m_tags.front();
    if (at.role == Role::kChip || at.lane.previous != Role::kChip) {
        tag.isSilent = at.role == Role::kChipLike && at.lane.previous == Role::kChipSilent;
        tag.chip = tag.isSilent ? "silent chip" : std::string(at.meaning.says);
        tag.traits = (tag.traits & (kChipBehindDriver | kInKeyboard)) | at.meaning.traits;
    }
    if ((at.meaning.traits & kUnprepared) != 0) {
        Done(at);
    }
}

void ProcessStory::NotRead(const At& at) {
    if (!at.lane.Is(at.kind)) {
        return;
    }
    // A chain without one of these says that the tag could not be read at all.
    std::vector<Step>& chain = at.lane.chain;
    const bool isHarmless = std::any_of(chain.begin(), chain.end(), [](const Step& step) {
        const Role role = step.meaning->role;
        return role == Role::kEmptyTag || role == Role::kForeignContent ||
               role == Role::kForeignRead;
    });
    at.lane.operation->isOdd |= !isHarmless;
    at.lane.operation->note = isHarmless ? " Before it the tag held no message of this library."
                                         : " Before it the tag could not be read.";
    if (isHarmless) {
        chain.clear();
    }
}

void ProcessStory::HaveThreads(const At& at) {
    Lane& lane = at.lane;
    const bool hasFailed = at.role == Role::kThreadsFail;
    if (hasFailed) {
        AddStep(at);
    }
    // The thread that watches for leaves stays for the whole life of a process, or ends in the
    // middle of a visit.
    if (std::exchange(m_hasThreads, true) && !lane.HasSeen(Role::kThreadsKnown)) {
        LoseBefore(lane.threadsStart);
    }
    if (lane.Is(at.kind)) {
        lane.operation->note +=
            hasFailed ? " The threads that report phones could not be started." : "";
        const bool isFailed = hasFailed || lane.HasSeen(Role::kWriteFails);
        Finish(lane, isFailed ? Outcome::kFailed : Outcome::kWorked, at.place.micros);
    }
}

void ProcessStory::FailNumberRead(const At& at) {
    AddStep(at);
    // Without a write around it, it is an operation of its own.
    if (!at.lane.HasSeen(Role::kRenewStored) && !at.lane.Writes()) {
        std::vector<Step> chain = std::exchange(at.lane.chain, {});
        Close(at.lane);
        at.lane.chain.swap(chain);
        TellChain(at.lane, at.kind, "ReadRandNum failed.");
    }
}

void ProcessStory::BeginRenewal(const At& at) {
    if (m_earlyRenewals > 0) {
        --m_earlyRenewals;
        return;
    }
    if (m_renewals.size() == kMostRenewals) {
        m_renewals.pop_front();
    }
    m_renewals.push_back({at.kind, at.place});
}

void ProcessStory::EndRenewal(const At& at) {
    Lane& lane = at.lane;
    const bool hasFailed = at.role == Role::kRenewFails;
    Item item{at.kind, hasFailed ? Outcome::kFailed : Outcome::kWorked, at.place, lane.thread,
              "WriteRandNum: " + std::string(at.meaning.says) + "."};
    if (m_renewals.empty()) {
        ++m_earlyRenewals;
    } else {
        item.begin = m_renewals.front().begin;
        item.micros = Between(item.begin.micros, at.place.micros);
        m_renewals.pop_front();
    }
    item.attempts = lane.retries + (lane.HasSeen(Role::kRenewStored) ? 1 : 0);
    if (!lane.operation) {
        lane.retries = 0;
        lane.seen.reset();
    }
    if (hasFailed) {
        AddStep(at);
    }
    // With an operation in the same lane the steps are more likely that operation's.
    if (hasFailed || !lane.operation) {
        item.chain.swap(lane.chain);
    }
    Tell(std::move(item));
}

void ProcessStory::Lose(std::deque<Begun>& open) {
    Tell({open.front().kind, Outcome::kOpen, open.front().begin, {}, {}});
    open.pop_front();
}

void ProcessStory::LoseBefore(std::uint64_t order) {
    for (std::deque<Begun>* const open : {&m_chip.open, &m_renewals}) {
        while (!open->empty() && open->front().begin.order < order) {
            Lose(*open);
        }
    }
}

// A keyboard's reports are handled on its own threads, or on one of the host's.
bool ProcessStory::IsFromKeyboard(const Lane& lane) const {
    return lane.kind == ThreadKind::kAny
               ? !m_tags.empty() && !Has(kChipBehindDriver)
               : lane.kind != ThreadKind::kInterrupt && lane.kind != ThreadKind::kDefer;
}

void ProcessStory::BeginVisit(const At& at) {
    TellLoose(at.lane);
    Source& source = SourceOf(at.lane);
    const bool isFromKeyboard = IsFromKeyboard(at.lane);
    if (!source.open.empty() && (isFromKeyboard || source.open.size() == kMostVisits)) {
        Lose(source.open);  // a keyboard reports both ends of each visit itself
    }
    const Micros pause = Between(source.lastEnd, at.place.micros);
    if (!pause || *pause > kChainPause || source.chained == 0) {
        EndChain(source);
        source.chainBegin = at.place;
    }
    ++source.chained;
    source.open.push_back({at.kind, at.place});
    if (!isFromKeyboard && source.open.size() > 1 && !m_rearmed.empty()) {
        source.open.back().note = " It is probably the phone of the visit before: a " +
                                  std::exchange(m_rearmed, {}) +
                                  " while it was there has it reported a second time.";
    }
}

void ProcessStory::EndVisit(const At& at) {
    Source& source = SourceOf(at.lane);
    if (source.open.empty()) {
        TellNote(at.place, "A phone left, and its arrival is not in this log.");
        return;
    }
    const Begun visit = std::move(source.open.front());
    source.open.pop_front();
    std::string odd = visit.note;
    const Micros listener = Between(visit.end, at.place.micros);
    if (listener && *listener > kSlowListener) {
        odd += " The listener took " + std::to_string(*listener / 1000) +
               " ms for event 1; the next phone waits that long.";
    }
    if (Has(kReportsLeaves) && !IsFromKeyboard(at.lane) && !visit.hasLeaveStatus) {
        odd += " The chip did not report its leave; the library stopped waiting for it.";
    }
    source.lastEnd = at.place.micros;
    Tell({at.kind, odd.empty() ? Outcome::kWorked : Outcome::kUnusual, visit.begin, at.lane.thread,
          "A phone was at the tag." + odd,
          Between(visit.begin.micros, visit.end ? visit.end : at.place.micros)});
}

void ProcessStory::MissListener(const At& at) {
    std::deque<Begun>& open = SourceOf(at.lane).open;
    if (at.lane.previous == Role::kVisitBegins && !open.empty()) {
        open.back().note = " The host had no listener when it came.";
        if (!IsFromKeyboard(at.lane)) {
            open.pop_back();  // the library has not opened it
        }
    }
    AddUnusual(at);
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

void ProcessStory::Wait(const At& at) {
    TellLoose(at.lane);
    at.lane.isLoopNormal = at.lane.isRefusalNormal = false;
}

void ProcessStory::RefuseRequest(const At& at) {
    if (at.role == Role::kLoopError && at.match.code == kRequestNotEnded) {
        at.lane.isLoopNormal = true;
    } else if (at.role == Role::kLoopRefused && at.meaning.thread == ThreadKind::kInterrupt &&
               !m_tags.empty() && !Has(kChipBehindDriver)) {
        at.lane.isRefusalNormal = true;  // without a chip nothing raises an interrupt
    } else {
        AddStep(at);
    }
}

void ProcessStory::EndLoop(const At& at) {
    const Lane& lane = at.lane;
    if (!lane.isRefusalNormal && !lane.chain.empty() && !lane.operation) {
        TellChain(at.lane, at.kind, at.meaning.means);
    } else if (lane.isLoopNormal) {
        Tell({at.kind, Outcome::kWorked, at.place, lane.thread,
              "The library stops waiting for phones, because a manager was released or the device "
              "is started again."});
    }
}

}  // namespace lab::explain
