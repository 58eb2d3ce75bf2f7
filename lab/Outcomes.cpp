#include "lab/Outcomes.h"

#include <cstdio>
#include <utility>

namespace lab {

void Outcomes::Record(const std::string& operation, Json result, const Json& more) {
    Json object;
    object["kind"] = "result";
    object["operation"] = operation;
    object["result"] = std::move(result);
    object.update(more);
    m_recorder.Add(m_stage.Thread(), m_stage.Now(), std::move(object));
}

void Outcomes::Told(const std::string& operation, bool done, Json result, const Json& more) {
    Record(operation, std::move(result), more);
    m_lastDone = done;
    m_lastExcused = done;
    m_lastOperation = operation;
    m_failures += done ? 0 : 1;
}

void Outcomes::Told(const std::string& operation, int result, const Json& more) {
    Told(operation, result == 0, Json(result), more);
}

void Outcomes::Told(const std::string& operation, bool result, const Json& more) {
    Told(operation, result, Json(result), more);
}

std::string Outcomes::Expect(bool done) {
    if (m_lastDone == done) {
        m_failures -= m_lastExcused ? 0 : 1;
        m_lastExcused = true;
        return "";
    }
    return m_lastOperation.empty() ? "nothing has been asked yet"
                                   : m_lastOperation + (m_lastDone ? " worked" : " failed");
}

void Outcomes::ToldEvent(int event, bool came) {
    Record("expect event " + std::to_string(event), Json(came), Json::object());
}

void Outcomes::Missed(const std::string& file, std::size_t line, const std::string& text,
                      const std::string& problem) {
    ++m_failures;
    std::fflush(stdout);
    std::fprintf(stderr, "%s:%zu: %s: %s\n", file.c_str(), line, text.c_str(), problem.c_str());
}

}  // namespace lab
