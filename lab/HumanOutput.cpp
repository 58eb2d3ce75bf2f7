// A run's objects as lines for people. Formats only; prints nothing.
#include "lab/HumanOutput.h"

#include <array>
#include <cstdio>

#include "lab/Violations.h"
#include "lab/Words.h"
#include "simulator/PcKinds.h"

namespace lab {

namespace {

constexpr std::size_t kShownDigits = 48;  // of a frame; its meaning is printed too
constexpr int kErrorLevel = 4;
constexpr int kIndent = 36;  // where the text of a line begins

std::string EventText(int event) {
    return event == 1   ? "the phone has left"
           : event == 3 ? "a phone entered the field"
           : event == 4
               ? "the tag's microcontroller started, or an unknown chip raised an interrupt"
               : "an unknown event";
}

std::string Field(const Json& object, const char* name) {
    const auto found = object.find(name);
    if (found == object.end()) {
        return {};
    }
    return found->is_string() ? Printable(found->get_ref<const std::string&>()) : found->dump();
}

std::string Spaced(const std::string& digits) {
    std::string text;
    for (std::size_t at = 0; at < digits.size() && at < kShownDigits; at += 2) {
        text += (at == 0 ? "" : " ") + digits.substr(at, 2);
    }
    return digits.size() > kShownDigits ? text + " .." : text;
}

std::string Continued(const std::string& text) {
    return std::string(kIndent, ' ') + text + "\n";
}

}  // namespace

std::string TimeText(const Json& object) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f", object["t"].get<double>());
    return text.data();
}

std::string LineHead(const std::string& time, const std::string& thread, const std::string& label) {
    std::array<char, 64> head{};
    std::snprintf(head.data(), head.size(), "%12s  %-9s  %-10s ", time.c_str(), thread.c_str(),
                  label.c_str());
    return head.data();
}

std::string HumanOutput::CommandLine(const std::string& text) const {
    return m_style.Bold("> " + Printable(text)) + "\n";
}

std::string HumanOutput::Lines(const Json& object) const {
    const std::string kind = object["kind"];
    const auto line = [&](const std::string& label, const std::string& text) {
        return m_style.Dim(LineHead(TimeText(object), object["thread"], label)) + text + "\n";
    };
    const auto field = [&](const char* name) { return Field(object, name); };
    if (kind == "event") {
        const int event = object["event"];
        const auto* const route = simulator::RouteByNumber(object["route"]);
        const std::string title(route == nullptr ? "?" : route->title);
        return line("EVENT " + std::to_string(event),
                    m_style.Cyan(EventText(event) + "  (" + title + ")")) +
               Continued("number  " + field("number"));
    }
    if (kind == "phone" && !object["read"].get<bool>()) {
        return line("phone", m_style.Yellow("reads nothing: " + field("problem")));
    }
    if (kind == "phone") {
        std::string lines = line("phone", m_style.Green("reads " + field("uri")));
        for (std::string name : {"type", "version", "mac", "number", "model", "payload"}) {
            if (object.contains(name)) {
                const std::string value = field(name.c_str());
                name.resize(8, ' ');
                lines += Continued(name + value);
            }
        }
        return lines;
    }
    if (kind == "result") {
        std::string text = field("operation") + "  " +
                           (Worked(object["result"]) ? m_style.Green("ok") : m_style.Red("FAILED"));
        for (const char* name : {"manager", "number", "url"}) {
            text += object.contains(name) ? std::string("  ") + name + " " + field(name) : "";
        }
        return line("result", text);
    }
    if (kind == "violation") {
        const std::string place = object["line"] == 0 ? "" : ":" + field("line");
        return line("VIOLATION",
                    m_style.Red(field("file") + place + ": " + field("command") + ": expected " +
                                field("expected") + "; seen " + field("seen")));
    }
    if (kind == "check") {
        JudgedFigures judged{};
        for (std::size_t i = 0; i < kJudgedKinds; ++i) {
            judged[i] = object[kJudged[i].name];
        }
        return "\njudged: " + Text(judged) + ".  " +
               (object["violations"] == 0
                    ? m_style.Green("No violation.")
                    : m_style.Red("Violations: " + field("violations") + ".")) +
               "\n";
    }
    if (kind == "log" && m_log) {
        const bool error = object["level"] == kErrorLevel;
        return error ? line("log error", m_style.Yellow(field("line")))
                     : line("log warn", field("line"));
    }
    if (kind == "bus" && m_bus) {
        const std::string error =
            object.contains("error") ? m_style.Red("  error " + field("error")) : "";
        const std::string bytes = Spaced(field("bytes"));
        return line("bus " + field("op"), field("meaning") + error) +
               (bytes.empty() ? "" : Continued(m_style.Dim(bytes)));
    }
    return kind == "sleep" && m_bus ? line("sleep", field("ms") + " ms") : "";
}

}  // namespace lab
