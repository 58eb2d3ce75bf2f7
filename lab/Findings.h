// What the judge of a run has found wrong, and how much it has judged.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "lab/Recorder.h"
#include "lab/Script.h"

namespace lab {

/// How much was judged. Zero everywhere: the run proves nothing.
struct JudgedFigures {
    std::size_t visits = 0;   ///< phones whose events were compared
    std::size_t inTime = 0;   ///< of them, those whose times were judged too
    std::size_t phones = 0;   ///< phones whose reading was compared
    std::size_t numbers = 0;  ///< numbers on the tag, at a step
    std::size_t fields = 0;   ///< URL, address and model on the tag, at a step
    std::size_t shown = 0;    ///< numbers that the listener was given
};

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
        Json object;
        object["kind"] = "violation";
        object["file"] = m_file;
        object["line"] = command.line;
        object["command"] = command.text;
        object["expected"] = expected;
        object["seen"] = seen;
        m_waiting.push_back(std::move(object));
    }

    /// Violations that nobody has taken yet.
    std::vector<Json> Take() { return std::exchange(m_waiting, {}); }
    std::size_t Violations() const { return m_known.size(); }

    JudgedFigures judged;

  private:
    std::string m_file;
    std::set<std::pair<std::size_t, std::string>> m_known;
    std::vector<Json> m_waiting;
};

}  // namespace lab
