// Takes lines to their process, thread and action, and tells what has happened.
#include "lab/explain/Story.h"

#include "lab/Words.h"

namespace lab::explain {

namespace {

constexpr std::size_t kMostProcesses = 64;
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

void Increase(Json& number, bool isSo = true) {
    number = (number.is_null() ? 0 : number.get<std::uint64_t>()) + (isSo ? 1 : 0);
}

// The code alone says what has happened to the device.
const SystemCode* DecisiveCode(const Step& step) {
    const SystemCode* const code = step.meaning->isDevice ? FindCode(step.code) : nullptr;
    return code == nullptr || code->advice[0].empty() ? nullptr : code;
}

/// The step that explains the others best.
const Step& CauseOf(const Chain& chain) {
    const auto rank = [](const Step& step) {
        const Role role = step.meaning->role;
        const bool isCause =
            role == Role::kCause || role == Role::kMessageFails || role == Role::kChipSilent;
        return DecisiveCode(step) != nullptr ? 0 : isCause ? 1 : 2;
    };
    return *std::min_element(chain.begin(), chain.end(),
                             [&](const Step& a, const Step& b) { return rank(a) < rank(b); });
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
    // Clocks are set back at times; the threads of a log are not in a strict order either.
    return begin && end && *begin <= *end ? Micros(*end - *begin) : std::nullopt;
}

void ProcessStory::Take(const Match& match, const Mark& place) {
    ++m_records;
    lastOrder = place.order;
    if (!place.time.empty()) {
        m_firstTime = m_firstTime.empty() ? place.time : m_firstTime;
        m_lastTime = place.time;
    }
    WatchClock(place);
    Lane& lane = FindOrAdd(m_lanes, place.thread, kMostLanes, [&](Lane& one) { Close(one); });
    lane.lastOrder = place.order;
    const Meaning* meaning = match.meaning;
    if (meaning->thread >= (place.thread.empty() ? ThreadKind::kInterrupt : ThreadKind::kHost)) {
        lane.kind = meaning->thread;
    }
    meaning -= meaning->variants;
    while (!Holds(*meaning, lane, match)) {
        ++meaning;
    }
    const Rule& rule = kRules.at(static_cast<std::size_t>(meaning->role));
    const At at{lane, match, place, *meaning, rule};
    if (at.HasFailed()) {
        AddStep(at);
    }
    (this->*rule.action)(at);
    ++lane.Seen(meaning->role);
    lane.previous = meaning->role;
}

bool ProcessStory::Holds(const Meaning& one, Lane& lane, const Match& match) const {
    const auto role = static_cast<Role>(one.operand);
    switch (one.condition) {
        case Condition::kAfter:
            return lane.previous == role || lane.loop == role;
        case Condition::kWithout:
            return lane.Seen(role) == 0;
        case Condition::kWhen:
            return match.code == one.operand;
        case Condition::kLacks:
            return !m_tags.empty() && !Has(static_cast<Trait>(one.operand));
        default:
            return true;
    }
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
        Tell({ItemKind::kNote, m_jump, Outcome::kUnusual,
              "The clock goes back here: it was set, or the PC was started again.", nullptr,
              m_latest});
        m_earlyLines = 0;
        m_latest = place.micros;
    }
}

void ProcessStory::End(bool isLogsEnd, Micros lastMicros) {
    m_isLogsEnd = isLogsEnd;
    m_logsEnd = lastMicros;
    for (Lane& lane : m_lanes) {
        Close(lane);
    }
    LoseBefore(lastOrder + 1);
    EndChain(m_chip);
    EndChain(m_keyboard);
}

void ProcessStory::Close(Lane& lane) {
    if (lane.operation) {
        Finish(lane);
    }
    TellLoose(lane);
}

void ProcessStory::Finish(Lane& lane) {
    Item item = *std::exchange(lane.operation, std::nullopt);
    if (item.kind == ItemKind::kStart && item.outcome == Outcome::kWorked) {
        const Tag tag = FirstTag();
        item.says = "the tag is open" + (m_tags.empty() ? "" : " on " + tag.route);
        item.says += Has(kUnanswered)   ? ". The chip has not answered"
                     : tag.chip.empty() ? ""
                                        : ", chip " + tag.chip;
    }
    item.chain.swap(lane.chain);
    item.attempts =
        std::max({lane.Seen(Role::kStartTries), lane.Seen(Role::kWriteTries), lane.Attempts()});
    Tell(std::move(item));
}

void ProcessStory::TellLoose(Lane& lane) {
    if (lane.operation || lane.chain.empty()) {
        return;
    }
    if (Any(lane.chain, [](const Step& one) { return one.meaning->role == Role::kMessageFails; })) {
        lane.messageCause = CauseOf(lane.chain);
    }
    TellChain(lane, ItemKind::kFailure, *lane.chain.back().meaning);
}

void ProcessStory::TellChain(Lane& lane, ItemKind kind, const Meaning& meaning) {
    Item item{kind, lane.chain.front().place, Outcome::kFailed};
    const bool isOfHost = *NameOf(kind).operation != '\0';
    (isOfHost ? item.says : item.text) = isOfHost ? meaning.says : meaning.means;
    item.chain.swap(lane.chain);
    Tell(std::move(item));
}

/// What the host has called, and how that ended.
std::string ProcessStory::FirstSentence(const Item& item) const {
    const KindName& kind = NameOf(item.kind);
    const std::string operation = kind.operation;
    if (item.outcome == Outcome::kOpen) {
        return operation +
               (m_isLogsEnd ? ": not finished when the log ends." : ": its end is not in the log.");
    }
    const std::string head = item.outcome != Outcome::kFailed ? kind.success
                             : operation.empty()              ? ""
                                                              : operation + " failed";
    return head.empty() ? "" : head + (item.says.empty() ? "" : ": ") + item.says + ".";
}

void ProcessStory::Tell(Item item) {
    item.text.insert(0, FirstSentence(item));
    const bool isOpen = item.outcome == Outcome::kOpen;
    if (isOpen) {
        item.end = m_logsEnd;
    } else if (item.outcome == Outcome::kWorked && (item.attempts > 1 || !item.chain.empty())) {
        item.outcome = Outcome::kUnusual;
        item.text += item.attempts > 1 ? " It took " + std::to_string(item.attempts) + " attempts."
                                       : " There were failures on the way.";
    }
    Json object{{"kind", NameOf(item.kind).json},
                {"outcome", kOutcomes.at(static_cast<std::size_t>(item.outcome))},
                {"file", ValidUtf8(item.begin.file)},
                {"line", item.begin.line},
                {"time", ValidUtf8(item.begin.time)},
                {"process", ValidUtf8(name)},
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
    std::string rarely;
    if (!item.chain.empty()) {
        const Step& cause = CauseOf(item.chain);
        const SystemCode* const code = DecisiveCode(cause);
        object["cause"] = Explained(cause);
        item.advice = code != nullptr ? &code->advice : &cause.meaning->advice;
        if (item.outcome == Outcome::kUnusual && (cause.meaning->traits & kEveryTime) == 0) {
            rarely = "Nothing, if it is rare. Otherwise: ";
        }
    }
    const std::size_t where = m_tags.empty() ? 0 : Has(kInKeyboard) ? 2 : 1;
    if (item.advice != nullptr && !item.advice->at(where).empty()) {
        object["do"] = rarely.append(item.advice->at(where));
    }
    for (const Step& step : item.chain) {
        object["chain"].push_back(step.object);
    }
    CountItem(item, object);
    m_sink(object);
}

void ProcessStory::CountItem(const Item& item, const Json& object) {
    const bool isFailed = item.outcome == Outcome::kFailed;
    const bool isOpen = item.outcome == Outcome::kOpen;
    const bool hasWorked = !isFailed && !isOpen;
    Json& of = m_kinds[NameOf(item.kind).json];
    Increase(of["worked"], hasWorked);
    Increase(of["failed"], isFailed);
    Increase(of["open"], isOpen);
    Increase(of["atEnd"], isOpen && m_isLogsEnd);
    Increase(of["retried"], hasWorked && item.attempts > 1);
    const Micros micros = Between(item.begin.micros, item.end);
    if (hasWorked && micros && item.kind != ItemKind::kNote) {
        auto& [sum, count] = m_sums[item.kind];
        sum += static_cast<double>(*micros);
        of["averageMs"] = sum / 1000 / ++count;
        of["longestMs"] = std::max(of.value("longestMs", 0.0), Milliseconds(*micros));
    }
    if (isFailed) {
        Count(m_failures, object, object.value("cause", item.text));
    } else if (item.outcome == Outcome::kUnusual) {
        Count(m_unusual, object, item.text);
    }
}

Json ProcessStory::Figures() const {
    const Tag tag = FirstTag();
    Json object{{"process", ValidUtf8(name)},
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

void Story::Take(const Match& match, Mark place) {
    place.order = ++m_taken;
    m_lastMicros = place.micros ? place.micros : m_lastMicros;
    const auto drop = [this](ProcessStory& silent) {
        silent.End(false, {});
        ++m_dropped;
    };
    FindOrAdd(m_processes, place.process, kMostProcesses, drop, m_tell).Take(match, place);
}

void Story::Tell(const Json& item) {
    const bool isNote = item["kind"] == "note";
    if (isNote && !m_note.is_null() && item["text"] == m_note["text"] &&
        item["process"] == m_note["process"]) {
        m_note["times"] = m_note.value("times", 1U) + 1;
        m_note["lastLine"] = item["line"];
        return;
    }
    Flush();
    m_note = item;
    if (!isNote) {
        Flush();
    }
}

void Story::Flush() {
    if (!m_note.is_null()) {
        m_sink(std::exchange(m_note, nullptr));
    }
}

void Story::End() {
    for (ProcessStory& process : m_processes) {
        process.End(true, m_lastMicros);
    }
    Flush();
}

Json Story::Figures() const {
    Json figures{{"droppedProcesses", m_dropped}, {"processes", Json::array()}};
    for (const ProcessStory& process : m_processes) {
        figures["processes"].push_back(process.Figures());
    }
    return figures;
}

}  // namespace lab::explain
