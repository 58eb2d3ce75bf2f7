#include "lab/explain/ProcessStory.h"

#include <algorithm>
#include <utility>

namespace lab::explain {

namespace {

constexpr std::size_t kMostLanes = 32;          // with Story::kMostProcesses this bounds the memory
constexpr std::int64_t kLeastJump = 2'000'000;  // of the clock, in microseconds
constexpr unsigned kJumpLines = 6;              // that agree: threads need no strict order

// The code alone says what has happened to the device.
const SystemCode* DecisiveCode(const Step& step) {
    const SystemCode* const code =
        step.meaning->isDevice && step.code ? FindCode(*step.code) : nullptr;
    return code == nullptr || code->advice[0].empty() ? nullptr : code;
}

/// The step that explains the others best.
const Step& CauseOf(const std::vector<Step>& chain) {
    auto found = std::find_if(chain.begin(), chain.end(), DecisiveCode);
    if (found == chain.end()) {
        found = std::find_if(chain.begin(), chain.end(), [](const Step& step) {
            const Role role = step.meaning->role;
            return role == Role::kCause || role == Role::kMessageFails || role == Role::kChipSilent;
        });
    }
    return found == chain.end() ? chain.front() : *found;
}

/// What a step means, with its error code in plain words.
std::string Explained(const Step& step) {
    std::string text = step.meaning->Text(step.code);
    if (step.code && *step.code != 0) {
        const SystemCode* const code = FindCode(*step.code);
        text += " Code " + std::to_string(*step.code);
        text += code == nullptr ? "." : ": " + std::string(code->text) + ".";
    }
    return text;
}

void Count(std::vector<Totals::Cause>& list, const Item& item, const std::string& text) {
    const auto found = std::find_if(list.begin(), list.end(),
                                    [&](const Totals::Cause& one) { return one.text == text; });
    if (found != list.end()) {
        ++found->times;
    } else if (list.size() < Totals::kMostCauses) {
        list.push_back({text, item.begin, item.remedy});
    }
}

}  // namespace

ProcessStory::ProcessStory(std::string_view name, const Story::Sink& sink) : m_sink(sink) {
    m_totals.process = name;
}

ProcessStory::Lane& ProcessStory::LaneOf(const Entry& entry) {
    auto found = m_lanes.find(entry.thread);
    if (found == m_lanes.end()) {
        if (m_lanes.size() == kMostLanes) {
            // One that waits for nothing goes first.
            found = std::min_element(m_lanes.begin(), m_lanes.end(), [](auto& a, auto& b) {
                return std::pair(!a.second.IsIdle(), a.second.lastOrder) <
                       std::pair(!b.second.IsIdle(), b.second.lastOrder);
            });
            Close(found->second);
            m_lanes.erase(found);
        }
        found = m_lanes.emplace(entry.thread, Lane{}).first;
        found->second.thread = entry.thread;
    }
    found->second.lastOrder = entry.place.order;
    return found->second;
}

void ProcessStory::Take(const Entry& entry) {
    ++m_totals.records;
    m_lastOrder = entry.place.order;
    if (!entry.place.time.empty()) {
        m_totals.firstTime = m_totals.firstTime.empty() ? entry.place.time : m_totals.firstTime;
        m_totals.lastTime = entry.place.time;
    }
    WatchClock(entry.place);
    Lane& lane = LaneOf(entry);
    const Meaning& meaning = *entry.match.meaning;
    const bool isOfEventThread = meaning.thread >= ThreadKind::kInterrupt;
    if (!isOfEventThread || !lane.thread.empty()) {
        Settle(lane, meaning.role);
    }
    if (isOfEventThread || (!lane.thread.empty() && meaning.thread != ThreadKind::kAny)) {
        lane.kind = meaning.thread;
    }
    const Meaning* const end = &meaning;
    if (std::any_of(end - meaning.variants, end,
                    [](const Meaning& one) { return one.next != Role::kDetail; })) {
        lane.held = entry;
        lane.held->match.text = meaning.format;  // it has no arguments
        lane.held->thread = lane.thread;
    } else {
        Apply(lane, entry, Role::kDetail);
    }
    if (meaning.role == Role::kRenewEnds && !lane.thread.empty() && lane.IsIdle()) {
        m_lanes.erase(lane.thread);  // each renewal has a thread of its own
    }
}

// The line that waits for the next one means what that one says.
void ProcessStory::Settle(Lane& lane, Role next) {
    if (lane.held) {
        Apply(lane, *std::exchange(lane.held, std::nullopt), next);
    }
}

void ProcessStory::Apply(Lane& lane, Entry entry, Role next) {
    const Meaning* const last = entry.match.meaning;
    entry.match.meaning = std::find_if(last - last->variants, last, [&](const Meaning& one) {
        return (one.next == Role::kDetail || one.next == next) &&
               (one.without == Role::kDetail || !lane.HasSeen(one.without));
    });
    const Role role = entry.match.meaning->role;
    const Rule& rule = kRules[static_cast<std::size_t>(role)];
    (this->*rule.action)(lane, entry, rule.kind);
    lane.seen.set(static_cast<std::size_t>(role));
    lane.previous = role;
}

void ProcessStory::WatchClock(const Mark& place) {
    const Micros back = Between(place.micros, m_latest);
    if (!back || *back < kLeastJump) {
        m_latest = std::max(m_latest, place.micros);
        m_earlyLines = place.micros ? 0 : m_earlyLines;
        return;
    }
    m_jump = m_earlyLines++ == 0 ? place : m_jump;
    if (m_earlyLines == kJumpLines) {
        TellNote(m_jump, "The clock goes back here: it was set, or the PC was started again.");
        m_note->micros = Between(m_jump.micros, m_latest);
        m_earlyLines = 0;
        m_latest = place.micros;
    }
}

void ProcessStory::End(bool isLogsEnd, Micros lastMicros) {
    m_isLogsEnd = isLogsEnd;
    m_logsEnd = lastMicros;
    for (auto& [name, lane] : m_lanes) {
        Close(lane);
    }
    LoseBefore(m_lastOrder + 1);
    for (Source* const source : {&m_chip, &m_keyboard}) {
        EndChain(*source);
        while (!source->open.empty()) {
            LoseVisit(*source);
        }
    }
    Flush();
}

void ProcessStory::Close(Lane& lane) {
    Settle(lane, Role::kDetail);
    if (lane.operation) {
        Finish(lane, lane.operation->isDone ? Outcome::kWorked : Outcome::kOpen,
               lane.operation->doneAt);
    }
    TellLoose(lane);
}

void ProcessStory::Finish(Lane& lane, Outcome outcome, Micros end) {
    const bool isWrite = lane.Writes();
    const Operation operation = *std::exchange(lane.operation, std::nullopt);
    const KindName& name = NameOf(operation.kind);
    Item item{operation.kind, outcome, operation.begin, lane.thread, name.operation};
    item.micros = Between(operation.begin.micros, end);
    const bool isStored = lane.HasSeen(Role::kWriteStored);
    item.attempts = std::max(operation.tries, lane.retries + (isStored ? 1U : 0U));
    item.chain.swap(lane.chain);
    if (outcome == Outcome::kOpen) {
        item.isAtEnd = m_isLogsEnd;
        item.micros = m_isLogsEnd ? Between(operation.begin.micros, m_logsEnd) : std::nullopt;
        item.text +=
            m_isLogsEnd ? ": not finished when the log ends." : ": its end is not in the log.";
    } else if (outcome == Outcome::kFailed) {
        item.text += " failed";
        item.text += !isWrite    ? "."
                     : !isStored ? ": the message is not on the tag."
                     : lane.HasSeen(Role::kSent)
                         ? ": the image was written, but not found on the tag."
                         : ": nothing was sent to a tag.";
    } else {
        item.text += ": " + std::string(name.success);
        if (operation.kind == ItemKind::kStart && !m_totals.tags.empty()) {
            const Tag& tag = m_totals.tags.front();
            item.text += " on " + tag.route + (tag.isSilent ? ". The chip has not answered" : "");
            item.text += tag.isSilent || tag.chip.empty() ? "" : ", chip " + tag.chip;
        }
        item.text += ".";
        item.outcome = operation.isOdd ? Outcome::kUnusual : outcome;
    }
    item.text += operation.note;
    Tell(std::move(item));
}

void ProcessStory::TellLoose(Lane& lane) {
    if (lane.operation || lane.chain.empty()) {
        return;
    }
    if (std::any_of(lane.chain.begin(), lane.chain.end(),
                    [](const Step& one) { return one.meaning->role == Role::kMessageFails; })) {
        lane.messageCause = CauseOf(lane.chain);
    }
    TellChain(lane, ItemKind::kFailure, lane.chain.back().meaning->means);
}

void ProcessStory::TellChain(Lane& lane, ItemKind kind, std::string_view text) {
    Item item{kind, Outcome::kFailed, lane.chain.front().place, lane.thread, std::string(text)};
    item.chain.swap(lane.chain);
    Tell(std::move(item));
}

void ProcessStory::TellNote(const Mark& begin, std::string text, std::string_view advice) {
    Item item{ItemKind::kNote, Outcome::kUnusual, begin, {}, std::move(text)};
    item.remedy = advice;
    Tell(std::move(item));
}

void ProcessStory::TellOpen(ItemKind kind, const Mark& begin, const std::string& text) {
    Item item{kind, Outcome::kOpen, begin, {}, text};
    item.isAtEnd = m_isLogsEnd;
    item.micros = m_isLogsEnd ? Between(begin.micros, m_logsEnd) : std::nullopt;
    Tell(std::move(item));
}

void ProcessStory::Tell(Item item) {
    item.process = m_totals.process;
    const bool isOdd = item.attempts > 1 || !item.chain.empty();
    if (item.outcome == Outcome::kWorked && isOdd) {
        item.outcome = Outcome::kUnusual;
        item.text += item.attempts > 1 ? " It took " + std::to_string(item.attempts) + " attempts."
                                       : " There were failures on the way.";
    }
    if (!item.chain.empty()) {
        const Step& cause = CauseOf(item.chain);
        const SystemCode* const code = DecisiveCode(cause);
        item.cause = Explained(cause);
        item.remedy = AdviceOf(code != nullptr ? code->advice : cause.meaning->advice);
        if (item.outcome == Outcome::kUnusual && !item.remedy.empty()) {
            item.remedy.insert(0, "Nothing, if it is rare. Otherwise: ");
        }
    }
    const bool hasWorked = item.outcome == Outcome::kWorked || item.outcome == Outcome::kUnusual;
    Totals::Timed& of = m_totals.kinds[item.kind];
    of.failed += item.outcome == Outcome::kFailed ? 1 : 0;
    of.open += item.outcome == Outcome::kOpen ? 1 : 0;
    of.atEnd += item.outcome == Outcome::kOpen && item.isAtEnd ? 1 : 0;
    of.worked += hasWorked ? 1 : 0;
    of.retried += hasWorked && item.attempts > 1 ? 1 : 0;
    if (hasWorked && item.micros) {
        ++of.timed;
        of.sum += *item.micros;
        of.longest = std::max(of.longest, *item.micros);
    }
    if (item.outcome == Outcome::kFailed) {
        Count(m_totals.causes, item, item.cause.empty() ? item.text : item.cause);
    } else if (item.outcome == Outcome::kUnusual) {
        Count(m_totals.oddities, item, item.text);
    }
    if (item.kind != ItemKind::kNote || !m_note || item.text != m_note->text) {
        Flush();
        m_note = std::move(item);
    } else {
        ++m_note->times;
        m_note->lastLine = item.begin.line;
    }
    if (m_note->kind != ItemKind::kNote) {
        Flush();
    }
}

void ProcessStory::Flush() {
    if (m_note) {
        m_sink(*std::exchange(m_note, std::nullopt));
    }
}

}  // namespace lab::explain
