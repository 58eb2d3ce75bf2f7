// The results of a run's operations. Writes to the recorder and, for a failed expectation, to
// standard error.
#include "lab/RunResults.h"

#include <utility>

#include "lab/Terminal.h"

namespace lab {

namespace {

thread_local unsigned g_currentHost = 0;

}  // namespace

void RunResults::UseHost(unsigned host) {
    g_currentHost = host;
}

unsigned RunResults::CurrentHost() {
    return g_currentHost;
}

void RunResults::RecordOnly(const std::string& operation, const Json& result, const Json& more) {
    Json object{{"kind", "result"}, {"operation", operation}, {"result", result}};
    object.update(more);
    m_recorder.Add(m_pc.Thread(), m_pc.Now(), std::move(object));
}

void RunResults::Record(const std::string& operation, const Json& result, const Json& more) {
    RecordOnly(operation, result, more);
    LastResult& last = m_last[g_currentHost];
    last = {Worked(result), !Worked(result), operation, last.count + 1};
    m_failures += last.counted ? 1 : 0;
}

std::string RunResults::CheckLast(bool expectedSuccess) {
    LastResult& last = m_last[g_currentHost];
    if (last.succeeded == expectedSuccess) {
        m_failures -= last.counted ? 1 : 0;
        last.counted = false;
        return "";
    }
    return last.operation.empty() ? "no operation has run yet"
                                  : last.operation + (last.succeeded ? " worked" : " failed");
}

void RunResults::FailExpectation(const std::string& problem) {
    ++m_failures;
    PrintError(problem);
}

}  // namespace lab
