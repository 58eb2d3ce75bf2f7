#include "lab/explain/ProcessStory.h"

#include <algorithm>
#include <array>
#include <utility>

#include "lab/Words.h"

namespace lab::explain {

namespace {

constexpr std::size_t kMostLanes = 32;          // with Story::kMostProcesses this bounds the memory
constexpr std::size_t kMostCauses = 32;         // in the figures
constexpr std::int64_t kLeastJump = 2'000'000;  // of the clock, in microseconds
constexpr unsigned kJumpLines = 6;              // that agree: threads need no strict order
constexpr std::array<const char*, 4> kOutcomes{"worked", "failed", "open", "unusual"};

double Milliseconds(std::int64_t micros) {
    return static_cast<double>(micros) / 1000;
}

void Increase(Json& number, bool isMore = true) {
    number = number.get<std::uint64_t>() + (isMore ? 1 : 0);
}

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
        text += " Code " + std::to_string(*step.code) +
                (code == nullptr ? "." : ": " + std::string(code->text) + ".");
    }
    return text;
}

Json StepJson(const Step& step) {
    Json object{{"file", ValidUtf8(step.place.file)},
                {"line", step.place.line},
                {"text", ValidUtf8(step.text)},
                {"times", step.times},
                {"means", step.meaning->Text(step.code)}};
    if (step.code) {
        object["code"] = *step.code;
    }
    return object;
}

void Count(Json& list, const Json& item, const std::string& text) {
    const auto found = std::find_if(list.begin(), list.end(),
                                    [&](const Json& one) { return one["text"] == text; });
    if (found != list.end()) {
        Increase((*found)["times"]);
    } else if (list.size() < kMostCauses) {
        list.push_back({{"text", text},
                        {"times", 1},
                        {"do", item.value("do", "")},
                        {"file", item["file"]},
                        {"line", item["line"]}});
    }
}

}  // namespace

Micros Between(Micros begin, Micros end) {
    // Clocks are set back at times; the threads of a log are not in a strict order either. The
    // bound keeps a sum of many from overflowing.
    constexpr std::uint64_t kLongest = 1'000'000'000'000'000;
    if (!begin || !end || *end < *begin) {
        return std::nullopt;
    }
    const auto span = static_cast<std::uint64_t>(*end) - static_cast<std::uint64_t>(*begin);
    return span > kLongest ? std::nullopt : Micros(static_cast<std::int64_t>(span));
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
    ++m_records;
    m_lastOrder = entry.place.order;
    if (!entry.place.time.empty()) {
        m_firstTime = m_firstTime.empty() ? entry.place.time : m_firstTime;
        m_lastTime = entry.place.time;
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
    const auto role = static_cast<std::size_t>(entry.match.meaning->role);
    (this->*kRules[role].action)({lane, entry.match, entry.place, kRules[role].kind});
    lane.seen.set(role);
    lane.previous = entry.match.meaning->role;
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
        m_note["ms"] = Milliseconds(Between(m_jump.micros, m_latest).value_or(0));
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
            Lose(source->open);
        }
    }
    Flush();
}

void ProcessStory::Close(Lane& lane) {
    Settle(lane, Role::kDetail);
    if (lane.operation) {
        Finish(lane, lane.operation->isDone ? Outcome::kWorked : Outcome::kOpen,
               lane.operation->end);
    }
    TellLoose(lane);
}

void ProcessStory::Finish(Lane& lane, Outcome outcome, Micros end) {
    const Begun operation = *std::exchange(lane.operation, std::nullopt);
    const KindName& name = kKindNames[static_cast<std::size_t>(operation.kind)];
    std::string text;
    if (outcome == Outcome::kFailed) {
        const bool isWrite =
            operation.kind == ItemKind::kWrite || operation.kind == ItemKind::kUpdate;
        text = name.operation + std::string(" failed") +
               (!isWrite                            ? "."
                : !lane.HasSeen(Role::kWriteStored) ? ": the message is not on the tag."
                : lane.HasSeen(Role::kSent) ? ": the image was written, but not found on the tag."
                                            : ": nothing was sent to a tag.");
    } else if (outcome == Outcome::kWorked) {
        text = name.operation + std::string(": ") + name.success;
        if (operation.kind == ItemKind::kStart && !m_tags.empty()) {
            const Tag& tag = m_tags.front();
            text += " on " + tag.route + (tag.isSilent ? ". The chip has not answered" : "");
            text += tag.isSilent || tag.chip.empty() ? "" : ", chip " + tag.chip;
        }
        text += ".";
        outcome = operation.isOdd ? Outcome::kUnusual : outcome;
    }
    Tell({operation.kind, outcome, operation.begin, lane.thread, text + operation.note,
          Between(operation.begin.micros, end), std::exchange(lane.chain, {}),
          std::max(operation.tries, lane.Attempts())});
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
    const Mark begin = lane.chain.front().place;
    Tell({kind,
          Outcome::kFailed,
          begin,
          lane.thread,
          std::string(text),
          {},
          std::exchange(lane.chain, {})});
}

void ProcessStory::TellNote(const Mark& begin, const std::string& text, const std::string& thread,
                            const Advice& advice) {
    Tell({ItemKind::kNote, Outcome::kUnusual, begin, thread, text, {}, {}, 0, AdviceOf(advice)});
}

void ProcessStory::Tell(Item item) {
    const KindName& name = kKindNames[static_cast<std::size_t>(item.kind)];
    if (item.outcome == Outcome::kOpen) {
        item.micros = m_isLogsEnd ? Between(item.begin.micros, m_logsEnd) : std::nullopt;
        item.text.insert(
            0, std::string(name.operation) + (m_isLogsEnd ? ": not finished when the log ends."
                                                          : ": its end is not in the log."));
    } else if (item.outcome == Outcome::kWorked && (item.attempts > 1 || !item.chain.empty())) {
        item.outcome = Outcome::kUnusual;
        item.text += item.attempts > 1 ? " It took " + std::to_string(item.attempts) + " attempts."
                                       : " There were failures on the way.";
    }
    const bool isFailed = item.outcome == Outcome::kFailed;
    const bool isOpen = item.outcome == Outcome::kOpen;
    const bool hasWorked = !isFailed && !isOpen;
    Json object{{"kind", name.json},
                {"outcome", kOutcomes.at(static_cast<std::size_t>(item.outcome))},
                {"file", ValidUtf8(item.begin.file)},
                {"line", item.begin.line},
                {"time", ValidUtf8(item.begin.time)},
                {"process", ValidUtf8(m_name)},
                {"thread", ValidUtf8(item.thread)},
                {"text", item.text}};
    const auto add = [&object](bool isThere, const char* field, const Json& value) {
        if (isThere) {
            object[field] = value;
        }
    };
    add(item.micros.has_value(), "ms", Milliseconds(item.micros.value_or(0)));
    add(isOpen, "atEnd", m_isLogsEnd);
    add(item.attempts > 0, "attempts", item.attempts);
    if (!item.chain.empty()) {
        const Step& cause = CauseOf(item.chain);
        const SystemCode* const code = DecisiveCode(cause);
        object["cause"] = Explained(cause);
        item.remedy = AdviceOf(code != nullptr ? code->advice : cause.meaning->advice);
        item.remedy.insert(
            0, hasWorked && !item.remedy.empty() ? "Nothing, if it is rare. Otherwise: " : "");
    }
    add(!item.remedy.empty(), "do", item.remedy);
    for (const Step& step : item.chain) {
        object["chain"].push_back(StepJson(step));
    }

    Json& of = m_kinds[name.json];
    if (of.is_null()) {
        of = {{"worked", 0}, {"failed", 0}, {"open", 0}, {"atEnd", 0}, {"retried", 0}};
    }
    Increase(of["worked"], hasWorked);
    Increase(of["failed"], isFailed);
    Increase(of["open"], isOpen);
    Increase(of["atEnd"], isOpen && m_isLogsEnd);
    Increase(of["retried"], hasWorked && item.attempts > 1);
    if (hasWorked && item.micros) {
        auto& [sum, count] = m_sums[item.kind];
        sum += *item.micros;
        of["averageMs"] = Milliseconds(sum) / static_cast<double>(++count);
        of["longestMs"] = std::max(of.value("longestMs", 0.0), Milliseconds(*item.micros));
    }
    if (isFailed) {
        Count(m_failures, object, object.value("cause", item.text));
    } else if (hasWorked && item.outcome != Outcome::kWorked) {
        Count(m_unusual, object, item.text);
    }
    if (item.kind == ItemKind::kNote && !m_note.is_null() && item.text == m_note["text"]) {
        m_note["times"] = m_note.value("times", 1U) + 1;
        m_note["lastLine"] = item.begin.line;
        return;
    }
    Flush();
    m_note = std::move(object);
    if (item.kind != ItemKind::kNote) {
        Flush();
    }
}

void ProcessStory::Flush() {
    if (!m_note.is_null()) {
        m_sink(std::exchange(m_note, nullptr));
    }
}

Json ProcessStory::Figures() const {
    const Tag tag = m_tags.empty() ? Tag() : m_tags.front();
    Json object{{"process", ValidUtf8(m_name)},
                {"route", tag.route},
                {"chip", tag.chip},
                {"tags", Json::array()},
                {"from", ValidUtf8(m_firstTime)},
                {"to", ValidUtf8(m_lastTime)},
                {"records", m_records}};
    for (const Tag& used : m_tags) {
        object["tags"].push_back({{"route", used.route}, {"chip", used.chip}});
    }
    object.update(m_kinds);
    object.update({{"notNew", m_notNew}, {"failures", m_failures}, {"unusual", m_unusual}});
    return object;
}

}  // namespace lab::explain
