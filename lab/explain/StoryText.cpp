#include "lab/explain/StoryText.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "lab/Printable.h"

namespace lab::explain {

namespace {

constexpr std::size_t kLineWidth = 9;       // of the number of a line
constexpr std::size_t kTimeWidth = 12;      // at least
constexpr std::size_t kOutcomeWidth = 8;    // of the word for the outcome
constexpr std::size_t kLiveIndent = 36;     // where the text of a run's lines begins
constexpr std::size_t kMostProcesses = 20;  // in the summary for people
constexpr std::size_t kLabelWidth = 12;
constexpr std::int64_t kShownAtLeast = 1000;  // microseconds that are worth a place in the summary

struct KindName {
    ItemKind kind;
    const char* json;
    const char* label;  // in the summary; null: not a line of its own
};
constexpr std::array<KindName, 14> kKinds{{
    {ItemKind::kCreate, "create", "Managers"},
    {ItemKind::kStart, "start", "Starts"},
    {ItemKind::kConnect, "connect", "Connects"},
    {ItemKind::kDisconnect, "disconnect", nullptr},
    {ItemKind::kWrite, "write", "Writes"},
    {ItemKind::kUpdate, "update", "Updates"},
    {ItemKind::kRefresh, "refresh", "Refreshes"},
    {ItemKind::kRead, "read", "Reads"},
    {ItemKind::kReadNumber, "read-number", "Number reads"},
    {ItemKind::kRenew, "renew", "New numbers"},
    {ItemKind::kVisit, "visit", "Visits"},
    {ItemKind::kReporting, "reporting", nullptr},
    {ItemKind::kFailure, "failure", "Other"},
    {ItemKind::kNote, "note", nullptr},
}};

const KindName& NameOf(ItemKind kind) {
    return *std::find_if(kKinds.begin(), kKinds.end(),
                         [kind](const KindName& one) { return one.kind == kind; });
}

const char* JsonOutcome(Outcome outcome) {
    switch (outcome) {
        case Outcome::kFailed:
            return "failed";
        case Outcome::kOpen:
            return "open";
        case Outcome::kUnusual:
            return "unusual";
        default:
            return "worked";
    }
}

std::string Duration(std::int64_t micros) {
    std::array<char, 48> text{};
    const double seconds = static_cast<double>(micros) / 1e6;
    if (seconds < 1) {
        std::snprintf(text.data(), text.size(), "%.0f ms", seconds * 1000);
    } else if (seconds < 120) {
        std::snprintf(text.data(), text.size(), "%.2f s", seconds);
    } else {
        const auto whole = static_cast<long long>(seconds);
        std::snprintf(text.data(), text.size(), "%lld min %lld s", whole / 60, whole % 60);
    }
    return text.data();
}

std::string Padded(std::string text, std::size_t width) {
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

std::string Number(std::uint64_t value, std::size_t width = 0) {
    std::string text = std::to_string(value);
    return std::string(width - std::min(width, text.size()), ' ') + text;
}

std::string Times(std::uint64_t times) {
    return times == 1 ? "" : " (" + std::to_string(times) + " times)";
}

Json Safe(std::string_view text) {
    return ValidUtf8(text);
}

Json TimedJson(const Totals::Timed& of) {
    Json object;
    object["worked"] = of.worked;
    object["failed"] = of.failed;
    object["open"] = of.open;
    object["atEnd"] = of.atEnd;
    object["retried"] = of.retried;
    if (of.timed > 0) {
        object["averageMs"] = static_cast<double>(of.sum) / static_cast<double>(of.timed) / 1000;
        object["longestMs"] = static_cast<double>(of.longest) / 1000;
    }
    return object;
}

Json CausesJson(const std::map<std::string, Totals::Cause>& causes) {
    Json list = Json::array();
    for (const auto& [text, cause] : causes) {
        Json one;
        one["text"] = Safe(text);
        one["times"] = cause.times;
        one["do"] = Safe(cause.remedy);
        list.push_back(std::move(one));
    }
    return list;
}

}  // namespace

std::string StoryText::Head(const Item& item) const {
    const std::string word = Padded(item.outcome == Outcome::kFailed    ? "FAILED"
                                    : item.outcome == Outcome::kOpen    ? "OPEN"
                                    : item.outcome == Outcome::kUnusual ? "unusual"
                                                                        : "",
                                    kOutcomeWidth);
    return item.outcome == Outcome::kFailed   ? m_style.Red(word)
           : item.outcome == Outcome::kWorked ? word
                                              : m_style.Yellow(word);
}

std::string StoryText::Body(const Item& item, std::size_t indent, bool hasLines) const {
    std::string text = item.text;
    if (item.micros) {
        text += item.outcome == Outcome::kOpen ? " It began " + Duration(*item.micros) + " before."
                                               : " (" + Duration(*item.micros) + ")";
    }
    text += "\n";
    const std::string margin(indent, ' ');
    if (!item.cause.empty()) {
        text += margin + "Cause: " + item.cause + "\n";
    }
    if (!item.remedy.empty()) {
        text += margin + "Do:    " + item.remedy + "\n";
    }
    for (const Step& step : item.chain) {
        text += margin +
                m_style.Dim((hasLines ? "line " + Number(step.line) + "  " : "") +
                            Printable(step.text) + Times(step.times)) +
                "\n";
    }
    return text;
}

std::string StoryText::ItemLines(const Item& item, bool hasProcesses) const {
    const std::string time = Padded(Printable(item.time), kTimeWidth);
    const std::string process =
        hasProcesses && !item.process.empty() ? "[" + Printable(item.process) + "] " : "";
    return m_style.Dim(Number(item.line, kLineWidth) + "  " + time) + "  " + Head(item) + process +
           Body(item, kLineWidth + time.size() + kOutcomeWidth + 4, true);
}

std::string StoryText::LiveLines(const Item& item) const {
    std::array<char, 64> head{};
    std::snprintf(head.data(), head.size(), "%12s  %-9s  %-10s ", item.time.c_str(),
                  Printable(item.thread).substr(0, 9).c_str(), "explained");
    return m_style.Dim(head.data()) + (item.outcome == Outcome::kWorked ? "" : Head(item)) +
           Body(item, kLiveIndent, false);
}

std::string StoryText::ProcessLines(const Totals& totals, bool isNamed) const {
    std::string text;
    if (isNamed) {
        text += "\n" +
                m_style.Bold("Process " + (totals.process.empty() ? std::string("without a number")
                                                                  : Printable(totals.process))) +
                "\n";
    }
    const auto line = [&](const std::string& label, const std::string& value) {
        text += "  " + Padded(label, kLabelWidth) + " " + value + "\n";
    };
    if (!totals.route.empty() || !totals.chip.empty()) {
        line("Tag", (totals.chip.empty() ? "" : totals.chip + " on ") +
                        (totals.route.empty() ? "an unknown route" : totals.route));
    }
    if (!totals.firstTime.empty()) {
        line("Time", Printable(totals.firstTime) + " to " + Printable(totals.lastTime));
    }
    for (const KindName& name : kKinds) {
        const auto found = totals.kinds.find(name.kind);
        if (found == totals.kinds.end() || name.label == nullptr) {
            continue;
        }
        const Totals::Timed& of = found->second;
        std::string value =
            std::to_string(of.worked) + (name.kind == ItemKind::kVisit ? " complete" : " worked");
        if (name.kind == ItemKind::kFailure || name.kind == ItemKind::kReadNumber) {
            value.clear();
        }
        const auto add = [&](std::uint64_t count, const char* what) {
            value += count == 0 ? "" : (value.empty() ? "" : ", ") + std::to_string(count) + what;
        };
        add(of.retried, " of them after retries");
        add(of.open - of.atEnd,
            name.kind == ItemKind::kVisit ? " without a leave" : " without an end");
        add(of.atEnd, " not finished when the log ends");
        if (of.failed > 0) {
            value +=
                (value.empty() ? "" : ", ") + m_style.Red(std::to_string(of.failed) + " failed");
        }
        if (of.timed > 0 && of.longest >= kShownAtLeast) {
            value += "; " + Duration(of.sum / static_cast<std::int64_t>(of.timed)) +
                     " on average, the longest " + Duration(of.longest);
        }
        if (name.kind == ItemKind::kRenew && totals.known > 0) {
            value += "; " + std::to_string(totals.known) + " were not new";
        }
        line(name.label, value);
    }
    for (const auto* const list : {&totals.causes, &totals.oddities}) {
        for (const auto& [cause, of] : *list) {
            line(list == &totals.causes ? m_style.Red(Padded("Failure", kLabelWidth))
                                        : m_style.Yellow(Padded("Unusual", kLabelWidth)),
                 cause + Times(of.times));
            if (!of.remedy.empty()) {
                line("", "Do: " + of.remedy);
            }
        }
    }
    return text;
}

std::string StoryText::Figures(const Story& story) const {
    const std::vector<const Totals*> processes = story.Processes();
    std::string text;
    for (std::size_t i = 0; i < std::min(processes.size(), kMostProcesses); ++i) {
        text += ProcessLines(*processes[i], processes.size() > 1);
    }
    const std::uint64_t more =
        processes.size() - std::min(processes.size(), kMostProcesses) + story.DroppedProcesses();
    if (more > 0) {
        text += "\n" + std::to_string(more) +
                " more processes; --json has the figures of the last " +
                std::to_string(Story::kMostProcesses) + ".\n";
    }
    return text;
}

std::string StoryText::Summary(const LogFacts& facts, const Story& story) const {
    std::string text = m_style.Bold(Printable(facts.name)) + ": " + std::to_string(facts.lines) +
                       (facts.lines == 1 ? " line: " : " lines: ") + std::to_string(facts.library) +
                       " of the library";
    if (facts.library != facts.records) {
        text +=
            " (" + std::to_string(facts.records) + (facts.records == 1 ? " record)" : " records)");
    }
    text += ", " + (facts.unknown > 0 ? std::to_string(facts.unknown) + " unknown, " : "") +
            std::to_string(facts.others) + " of others.\n";
    if (facts.library == 0) {
        return text +
               "No line of the library was found: its lines end with (LogWarnFun) or "
               "(LogErrorFun).\n";
    }
    if (facts.unknown > 0) {
        text +=
            "The unknown lines end like the library's: they are damaged, or of another version.\n";
    }
    const PrefixLayout& layout = facts.layout;
    text += std::string("Before each line: ") + (layout.HasTime() ? "a time" : "no time") +
            (layout.HasProcess() ? ", a process" : ", no process") +
            (layout.HasThread() ? ", a thread.\n" : ", no thread.\n");
    if (layout.HasWholeSeconds()) {
        text += "The times have whole seconds: each length is wrong by up to a second.\n";
    }
    if (!layout.HasThread()) {
        text +=
            "The lines do not name their thread, so a failure may be listed under another "
            "operation.\n";
    }
    return text + Figures(story) + "\n" + m_style.Bold("What happened, with the line of the log:") +
           "\n";
}

std::string ItemJson(const Item& item) {
    Json object;
    object["kind"] = NameOf(item.kind).json;
    object["outcome"] = JsonOutcome(item.outcome);
    object["line"] = item.line;
    object["time"] = Safe(item.time);
    if (item.micros) {
        object["ms"] = static_cast<double>(*item.micros) / 1000;
    }
    object["process"] = Safe(item.process);
    object["thread"] = Safe(item.thread);
    object["text"] = Safe(item.text);
    if (item.outcome == Outcome::kOpen) {
        object["atEnd"] = item.isAtEnd;
    }
    if (item.attempts > 0) {
        object["attempts"] = item.attempts;
    }
    if (!item.cause.empty()) {
        object["cause"] = Safe(item.cause);
    }
    if (!item.remedy.empty()) {
        object["do"] = Safe(item.remedy);
    }
    for (const Step& step : item.chain) {
        Json one;
        one["line"] = step.line;
        one["text"] = Safe(step.text);
        one["times"] = step.times;
        if (step.code) {
            one["code"] = *step.code;
        }
        one["means"] = Safe(step.meaning->Text(step.code));
        object["chain"].push_back(std::move(one));
    }
    return object.dump(-1, ' ', true) + "\n";
}

std::string SummaryJson(const LogFacts& facts, const Story& story) {
    Json object;
    object["kind"] = "summary";
    object["file"] = Safe(facts.name);
    object["bytes"] = facts.bytes;
    object["lines"] = facts.lines;
    object["library"] = facts.library;
    object["unknown"] = facts.unknown;
    object["others"] = facts.others;
    object["records"] = facts.records;
    object["hasTime"] = facts.layout.HasTime();
    object["hasWholeSeconds"] = facts.layout.HasWholeSeconds();
    object["hasProcess"] = facts.layout.HasProcess();
    object["hasThread"] = facts.layout.HasThread();
    object["droppedProcesses"] = story.DroppedProcesses();
    object["processes"] = Json::array();
    for (const Totals* const totals : story.Processes()) {
        Json one;
        one["process"] = Safe(totals->process);
        one["route"] = Safe(totals->route);
        one["chip"] = Safe(totals->chip);
        one["from"] = Safe(totals->firstTime);
        one["to"] = Safe(totals->lastTime);
        one["records"] = totals->records;
        for (const KindName& name : kKinds) {
            const auto found = totals->kinds.find(name.kind);
            if (found != totals->kinds.end()) {
                one[name.json] = TimedJson(found->second);
            }
        }
        one["notNew"] = totals->known;
        one["failures"] = CausesJson(totals->causes);
        one["unusual"] = CausesJson(totals->oddities);
        object["processes"].push_back(std::move(one));
    }
    return object.dump(-1, ' ', true) + "\n";
}

}  // namespace lab::explain
