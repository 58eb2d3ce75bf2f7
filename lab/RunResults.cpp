// The results of a run's operations. Writes to the recorder and, for a failed expectation, to
// standard error.
#include "lab/RunResults.h"

#include <utility>

#include "lab/Terminal.h"

namespace lab {

void RunResults::AddObject(const std::string& operation, Json result, const Json& more) {
    Json object;
    object["kind"] = "result";
    object["operation"] = operation;
    object["result"] = std::move(result);
    object.update(more);
    m_recorder.Add(m_stage.Thread(), m_stage.Now(), std::move(object));
}

void RunResults::RecordAndCount(const std::string& operation, bool succeeded, Json result,
                                const Json& more) {
    AddObject(operation, std::move(result), more);
    m_lastSucceeded = succeeded;
    m_lastCounted = !succeeded;
    m_lastOperation = operation;
    m_failures += succeeded ? 0 : 1;
}

void RunResults::Record(const std::string& operation, int result, const Json& more) {
    RecordAndCount(operation, result == 0, Json(result), more);
}

void RunResults::Record(const std::string& operation, bool result, const Json& more) {
    RecordAndCount(operation, result, Json(result), more);
}

std::string RunResults::CheckLast(bool expectedSuccess) {
    if (m_lastSucceeded == expectedSuccess) {
        m_failures -= m_lastCounted ? 1 : 0;
        m_lastCounted = false;
        return "";
    }
    return m_lastOperation.empty() ? "no operation has run yet"
                                   : m_lastOperation + (m_lastSucceeded ? " worked" : " failed");
}

void RunResults::RecordExpectedEvent(int event, bool came) {
    AddObject("expect event " + std::to_string(event), Json(came), Json::object());
}

void RunResults::RecordFailedExpectation(const std::string& file, std::size_t line,
                                         const std::string& text, const std::string& problem) {
    ++m_failures;
    PrintError(file + ":" + std::to_string(line) + ": " + text + ": " + problem);
}

}  // namespace lab
