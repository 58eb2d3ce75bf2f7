#include "lab/explain/ProcessStory.h"

#include <algorithm>
#include <utility>

#include "lab/Words.h"

namespace lab::explain {

namespace {

constexpr std::size_t kMostLanes = 32;          // with the processes this bounds the memory
constexpr std::size_t kMostCauses = 32;         // in the figures
constexpr std::int64_t kLeastJump = 2'000'000;  // of the clock, in microseconds
constexpr unsigned kJumpLines = 6;              // that agree: threads need no strict order
constexpr std::array<const char*, 4> kOutcomes{"worked", "failed", "open", "unusual"};

double Milliseconds(std::int64_t micros) {
    return static_cast<double>(micros) / 1000;
}

const KindName& NameOf(ItemKind kind) {
    return kKindNames.at(static_cast<std::size_t>(kind));
}

void Increase(Json& number) {
    number = number.get<std::uint64_t>() + 1;
}

// The code alone says what has happened to the device.
const SystemCode* DecisiveCode(const Step& step) {
    const SystemCode* const code = step.meaning->isDevice ? FindCode(step.code) : nullptr;
    return code == nullptr || code->advice[0].empty() ? nullptr : code;
}

/// The step that explains the others best.
const Step& CauseOf(const Chain& chain) {
    auto found = std::find_if(chain.begin(), chain.end(), DecisiveCode);
    if (found == chain.end()) {
        found = std::find_if(chain.begin(), chain.end(), [](const Step& step) {
            return step.Is({Role::kCause, Role::kMessageFails, Role::kChipSilent});
        });
    }
    return found == chain.end() ? chain.front() : *found;
}

/// What a step means, with its error code in plain words.
std::string Explained(const Step& step) {
    std::string text(step.meaning->means);
    if (step.code.value_or(0) != 0) {
        const SystemCode* const code = FindCode(step.code);
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
                {"means", step.meaning->means}};
    if (step.code.value_or(0) != 0) {
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

ProcessStory::Lane& ProcessStory::LaneOf(const Mark& place) {
    auto found = m_lanes.find(place.thread);
    if (found == m_lanes.end()) {
        if (m_lanes.size() == kMostLanes) {
            const auto oldest = std::min_element(
                m_lanes.begin(), m_lanes.end(),
                [](auto& a, auto& b) { return a.second.lastOrder < b.second.lastOrder; });
            Close(oldest->second);
            m_lanes.erase(oldest);
        }
        found = m_lanes.emplace(place.thread, Lane{}).first;
    }
    found->second.lastOrder = place.order;
    return found->second;
}

void ProcessStory::Take(const Match& match, const Mark& place) {
    ++m_records;
    m_lastOrder = place.order;
    if (!place.time.empty()) {
        m_firstTime = m_firstTime.empty() ? place.time : m_firstTime;
        m_lastTime = place.time;
    }
    WatchClock(place);
    Lane& lane = LaneOf(place);
    const Meaning& meaning = *match.meaning;
    const bool hasThreads = !place.thread.empty();
    const bool isOfEventThread = meaning.thread >= ThreadKind::kInterrupt;
    if (!isOfEventThread || hasThreads) {
        Settle(lane, meaning.role);
    }
    if (isOfEventThread || (hasThreads && meaning.thread != ThreadKind::kAny)) {
        lane.kind = meaning.thread;
    }
    const Meaning* const end = &meaning;
    if (std::any_of(end - meaning.variants, end,
                    [](const Meaning& one) { return one.condition == Condition::kNext; })) {
        lane.held.emplace(match, place);
    } else {
        Apply(lane, match, place, Role::kDetail);
    }
    if (meaning.role == Role::kRenewEnds && hasThreads && !lane.operation && lane.chain.empty()) {
        m_lanes.erase(place.thread);  // each renewal has a thread of its own
    }
}

// The line that waits for the next one means what that one says.
void ProcessStory::Settle(Lane& lane, Role next) {
    if (const auto held = std::exchange(lane.held, std::nullopt)) {
        Apply(lane, held->first, held->second, next);
    }
}

bool ProcessStory::Holds(const Meaning& one, Lane& lane, const Match& match, Role next) const {
    const auto role = static_cast<Role>(one.operand);
    switch (one.condition) {
        case Condition::kNext:
            return next == role;
        case Condition::kAfter:
            return lane.previous == role;
        case Condition::kWithout:
            return !lane.HasSeen(role);
        case Condition::kWhen:
            return match.code == one.operand;
        case Condition::kLacks:
            return !m_tags.empty() && !Has(static_cast<Trait>(one.operand));
        default:
            return true;
    }
}

void ProcessStory::Apply(Lane& lane, const Match& match, const Mark& place, Role next) {
    const Meaning* meaning = match.meaning - match.meaning->variants;
    while (!Holds(*meaning, lane, match, next)) {
        ++meaning;
    }
    const Rule& rule = kRules.at(static_cast<std::size_t>(meaning->role));
    (this->*rule.action)({lane, match, place, *meaning, rule});
    Seen& seen = lane.Of(meaning->role);
    seen = {seen.times + 1, place.order};
    lane.previous = meaning->role;
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
    EndChain(m_chip);
    EndChain(m_keyboard);
    while (!m_keyboard.open.empty()) {
        Lose(m_keyboard.open);
    }
    Flush();
}

void ProcessStory::Close(Lane& lane) {
    Settle(lane, Role::kDetail);
    if (lane.operation) {
        Finish(lane);
    }
    TellLoose(lane);
}

void ProcessStory::Finish(Lane& lane) {
    Item item = *std::exchange(lane.operation, std::nullopt);
    const KindName& name = NameOf(item.kind);
    std::string text = name.operation;
    if (item.outcome == Outcome::kFailed) {
        text += " failed" + (item.says.empty() ? "" : ": " + std::string(item.says)) + ".";
    } else if (item.outcome == Outcome::kWorked) {
        text += std::string(": ") + name.success;
        if (item.kind == ItemKind::kStart && !m_tags.empty()) {
            const Tag& tag = m_tags.begin()->second;
            text += " on " + tag.route;
            text += Has(kUnanswered)   ? ". The chip has not answered"
                    : tag.chip.empty() ? ""
                                       : ", chip " + tag.chip;
        }
        text += ".";
    }
    item.text.insert(0, item.outcome == Outcome::kOpen ? "" : text);
    item.chain.swap(lane.chain);
    item.attempts = std::max(
        {lane.Of(Role::kStartTries).times, lane.Of(Role::kWriteTries).times, lane.Attempts()});
    Tell(std::move(item));
}

void ProcessStory::TellLoose(Lane& lane) {
    if (lane.operation || lane.chain.empty()) {
        return;
    }
    if (Any(lane.chain, [](const Step& one) { return one.Is({Role::kMessageFails}); })) {
        lane.messageCause = CauseOf(lane.chain);
    }
    TellChain(lane, ItemKind::kFailure, lane.chain.back().meaning->means);
}

void ProcessStory::TellChain(Lane& lane, ItemKind kind, std::string_view text) {
    Item item{kind, lane.chain.front().place, Outcome::kFailed, {}, std::string(text)};
    item.chain.swap(lane.chain);
    Tell(std::move(item));
}

void ProcessStory::TellNote(const Mark& begin, const std::string& text, const Advice& advice) {
    Tell({ItemKind::kNote, begin, Outcome::kUnusual, {}, text, {}, {}, 0, AdviceOf(advice)});
}

void ProcessStory::Tell(Item item) {
    const KindName& name = NameOf(item.kind);
    const bool isOpen = item.outcome == Outcome::kOpen;
    if (isOpen) {
        item.end = m_isLogsEnd ? m_logsEnd : std::nullopt;
        item.text.insert(
            0, std::string(name.operation) + (m_isLogsEnd ? ": not finished when the log ends."
                                                          : ": its end is not in the log."));
    } else if (item.outcome == Outcome::kWorked && (item.attempts > 1 || !item.chain.empty())) {
        item.outcome = Outcome::kUnusual;
        item.text += item.attempts > 1 ? " It took " + std::to_string(item.attempts) + " attempts."
                                       : " There were failures on the way.";
    }
    Json object{{"kind", name.json},
                {"outcome", kOutcomes.at(static_cast<std::size_t>(item.outcome))},
                {"file", ValidUtf8(item.begin.file)},
                {"line", item.begin.line},
                {"time", ValidUtf8(item.begin.time)},
                {"process", ValidUtf8(m_name)},
                {"thread", ValidUtf8(item.begin.thread)},
                {"text", item.text}};
    const auto add = [&object](bool isThere, const char* field, const Json& value) {
        if (isThere) {
            object[field] = value;
        }
    };
    const Micros micros = Between(item.begin.micros, item.end);
    add(micros.has_value(), "ms", Milliseconds(micros.value_or(0)));
    add(isOpen, "atEnd", m_isLogsEnd);
    add(item.attempts > 0, "attempts", item.attempts);
    if (!item.chain.empty()) {
        const Step& cause = CauseOf(item.chain);
        const SystemCode* const code = DecisiveCode(cause);
        object["cause"] = Explained(cause);
        item.remedy = AdviceOf(code != nullptr ? code->advice : cause.meaning->advice);
        const bool isRare = item.outcome == Outcome::kUnusual && !item.remedy.empty();
        item.remedy.insert(0, isRare ? "Nothing, if it is rare. Otherwise: " : "");
    }
    add(!item.remedy.empty(), "do", item.remedy);
    for (const Step& step : item.chain) {
        object["chain"].push_back(StepJson(step));
    }
    CountItem(item, object);
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

void ProcessStory::CountItem(const Item& item, const Json& object) {
    const bool isFailed = item.outcome == Outcome::kFailed;
    const bool isOpen = item.outcome == Outcome::kOpen;
    const bool hasWorked = !isFailed && !isOpen;
    Json& of = m_kinds[NameOf(item.kind).json];
    if (of.is_null()) {
        of = {{"worked", 0}, {"failed", 0}, {"open", 0}, {"atEnd", 0}, {"retried", 0}};
    }
    Increase(of[isFailed ? "failed" : isOpen ? "open" : "worked"]);
    if (isOpen && m_isLogsEnd) {
        Increase(of["atEnd"]);
    } else if (hasWorked && item.attempts > 1) {
        Increase(of["retried"]);
    }
    const Micros micros = Between(item.begin.micros, item.end);
    if (hasWorked && micros) {
        auto& [sum, count] = m_sums[item.kind];
        sum += *micros;
        of["averageMs"] = Milliseconds(sum) / static_cast<double>(++count);
        of["longestMs"] = std::max(of.value("longestMs", 0.0), Milliseconds(*micros));
    }
    if (isFailed) {
        Count(m_failures, object, object.value("cause", item.text));
    } else if (item.outcome == Outcome::kUnusual) {
        Count(m_unusual, object, item.text);
    }
}

void ProcessStory::Flush() {
    if (!m_note.is_null()) {
        m_sink(std::exchange(m_note, nullptr));
    }
}

Json ProcessStory::Figures() const {
    const Tag tag = m_tags.empty() ? Tag() : m_tags.begin()->second;
    Json object{{"process", ValidUtf8(m_name)},
                {"route", tag.route},
                {"chip", tag.chip},
                {"tags", Json::array()},
                {"from", ValidUtf8(m_firstTime)},
                {"to", ValidUtf8(m_lastTime)},
                {"records", m_records}};
    for (const auto& [hasOwnClient, used] : m_tags) {
        object["tags"].push_back({{"route", used.route}, {"chip", used.chip}});
    }
    object.update(m_kinds);
    object.update({{"notNew", m_notNew}, {"failures", m_failures}, {"unusual", m_unusual}});
    return object;
}

}  // namespace lab::explain
