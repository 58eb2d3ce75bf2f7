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

void RunResults::RecordOnly(const std::string& operation, Json result, const Json& more) {
    Json object{{"kind", "result"}, {"operation", operation}, {"result", std::move(result)}};
    object.update(more);
    m_recorder.Add(m_pc.Thread(), m_pc.Now(), std::move(object));
}

void RunResults::Record(const std::string& operation, bool succeeded, Json result,
                        const Json& more) {
    RecordOnly(operation, std::move(result), more);
    LastResult& last = m_last[g_currentHost];
    last = {succeeded, !succeeded, operation, last.count + 1};
    m_failures += succeeded ? 0 : 1;
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

void RunResults::RecordExpectedEvent(int event, bool came) {
    RecordOnly("expect event " + std::to_string(event), Json(came), Json::object());
}

void RunResults::RecordFailedExpectation(const std::string& file, std::size_t line,
                                         const std::string& text, const std::string& problem) {
    ++m_failures;
    PrintError(file + ":" + std::to_string(line) + ": " + text + ": " + problem);
}

}  // namespace lab
