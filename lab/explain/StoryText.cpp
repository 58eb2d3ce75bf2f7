#include "lab/explain/StoryText.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "lab/HumanOutput.h"
#include "lab/Words.h"

namespace lab::explain {

namespace {

constexpr std::size_t kLineWidth = 9;     // of the number of a line
constexpr std::size_t kTimeWidth = 12;    // at least
constexpr std::size_t kOutcomeWidth = 9;  // of the word for the outcome
constexpr std::size_t kAdviceIndent = 7;  // after "Cause: " and "Do:    "
constexpr std::size_t kLabelWidth = 15;
constexpr double kShownAtLeast = 1;        // milliseconds that are worth a place in the summary
constexpr double kShownInMinutes = 120e3;  // milliseconds

std::string Duration(double milliseconds) {
    std::array<char, 48> text{};
    const auto seconds = static_cast<long long>(milliseconds / 1000);
    if (milliseconds >= kShownInMinutes) {
        return std::to_string(seconds / 60) + " min " + std::to_string(seconds % 60) + " s";
    }
    std::snprintf(text.data(), text.size(), milliseconds < 1000 ? "%.0f ms" : "%.2f s",
                  milliseconds < 1000 ? milliseconds : milliseconds / 1000);
    return text.data();
}

std::string Padded(std::string text, std::size_t width) {
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

std::string Text(const Json& value) {
    return value.is_string() ? Printable(value.get<std::string>()) : value.dump();
}

std::string Times(const Json& object) {
    const auto times = object.value("times", std::uint64_t{1});
    return times == 1 ? "" : " (" + std::to_string(times) + " times)";
}

/// How often something happened, and how long it took.
std::string TimedText(const std::string& kind, const Json& process, const Style& style) {
    const Json& of = process[kind];
    const bool isVisit = kind == "visit";
    std::string text = kind == "failure" || kind == "read-number"
                           ? ""
                           : Text(of["worked"]) + (isVisit ? " complete" : " worked");
    const auto add = [&](std::uint64_t count, const std::string& what) {
        text += count == 0 ? "" : (text.empty() ? "" : ", ") + std::to_string(count) + what;
    };
    const std::uint64_t atEnd = of["atEnd"];
    add(of["retried"], " of them after retries");
    add(of["open"].get<std::uint64_t>() - atEnd, isVisit ? " without a leave" : " without an end");
    add(atEnd, " not finished when the log ends");
    add(of["failed"], style.Red(" failed"));
    if (of.value("longestMs", 0.0) >= kShownAtLeast) {
        text += "; " + Duration(of["averageMs"]) + " on average, the longest " +
                Duration(of["longestMs"]);
    }
    const bool hasKnown = kind == "renew" && process["notNew"] != 0;
    return text + (hasKnown ? "; " + Text(process["notNew"]) + " were not new" : "");
}

}  // namespace

std::string JsonLine(const Json& object) {
    return object.dump(-1, ' ', true) + "\n";
}

std::string StoryText::Place(const Json& place) const {
    return (m_files > 1 ? Text(place["file"]) + ":" : "") + Text(place["line"]);
}

std::string StoryText::Fold(const std::string& text, std::size_t indent,
                            std::size_t hanging) const {
    return Wrapped(text, m_width, indent, hanging) + "\n";
}

std::string StoryText::ItemLines(const Json& item, bool hasProcesses) const {
    const bool isOfRun = m_files == 0;
    std::string place = Place(item);
    place.insert(0, std::max(place.size(), kLineWidth) - place.size(), ' ');
    place = isOfRun ? LineHead(Text(item["time"]), Text(item["thread"]), "explained")
                    : place + "  " + Padded(Text(item["time"]), kTimeWidth) + "  ";
    const std::size_t indent = place.size() + (isOfRun ? 0 : kOutcomeWidth);
    const std::string outcome = item["outcome"];
    std::string text = m_style.Dim(place);
    if (outcome != "worked" || !isOfRun) {
        text += outcome == "failed"    ? m_style.Red(Padded("FAILED", kOutcomeWidth))
                : outcome == "open"    ? m_style.Yellow(Padded("OPEN", kOutcomeWidth))
                : outcome == "unusual" ? m_style.Yellow(Padded(outcome, kOutcomeWidth))
                                       : Padded("", kOutcomeWidth);
    }
    const std::string process = Text(item["process"]);
    text += hasProcesses && !process.empty() ? "[" + process + "] " : "";

    std::string what = item["text"];
    if (item.contains("ms")) {
        what += outcome == "open" ? " It began " + Duration(item["ms"]) + " before."
                                  : " (" + Duration(item["ms"]) + ")";
    }
    what += Times(item);
    if (item.contains("lastLine") && !isOfRun) {
        what += " The last one is in line " + Text(item["lastLine"]) + ".";
    }
    text += Fold(what, indent, indent);
    const std::string margin(indent, ' ');
    for (const auto& [label, field] : {std::pair("Cause: ", "cause"), {"Do:    ", "do"}}) {
        if (item.contains(field)) {
            text += margin +
                    Fold(label + item[field].get<std::string>(), indent, indent + kAdviceIndent);
        }
    }
    for (const Json& step : item.value("chain", Json::array())) {
        const std::string line = isOfRun ? "" : "line " + Place(step) + "  ";
        text += margin + m_style.Dim(line + Text(step["text"]) + Times(step)) + "\n";
    }
    return text;
}

std::string StoryText::ProcessLines(const Json& process, bool isNamed) const {
    std::string text;
    const auto line = [&](const std::string& label, const std::string& value) {
        text += label + Fold(value, kLabelWidth, kLabelWidth);
    };
    const auto label = [](const std::string& name) { return Padded("  " + name, kLabelWidth); };
    const std::string name = Text(process["process"]);
    if (isNamed) {
        text = "\n" + m_style.Bold("Process " + (name.empty() ? "without a number" : name)) + "\n";
    }
    std::vector<std::string> tags;
    for (const Json& tag : process["tags"]) {
        const std::string chip = tag["chip"];
        const std::string route = tag["route"];
        tags.push_back(chip + (chip.empty() ? "" : " on ") +
                       (route.empty() ? "an unknown route" : route));
    }
    if (!tags.empty()) {
        line(label("Tag"), Joined(tags, ", and a keyboard on "));
    }
    if (process["from"] != "") {
        line(label("Time"), Text(process["from"]) + " to " + Text(process["to"]));
    }
    for (const KindName& kind : kKindNames) {
        if (*kind.label != '\0' && process.contains(kind.json)) {
            line(label(kind.label), TimedText(kind.json, process, m_style));
        }
    }
    for (const auto& [list, head] : {std::pair("failures", m_style.Red(label("Failure"))),
                                     {"unusual", m_style.Yellow(label("Unusual"))}}) {
        for (const Json& cause : process[list]) {
            const std::string what = cause["text"].get<std::string>() + Times(cause);
            line(head, m_files > 0 ? "line " + Place(cause) + ": " + what : what);
            if (cause["do"] != "") {
                line(label(""), "Do: " + cause["do"].get<std::string>());
            }
        }
    }
    return text;
}

std::string StoryText::Figures(const Json& figures) const {
    std::string text;
    for (const Json& process : figures["processes"]) {
        text += ProcessLines(process, figures["processes"].size() > 1);
    }
    if (figures["droppedProcesses"] != 0) {
        text += "\n" + Text(figures["droppedProcesses"]) + " more processes, without figures.\n";
    }
    return text;
}

std::string StoryText::Summary(const Json& summary) const {
    std::vector<std::string> files;
    for (const Json& file : summary["files"]) {
        files.push_back(Text(file));
    }
    const std::string names = Joined(files);
    const bool hasUnknown = summary["unknown"] != 0;
    const bool hasLonger = summary["library"] != summary["records"];
    const std::string lines =
        ": " + Counted(summary["lines"], "line") + ": " + Text(summary["library"]) +
        " of the library" + (hasLonger ? " (" + Counted(summary["records"], "record") + ")" : "") +
        (hasUnknown ? ", " + Text(summary["unknown"]) + " unknown" : "") + ", " +
        Text(summary["others"]) + " of others.";
    const std::string text = m_style.Bold(names) + Fold(lines, names.size(), 0);
    if (summary["library"] == 0) {
        constexpr char kNone[] =
            "No line of the library was found: its lines end with (LogWarnFun) "
            "or (LogErrorFun).";
        return text + Fold(kNone, 0, 0);
    }
    using Fact = std::array<const char*, 3>;
    std::string before = "Before each line:";
    for (const auto& [field, ifSo, ifNot] : {
             Fact{"hasTime", " a time,", " no time,"},
             {"hasProcess", " a process,", " no process,"},
             {"hasThread", " a thread.",
              " no thread. So a failure may be listed under another operation."},
             {"unknown",
              " The unknown lines end like the library's: they are damaged, or of another version.",
              ""},
             {"hasWholeSeconds",
              " The times have whole seconds: each length is wrong by up to a second.", ""},
         }) {
        before += summary[field] != 0 && summary[field] != false ? ifSo : ifNot;
    }
    return text + Fold(before, 0, 0) + Figures(summary);
}

}  // namespace lab::explain
