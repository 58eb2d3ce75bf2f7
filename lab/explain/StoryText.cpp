#include "lab/explain/StoryText.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "lab/Words.h"

namespace lab::explain {

namespace {

constexpr std::size_t kLineWidth = 9;       // of the number of a line
constexpr std::size_t kTimeWidth = 12;      // at least
constexpr std::size_t kOutcomeWidth = 9;    // of the word for the outcome
constexpr std::size_t kLiveIndent = 36;     // where the text of a run's lines begins
constexpr std::size_t kAdviceIndent = 7;    // behind "Cause: " and "Do:    "
constexpr std::size_t kMostProcesses = 20;  // in the summary for people
constexpr std::size_t kLabelWidth = 15;
constexpr std::size_t kNarrowest = 30;        // text that is wrapped
constexpr std::int64_t kShownAtLeast = 1000;  // microseconds that are worth a place in the summary

struct OutcomeName {
    const char* json;
    const char* word;
};
constexpr std::array<OutcomeName, 4> kOutcomes{
    {{"worked", ""}, {"failed", "FAILED"}, {"open", "OPEN"}, {"unusual", "unusual"}}};

std::string Duration(std::int64_t micros) {
    std::array<char, 48> text{};
    const double seconds = static_cast<double>(micros) / 1e6;
    const long long whole = micros / 1'000'000;
    if (seconds < 120) {
        std::snprintf(text.data(), text.size(), seconds < 1 ? "%.0f ms" : "%.2f s",
                      seconds < 1 ? seconds * 1000 : seconds);
    } else {
        std::snprintf(text.data(), text.size(), "%lld min %lld s", whole / 60, whole % 60);
    }
    return text.data();
}

std::string Padded(std::string text, std::size_t width) {
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

std::string Times(std::uint64_t times) {
    return times == 1 ? "" : " (" + std::to_string(times) + " times)";
}

std::string Counted(std::uint64_t count, const char* what) {
    return std::to_string(count) + what + (count == 1 ? "" : "s");
}

std::string TagText(const std::vector<Tag>& tags) {
    std::string text;
    for (const Tag& tag : tags) {
        text += (text.empty() ? "" : ", and a keyboard on ") +
                (tag.chip.empty() ? "" : tag.chip + " on ") +
                (tag.route.empty() ? "an unknown route" : tag.route);
    }
    return text;
}

/// How often something happened, and how long it took.
std::string TimedText(ItemKind kind, const Totals& totals, const Style& style) {
    const Totals::Timed& of = totals.kinds.at(kind);
    const bool isVisit = kind == ItemKind::kVisit;
    const bool isFailure = kind == ItemKind::kFailure || kind == ItemKind::kReadNumber;
    std::string text =
        isFailure ? "" : std::to_string(of.worked) + (isVisit ? " complete" : " worked");
    const auto add = [&](std::uint64_t count, const std::string& what) {
        text += count == 0 ? "" : (text.empty() ? "" : ", ") + std::to_string(count) + what;
    };
    add(of.retried, " of them after retries");
    add(of.open - of.atEnd, isVisit ? " without a leave" : " without an end");
    add(of.atEnd, " not finished when the log ends");
    add(of.failed, style.Red(" failed"));
    if (of.timed > 0 && of.longest >= kShownAtLeast) {
        text += "; " + Duration(of.sum / static_cast<std::int64_t>(of.timed)) +
                " on average, the longest " + Duration(of.longest);
    }
    const bool hasKnown = kind == ItemKind::kRenew && totals.known > 0;
    return text + (hasKnown ? "; " + std::to_string(totals.known) + " were not new" : "");
}

Json Safe(std::string_view text) {
    return ValidUtf8(text);
}

double Milliseconds(std::int64_t micros) {
    return static_cast<double>(micros) / 1000;
}

Json TimedJson(const Totals::Timed& of) {
    Json object{{"worked", of.worked},
                {"failed", of.failed},
                {"open", of.open},
                {"atEnd", of.atEnd},
                {"retried", of.retried}};
    if (of.timed > 0) {
        object["averageMs"] = Milliseconds(of.sum) / static_cast<double>(of.timed);
        object["longestMs"] = Milliseconds(of.longest);
    }
    return object;
}

}  // namespace

std::string StoryText::Place(const Mark& place) const {
    return (m_files.size() > 1 ? Printable(m_files.at(place.file)) + ":" : "") +
           std::to_string(place.line);
}

/// Breaks the text at blanks; it begins at `indent`, and its further lines at `hanging`.
std::string StoryText::Wrapped(const std::string& text, std::size_t indent,
                               std::size_t hanging) const {
    const std::size_t width = m_width > hanging + kNarrowest ? m_width : 0;
    std::string wrapped;
    std::size_t column = indent;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t blank = std::min(text.find(' ', at + 1), text.size());
        if (width > 0 && column + blank - at > width && column > hanging) {
            wrapped += "\n" + std::string(hanging, ' ');
            column = hanging;
            at += text[at] == ' ' ? 1 : 0;
        }
        wrapped += text.substr(at, blank - at);
        column += blank - at;
        at = blank;
    }
    return wrapped + "\n";
}

std::string StoryText::Head(const Item& item) const {
    const std::string word =
        Padded(kOutcomes.at(static_cast<std::size_t>(item.outcome)).word, kOutcomeWidth);
    return item.outcome == Outcome::kFailed   ? m_style.Red(word)
           : item.outcome == Outcome::kWorked ? word
                                              : m_style.Yellow(word);
}

std::string StoryText::Body(const Item& item, std::string head, std::size_t indent) const {
    const bool hasNumbers = !m_files.empty();
    std::string text = item.text;
    if (item.micros) {
        text += item.outcome == Outcome::kOpen ? " It began " + Duration(*item.micros) + " before."
                                               : " (" + Duration(*item.micros) + ")";
    }
    text += Times(item.times);
    if (item.times > 1 && hasNumbers) {
        text += " The last one is in line " + std::to_string(item.lastLine) + ".";
    }
    head += Wrapped(text, indent, indent);
    const std::string margin(indent, ' ');
    for (const auto& [label, what] :
         {std::pair("Cause: ", &item.cause), {"Do:    ", &item.remedy}}) {
        if (!what->empty()) {
            head += margin + Wrapped(label + *what, indent, indent + kAdviceIndent);
        }
    }
    for (const Step& step : item.chain) {
        head += margin +
                m_style.Dim((hasNumbers ? "line " + Place(step.place) + "  " : "") +
                            Printable(step.text) + Times(step.times)) +
                "\n";
    }
    return head;
}

std::string StoryText::ItemLines(const Item& item, bool hasProcesses) const {
    std::string place = Place(item.begin);
    place.insert(0, std::max(place.size(), kLineWidth) - place.size(), ' ');
    place += "  " + Padded(Printable(item.begin.time), kTimeWidth) + "  ";
    const std::string process =
        hasProcesses && !item.process.empty() ? "[" + Printable(item.process) + "] " : "";
    return Body(item, m_style.Dim(place) + Head(item) + process, place.size() + kOutcomeWidth);
}

std::string StoryText::LiveLines(const Item& item) const {
    std::array<char, 64> head{};
    std::snprintf(head.data(), head.size(), "%12s  %-9s  %-10s ", item.begin.time.c_str(),
                  Printable(item.thread).substr(0, 9).c_str(), "explained");
    const bool hasWord = item.outcome != Outcome::kWorked;
    return Body(item, m_style.Dim(head.data()) + (hasWord ? Head(item) : ""), kLiveIndent);
}

std::string StoryText::ProcessLines(const Totals& totals, bool isNamed) const {
    const std::string name =
        totals.process.empty() ? "without a number" : Printable(totals.process);
    std::string text = isNamed ? "\n" + m_style.Bold("Process " + name) + "\n" : "";
    const auto line = [&](const std::string& label, const std::string& value) {
        text += label + std::string(kLabelWidth - label.size(), ' ') +
                Wrapped(value, kLabelWidth, kLabelWidth);
    };
    if (!totals.tags.empty()) {
        line("  Tag", TagText(totals.tags));
    }
    if (!totals.firstTime.empty()) {
        line("  Time", Printable(totals.firstTime) + " to " + Printable(totals.lastTime));
    }
    for (const auto& [kind, of] : totals.kinds) {
        if (*NameOf(kind).label != '\0') {
            line("  " + std::string(NameOf(kind).label), TimedText(kind, totals, m_style));
        }
    }
    for (const auto* const list : {&totals.causes, &totals.oddities}) {
        for (const Totals::Cause& cause : *list) {
            text += list == &totals.causes ? m_style.Red("  Failure      ")
                                           : m_style.Yellow("  Unusual      ");
            const std::string place = m_files.empty() ? "" : "line " + Place(cause.first) + ": ";
            text += Wrapped(place + cause.text + Times(cause.times), kLabelWidth, kLabelWidth);
            if (!cause.remedy.empty()) {
                line("", "Do: " + cause.remedy);
            }
        }
    }
    return text;
}

std::string StoryText::Figures(const Story& story) const {
    const std::vector<const Totals*> processes = story.Processes();
    const std::size_t shown = std::min(processes.size(), kMostProcesses);
    std::string text;
    for (std::size_t i = 0; i < shown; ++i) {
        text += ProcessLines(*processes[i], processes.size() > 1);
    }
    const std::uint64_t more = processes.size() - shown + story.DroppedProcesses();
    return text + (more == 0 ? ""
                             : "\n" + std::to_string(more) +
                                   " more processes; --json has the figures of the last " +
                                   std::to_string(Story::kMostProcesses) + ".\n");
}

std::string StoryText::Summary(const LogFacts& facts, const Story& story) const {
    const LineCounts& counts = facts.counts;
    const PrefixLayout& layout = facts.layout;
    std::string names;
    for (const std::string& file : facts.files) {
        names += (names.empty() ? "" : ", ") + Printable(file);
    }
    std::string lines = ": " + Counted(counts.lines, " line") + ": " +
                        std::to_string(counts.library) + " of the library";
    lines +=
        counts.library == counts.records ? "" : " (" + Counted(counts.records, " record") + ")";
    lines += counts.unknown > 0 ? ", " + std::to_string(counts.unknown) + " unknown" : "";
    lines += ", " + std::to_string(counts.Others()) + " of others.";
    const std::string text = m_style.Bold(names) + Wrapped(lines, names.size(), 0);
    if (counts.library == 0) {
        return text + Wrapped(
                          "No line of the library was found: its lines end with (LogWarnFun) "
                          "or (LogErrorFun).",
                          0, 0);
    }
    std::string before =
        layout.HasTime() ? "Before each line: a time" : "Before each line: no time";
    before += layout.HasProcess() ? ", a process" : ", no process";
    before += layout.HasThread() ? ", a thread." : ", no thread.";
    if (counts.unknown > 0) {
        before +=
            " The unknown lines end like the library's: they are damaged, or of another version.";
    }
    if (layout.HasWholeSeconds()) {
        before += " The times have whole seconds: each length is wrong by up to a second.";
    }
    if (!layout.HasThread()) {
        before += " So a failure may be listed under another operation.";
    }
    return text + Wrapped(before, 0, 0) + Figures(story);
}

std::string StoryText::ItemJson(const Item& item) const {
    Json object{{"kind", NameOf(item.kind).json},
                {"outcome", kOutcomes.at(static_cast<std::size_t>(item.outcome)).json},
                {"file", Safe(m_files.at(item.begin.file))},
                {"line", item.begin.line},
                {"time", Safe(item.begin.time)},
                {"process", Safe(item.process)},
                {"thread", Safe(item.thread)},
                {"text", Safe(item.text)}};
    const auto add = [&](bool isThere, const char* name, Json value) {
        if (isThere) {
            object[name] = std::move(value);
        }
    };
    add(item.micros.has_value(), "ms", Milliseconds(item.micros.value_or(0)));
    add(item.outcome == Outcome::kOpen, "atEnd", item.isAtEnd);
    add(item.attempts > 0, "attempts", item.attempts);
    add(item.times > 1, "times", item.times);
    add(item.times > 1, "lastLine", item.lastLine);
    add(!item.cause.empty(), "cause", Safe(item.cause));
    add(!item.remedy.empty(), "do", Safe(item.remedy));
    for (const Step& step : item.chain) {
        Json one{{"file", Safe(m_files.at(step.place.file))},
                 {"line", step.place.line},
                 {"text", Safe(step.text)},
                 {"times", step.times},
                 {"means", Safe(step.meaning->Text(step.code))}};
        if (step.code) {
            one["code"] = *step.code;
        }
        object["chain"].push_back(std::move(one));
    }
    return object.dump(-1, ' ', true) + "\n";
}

std::string StoryText::SummaryJson(const LogFacts& facts, const Story& story) const {
    const LineCounts& counts = facts.counts;
    const PrefixLayout& layout = facts.layout;
    Json files = Json::array();
    for (const std::string& file : facts.files) {
        files.push_back(Safe(file));
    }
    Json object{{"kind", "summary"},
                {"file", files.at(0)},
                {"files", files},
                {"bytes", facts.bytes},
                {"lines", counts.lines},
                {"library", counts.library},
                {"unknown", counts.unknown},
                {"others", counts.Others()},
                {"records", counts.records},
                {"hasTime", layout.HasTime()},
                {"hasWholeSeconds", layout.HasWholeSeconds()},
                {"hasProcess", layout.HasProcess()},
                {"hasThread", layout.HasThread()},
                {"droppedProcesses", story.DroppedProcesses()},
                {"processes", Json::array()}};
    for (const Totals* const totals : story.Processes()) {
        const Tag tag = totals->tags.empty() ? Tag() : totals->tags.front();
        Json one{{"process", Safe(totals->process)},
                 {"route", tag.route},
                 {"chip", tag.chip},
                 {"tags", Json::array()},
                 {"from", Safe(totals->firstTime)},
                 {"to", Safe(totals->lastTime)},
                 {"records", totals->records}};
        for (const Tag& used : totals->tags) {
            one["tags"].push_back({{"route", used.route}, {"chip", used.chip}});
        }
        for (const auto& [kind, of] : totals->kinds) {
            one[NameOf(kind).json] = TimedJson(of);
        }
        one["notNew"] = totals->known;
        for (const auto* const list : {&totals->causes, &totals->oddities}) {
            Json& causes = one[list == &totals->causes ? "failures" : "unusual"] = Json::array();
            for (const Totals::Cause& cause : *list) {
                causes.push_back({{"text", Safe(cause.text)},
                                  {"times", cause.times},
                                  {"do", Safe(cause.remedy)},
                                  {"file", Safe(m_files.at(cause.first.file))},
                                  {"line", cause.first.line}});
            }
        }
        object["processes"].push_back(std::move(one));
    }
    return object.dump(-1, ' ', true) + "\n";
}

}  // namespace lab::explain
