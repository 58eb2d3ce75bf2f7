// What the operations of a run came to, and how many of them nobody wanted to fail.
#pragma once

#include <cstddef>
#include <string>

#include "lab/Recorder.h"
#include "lab/Stage.h"

namespace lab {

/// Used by the thread that plays.
class Outcomes {
  public:
    Outcomes(Stage& stage, Recorder& recorder) : m_stage(stage), m_recorder(recorder) {}

    /// Records a result, `more` beside it, and counts it as failed unless it is done.
    void Told(const std::string& operation, int result, const Json& more = Json::object());
    void Told(const std::string& operation, bool result, const Json& more = Json::object());

    /// Whether the last result was as the script expected; a failure that was expected is no longer
    /// counted. The text says what came instead, and is empty when nothing did.
    std::string Expect(bool done);

    /// An expected event came or not. Not counted: see Missed.
    void ToldEvent(int event, bool came);

    /// One line on standard error for a line of the script whose expectation failed. Counted.
    void Missed(const std::string& file, std::size_t line, const std::string& text,
                const std::string& problem);

    bool LastDone() const { return m_lastDone; }
    unsigned Failures() const { return m_failures; }

  private:
    void Told(const std::string& operation, bool done, Json result, const Json& more);
    void Record(const std::string& operation, Json result, const Json& more);

    Stage& m_stage;
    Recorder& m_recorder;
    unsigned m_failures = 0;
    bool m_lastDone = true;
    bool m_lastExcused = true;  // the last result failed and counts as expected
    std::string m_lastOperation;
};

}  // namespace lab
