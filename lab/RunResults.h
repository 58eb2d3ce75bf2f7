// The results of a run's operations: records each one and counts the failures that the script did
// not expect.
#pragma once

#include <cstddef>
#include <string>

#include "lab/Recorder.h"
#include "lab/Stage.h"

namespace lab {

/// Used by the script's thread only.
class RunResults {
  public:
    RunResults(Stage& stage, Recorder& recorder) : m_stage(stage), m_recorder(recorder) {}

    /// Records a result together with the fields of `more`, and counts it as a failure unless it is
    /// 0 or true.
    void Record(const std::string& operation, int result, const Json& more = Json::object());
    void Record(const std::string& operation, bool result, const Json& more = Json::object());

    /// Compares the last result with what the script expects. A failure that was expected is not
    /// counted. Returns what happened instead; empty when the expectation was met.
    std::string CheckLast(bool expectedSuccess);

    /// Records whether an expected event came. Does not count: see RecordFailedExpectation.
    void RecordExpectedEvent(int event, bool came);

    /// Counts a failed expectation and writes one line about it to standard error: file, line, the
    /// script's text and the problem.
    void RecordFailedExpectation(const std::string& file, std::size_t line, const std::string& text,
                                 const std::string& problem);

    bool LastSucceeded() const { return m_lastSucceeded; }
    unsigned Failures() const { return m_failures; }

  private:
    void RecordAndCount(const std::string& operation, bool succeeded, Json result,
                        const Json& more);
    void AddObject(const std::string& operation, Json result, const Json& more);

    Stage& m_stage;
    Recorder& m_recorder;
    unsigned m_failures = 0;
    bool m_lastSucceeded = true;
    bool m_lastCounted = false;  // the last result is one of m_failures
    std::string m_lastOperation;
};

}  // namespace lab
