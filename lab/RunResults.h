// The results of a run's operations: records each one and counts the failures that the script did
// not expect.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <string>
#include <utility>

#include "lab/Pc.h"
#include "lab/Recorder.h"
#include "lab/Script.h"

namespace lab {

/// Used by the script's thread and the hosts' threads; each has its own last result.
class RunResults {
  public:
    RunResults(Pc& pc, Recorder& recorder) : m_pc(pc), m_recorder(recorder) {}

    /// Records a result together with the fields of `more`, and counts it as a failure unless it
    /// has worked.
    void Record(const std::string& operation, const Json& result, const Json& more);

    /// Compares the last result with what the script expects. A failure that was expected is not
    /// counted. Returns what happened instead; empty when the expectation was met.
    std::string CheckLast(bool expectedSuccess);

    /// Records a result that is not counted.
    void RecordOnly(const std::string& operation, const Json& result,
                    const Json& more = Json::object());

    /// Counts a failed expectation and writes one line about it to standard error.
    void FailExpectation(const std::string& problem);

    /// The calling thread is this host's from now on; 0 is the script itself.
    static void UseHost(unsigned host);

    bool LastSucceeded() const { return m_last[CurrentHost()].succeeded; }
    /// The results that the calling thread's host has recorded.
    unsigned Count() const { return m_last[CurrentHost()].count; }
    unsigned Failures() const { return m_failures; }

  private:
    struct LastResult {
        bool succeeded = true;
        bool counted = false;  // it is one of m_failures
        std::string operation;
        unsigned count = 0;
    };
    static unsigned CurrentHost();

    Pc& m_pc;
    Recorder& m_recorder;
    std::atomic<unsigned> m_failures{0};
    std::array<LastResult, kMostHosts + 1> m_last;  // each used by its host's thread alone
};

}  // namespace lab
