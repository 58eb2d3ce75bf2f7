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

std::string HumanOutput::Head(const Json& object, const std::string& kind) const {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%12.1f  %-9s  %-10s ", object["t"].get<double>(),
                  object["thread"].get<std::string>().c_str(), kind.c_str());
    return m_style.Dim(text.data());
}

std::string HumanOutput::CommandLine(const std::string& text) const {
    return m_style.Bold("> " + Printable(text)) + "\n";
}

std::string HumanOutput::Lines(const Json& object) const {
    const std::string kind = object["kind"];
    if (kind == "event") {
        const int event = object["event"];
        const auto* const route = simulator::RouteByNumber(object["route"]);
        return Head(object, "EVENT " + std::to_string(event)) +
               m_style.Cyan(EventText(event) + "  (" +
                            (route == nullptr ? "?" : std::string(route->title)) + ")") +
               "\n" + Continued("number  " + Field(object, "number"));
    }
    if (kind == "phone") {
        if (!object["read"].get<bool>()) {
            return Head(object, "phone") +
                   m_style.Yellow("reads nothing: " + Field(object, "problem")) + "\n";
        }
        std::string lines = Head(object, "phone") + m_style.Green("reads " + Field(object, "uri")) +
                            "\n" + Continued("type    " + Field(object, "type"));
        for (const char* name : {"version", "mac", "number", "model", "payload"}) {
            if (object.contains(name)) {
                std::string label = name;
                label.resize(8, ' ');
                lines += Continued(label + Field(object, name));
            }
        }
        return lines;
    }
    if (kind == "result") {
        const bool done = Worked(object["result"]);
        std::string text = Field(object, "operation") + "  " +
                           (done ? m_style.Green("ok") : m_style.Red("FAILED"));
        for (const char* name : {"manager", "number", "url"}) {
            if (object.contains(name)) {
                text += std::string("  ") + name + " " + Field(object, name);
            }
        }
        return Head(object, "result") + text + "\n";
    }
    if (kind == "violation") {
        const bool hasLine = object["line"] != 0;
        return Head(object, "VIOLATION") +
               m_style.Red(Field(object, "file") + (hasLine ? ":" + Field(object, "line") : "") +
                           ": " + Field(object, "command") + ": expected " +
                           Field(object, "expected") + "; seen " + Field(object, "seen")) +
               "\n";
    }
    if (kind == "check") {
        JudgedFigures judged{};
        for (std::size_t i = 0; i < kJudgedKinds; ++i) {
            judged[i] = object[kJudged[i].name];
        }
        const bool good = object["violations"] == 0;
        return "\njudged: " + Text(judged) + ".  " +
               (good ? m_style.Green("No violation.")
                     : m_style.Red("Violations: " + Field(object, "violations") + ".")) +
               "\n";
    }
    if (kind == "log" && m_log) {
        const bool error = object["level"] == kErrorLevel;
        const std::string line = Field(object, "line");
        return Head(object, error ? "log error" : "log warn") +
               (error ? m_style.Yellow(line) : line) + "\n";
    }
    if (kind == "bus" && m_bus) {
        std::string text = Field(object, "meaning");
        if (object.contains("error")) {
            text += m_style.Red("  error " + Field(object, "error"));
        }
        const std::string bytes = Spaced(Field(object, "bytes"));
        return Head(object, "bus " + Field(object, "op")) + text + "\n" +
               (bytes.empty() ? "" : Continued(m_style.Dim(bytes)));
    }
    if (kind == "sleep" && m_bus) {
        return Head(object, "sleep") + Field(object, "ms") + " ms\n";
    }
    return {};
}

}  // namespace lab
