// What the judge of a run has found wrong, and how much it has judged.
#pragma once

#include <array>
#include <cstddef>
#include <cstdio>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "lab/Recorder.h"
#include "lab/Script.h"
#include "lab/Words.h"

namespace lab {

/// "732.1 ms".
inline std::string Milliseconds(double time) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f ms", time);
    return text.data();
}

/// What is counted where it is judged.
enum JudgedKind { kVisits, kTimedVisits, kReadings, kNumbers, kFields, kShown, kJudgedKinds };
constexpr struct {
    const char* name;  ///< in an object of the run
    const char* unit;  ///< after the number, as for one; empty: none
    const char* text;  ///< after the unit
} kJudged[kJudgedKinds] = {{"visits", "visit", ""},
                           {"timed-visits", "", " of them with their times"},
                           {"readings", "reading", " of phones"},
                           {"numbers", "number", " on the tag"},
                           {"fields", "time", " its other fields"},
                           {"shown", "number", " in events"}};

/// Zero everywhere: the run proves nothing.
using JudgedFigures = std::array<std::size_t, kJudgedKinds>;

inline std::string Text(const JudgedFigures& figures) {
    std::string text;
    for (std::size_t kind = 0; kind < kJudgedKinds; ++kind) {
        const auto& [name, unit, rest] = kJudged[kind];
        text += (kind == 0 ? "" : ", ") +
                (*unit == 0 ? std::to_string(figures[kind]) : Counted(figures[kind], unit)) + rest;
    }
    return text;
}

/// Any thread, one at a time.
class Findings {
  public:
    explicit Findings(std::string file) : m_file(std::move(file)) {}

    /// Expect(false, ...) is a violation that belongs to this command of the script. The same
    /// expectation of a command is reported once.
    void Expect(bool condition, const Command& command, const std::string& expected,
                const std::string& seen) {
        if (condition || !m_known.insert({command.line, expected}).second) {
            return;
        }
        m_waiting.push_back({{"kind", "violation"},
                             {"file", m_file},
                             {"line", command.line},
                             {"command", command.text},
                             {"expected", expected},
                             {"seen", seen}});
    }

    /// Violations that nobody has taken yet.
    std::vector<Json> Take() { return std::exchange(m_waiting, {}); }
    std::size_t Violations() const { return m_known.size(); }

    JudgedFigures judged{};

  private:
    std::string m_file;
    std::set<std::pair<std::size_t, std::string>> m_known;
    std::vector<Json> m_waiting;
};

}  // namespace lab
