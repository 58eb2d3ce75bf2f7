// What the rules do: to the operations of the host, the new numbers, the phones and the threads.
#include "lab/Words.h"
#include "lab/explain/Story.h"

namespace lab::explain {

namespace {

constexpr std::size_t kMostSteps = 16;
constexpr std::size_t kLongestStep = 128;        // bytes of a line that is shown
constexpr std::size_t kMostOpen = 64;            // visits or new numbers
constexpr std::int64_t kChainPause = 1'000'000;  // microseconds between two visits of a chain
constexpr unsigned kShortestChain = 3;           // visits
constexpr std::int64_t kSlowListener = 1'000'000;

}  // namespace

// Remembers a fact.
void ProcessStory::Notice(const At& at) {
    Lane& lane = at.lane;
    switch (at.meaning.role) {
        case Role::kMessageBegins:
            TellLoose(lane);
            lane.messageCause.reset();
            break;
        case Role::kContentSet:  // a read has no last line
            if (lane.Is(ItemKind::kRead) && lane.operation->outcome == Outcome::kWorked) {
                Close(lane);
            }
            break;
        case Role::kStartUndone:
            if (lane.operation) {
                lane.operation->outcome = Outcome::kOpen;
            }
            break;
        case Role::kThreadsStart:
            m_rearmed = m_chip.open.empty() ? "" : "WriteMessage";
            lane.threadsOrder = at.place.order;
            break;
        case Role::kRenewKnown:
            ++m_notNew;
            break;
        case Role::kNumberAsked:
            lane.numberAsked = at.place;
            break;
        case Role::kVisitLeft:
            if (!m_chip.open.empty()) {
                m_chip.open.front().end = at.place.micros;
            }
            break;
        case Role::kLeaveStatus:
            TellLoose(lane);
            for (Item& visit : m_chip.open) {
                visit.outcome = Outcome::kWorked;
            }
            break;
        case Role::kWaits:
            TellLoose(lane);
            [[fallthrough]];
        case Role::kLoopStopped:
        case Role::kLoopUnneeded:
            lane.loop = at.meaning.role;
            break;
        default:
            break;
    }
}

void ProcessStory::AddStep(const At& at) {
    Chain& chain = at.lane.chain;
    const auto known = std::find_if(chain.begin(), chain.end(), [&](const Step& step) {
        return step.meaning == &at.meaning && step.code == at.match.code;
    });
    if (known != chain.end()) {
        known->object["times"] = known->object["times"].get<std::uint64_t>() + 1;
    } else if (chain.size() < kMostSteps) {
        Json object{{"file", ValidUtf8(at.place.file)},
                    {"line", at.place.line},
                    {"text", ValidUtf8(at.match.text.substr(0, kLongestStep))},
                    {"times", 1},
                    {"means", at.meaning.means}};
        if (at.match.code.value_or(0) != 0) {
            object["code"] = *at.match.code;
        }
        chain.push_back({&at.meaning, at.match.code, at.place, std::move(object)});
    }
}

// A line that is a thing of its own.
void ProcessStory::TellLine(const At& at) {
    Tell({at.rule.kind, at.place, at.rule.outcome, std::string(at.meaning.means),
          &at.meaning.advice});
}

// The end of a failure that belongs to no operation.
void ProcessStory::TellSteps(const At& at) {
    if (!at.lane.chain.empty() && (!at.lane.operation || at.rule.kind == ItemKind::kRenew)) {
        TellChain(at.lane, at.rule.kind, at.meaning);
    }
}

void ProcessStory::Begin(const At& at) {
    Close(at.lane);
    at.lane.seen = {};
    at.lane.operation = Item{at.rule.kind, at.place, at.rule.outcome};
    if (at.rule.kind == ItemKind::kCreate && !m_chip.open.empty()) {
        m_rearmed = "Create";
    }
}

void ProcessStory::Try(const At& at) {
    if (!at.lane.Includes(at.rule.kind) || at.lane.operation->outcome == Outcome::kWorked) {
        Begin(at);
    }
}

void ProcessStory::Done(const At& at) {
    if (at.lane.Is(at.rule.kind)) {
        Item& operation = *at.lane.operation;
        operation.outcome =
            operation.outcome == Outcome::kFailed ? operation.outcome : Outcome::kWorked;
        operation.end = at.place.micros;
    }
}

void ProcessStory::EndOperation(const At& at) {
    Lane& lane = at.lane;
    if (!lane.Includes(at.rule.kind)) {
        // Its first line is missing; the steps so far are those of the failure.
        Chain chain = at.HasFailed() ? std::exchange(lane.chain, {}) : Chain();
        Begin(at);
        lane.chain.swap(chain);
        lane.operation->begin = at.rule.kind == ItemKind::kReadNumber
                                    ? lane.numberAsked.value_or(at.place)
                                : at.HasFailed() ? lane.chain.front().place
                                                 : at.place;
    }
    Item& operation = *lane.operation;
    // A write goes on after a read that has failed.
    if (at.HasFailed() && (lane.Is(at.rule.kind) || at.rule.kind == ItemKind::kUpdate)) {
        operation.says = operation.says.empty() ? at.meaning.says : operation.says;
        operation.outcome = Outcome::kFailed;
    }
    if (!lane.Is(at.rule.kind)) {
        return;
    }
    if (operation.kind == ItemKind::kCreate && at.HasFailed() && lane.messageCause) {
        lane.chain.insert(lane.chain.begin(), *std::exchange(lane.messageCause, std::nullopt));
    }
    Done(at);
    Finish(lane);
}

void ProcessStory::FindRoute(const At& at) {
    const bool hasOwnClient = (at.meaning.traits & kHasOwnClient) != 0;
    m_tags[hasOwnClient] = {std::string(at.meaning.says), {}, at.meaning.traits};
    if (hasOwnClient) {
        EndOperation(at);
    }
    // A route was found later, so the missing driver is no fault.
    Chain& chain = at.lane.chain;
    const auto isMissing = [](const Step& one) {
        return one.meaning->role == Role::kDriverMissing;
    };
    chain.erase(std::remove_if(chain.begin(), chain.end(), isMissing), chain.end());
}

void ProcessStory::FindChip(const At& at) {
    Tag& tag = m_tags[false];
    tag.chip = at.meaning.says;
    tag.traits = (tag.traits & (kChipBehindDriver | kInKeyboard)) | at.meaning.traits;
    if ((at.meaning.traits & kUnprepared) != 0) {
        Done(at);
    }
}

void ProcessStory::NotRead(const At& at) {
    Lane& lane = at.lane;
    // A read without one of these says that the tag could not be read at all.
    const bool isHarmless = lane.Seen(Role::kForeignContent) + lane.Seen(Role::kForeignRead) > 0;
    if (lane.Is(at.rule.kind)) {
        lane.operation->text = isHarmless ? " Before it the tag held no message of this library."
                                          : " Before it the tag could not be read.";
        lane.chain.erase(isHarmless ? lane.chain.begin() : lane.chain.end(), lane.chain.end());
    }
}

void ProcessStory::HaveThreads(const At& at) {
    // The thread that watches for leaves stays for the whole life of a process, or ends in the
    // middle of a visit.
    if (std::exchange(m_hasThreads, true) && at.lane.Seen(Role::kThreadsKnown) == 0) {
        LoseBefore(at.lane.threadsOrder);
    }
    if (at.lane.Is(at.rule.kind)) {
        EndOperation(at);
    }
}

void ProcessStory::Open(Items& items, const At& at) {
    if (items.size() == kMostOpen) {
        Lose(items);
    }
    items.push_back({at.rule.kind, at.place});
}

void ProcessStory::Lose(Items& open) {
    open.front().outcome = Outcome::kOpen;
    Tell(std::move(open.front()));
    open.pop_front();
}

void ProcessStory::LoseBefore(std::uint64_t order) {
    for (Items* const open : {&m_chip.open, &m_keyboard.open, &m_renewals}) {
        while (!open->empty() && open->front().begin.order < order) {
            Lose(*open);
        }
    }
}

void ProcessStory::BeginRenewal(const At& at) {
    if (m_earlyRenewals > 0) {
        --m_earlyRenewals;
    } else {
        Open(m_renewals, at);
    }
}

void ProcessStory::EndRenewal(const At& at) {
    Lane& lane = at.lane;
    Item item{at.rule.kind, at.place};
    if (m_renewals.empty()) {
        ++m_earlyRenewals;
    } else {
        item = std::move(m_renewals.front());
        item.end = at.place.micros;
        m_renewals.pop_front();
    }
    item.outcome = at.rule.outcome;
    item.says = at.meaning.says;
    item.attempts = lane.Attempts();
    // With an operation in the same lane the steps are more likely that operation's.
    if (at.HasFailed() || !lane.operation) {
        item.chain.swap(lane.chain);
    }
    if (!lane.operation) {
        lane.seen = {};
    }
    Tell(std::move(item));
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
    if (!source.open.empty() && isFromKeyboard) {
        Lose(source.open);  // a keyboard reports both ends of each visit itself
    }
    const Micros pause = Between(source.lastEnd, at.place.micros);
    if (!pause || *pause > kChainPause || source.chained == 0) {
        EndChain(source);
        source.chainBegin = at.place;
    }
    ++source.chained;
    Open(source.open, at);
    if (!isFromKeyboard && source.open.size() > 1 && !m_rearmed.empty()) {
        source.open.back().text = " It is probably the phone of the visit before: a " +
                                  std::exchange(m_rearmed, {}) +
                                  " while it was there has it reported a second time.";
    }
}

void ProcessStory::EndVisit(const At& at) {
    Source& source = SourceOf(at.lane);
    if (source.open.empty()) {
        Tell({ItemKind::kNote, at.place, Outcome::kUnusual,
              "A phone left, and its arrival is not in this log."});
        return;
    }
    Item visit = std::move(source.open.front());
    source.open.pop_front();
    const Micros listener = Between(visit.end, at.place.micros);
    if (listener && *listener > kSlowListener) {
        visit.text += " The listener took " + std::to_string(*listener / 1000) +
                      " ms for event 1; the next phone waits that long.";
    }
    if (Has(kReportsLeaves) && !IsFromKeyboard(at.lane) && visit.outcome == Outcome::kOpen) {
        visit.text += " The chip did not report its leave; the library stopped waiting for it.";
    }
    source.lastEnd = at.place.micros;
    visit.outcome = visit.text.empty() ? Outcome::kWorked : Outcome::kUnusual;
    visit.end = visit.end ? visit.end : at.place.micros;
    Tell(std::move(visit));
}

// After the line of an arrival that nobody was told of.
void ProcessStory::MissListener(const At& at) {
    Items& open = SourceOf(at.lane).open;
    if (!open.empty() && IsFromKeyboard(at.lane)) {
        open.back().text = " The host had no listener when it came.";
    } else if (!open.empty()) {
        open.pop_back();  // the library has not opened it
    }
    TellLine(at);
}

void ProcessStory::EndChain(Source& source) {
    const unsigned visits = std::exchange(source.chained, 0);
    if (visits >= kShortestChain) {
        Tell({ItemKind::kNote, source.chainBegin, Outcome::kUnusual,
              "A chain of " + std::to_string(visits) +
                  " visits with a second at most between them: probably one phone that was held at "
                  "the edge of the field."});
    }
}

}  // namespace lab::explain
