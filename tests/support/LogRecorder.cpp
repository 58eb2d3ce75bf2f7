// The sink of the stand-in logger, for tests.
#include "tests/support/LogRecorder.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/TraceLog.h"

namespace testing_support {

namespace {

std::string WithoutOrigin(const std::string& raw) {
    const std::size_t open = raw.rfind('(');
    return raw.empty() || raw.back() != ')' || open == std::string::npos ? raw
                                                                         : raw.substr(0, open);
}

}  // namespace

LogRecorder::LogRecorder() {
    TraceLogger::SetSink(&LogRecorder::Take, this);
}

LogRecorder::~LogRecorder() {
    TraceLogger::SetSink(nullptr, nullptr);
    Check();
}

void LogRecorder::Announce(const std::string& text) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_announced.push_back(text);
}

void LogRecorder::OnLine(std::function<void(const std::string& text)> action) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_onLine = std::move(action);
}

std::vector<LogRecorder::Line> LogRecorder::Lines() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_lines;
}

std::vector<std::string> LogRecorder::Texts() const {
    std::vector<std::string> texts;
    for (const Line& line : Lines()) {
        texts.push_back(line.text);
    }
    return texts;
}

std::size_t LogRecorder::Count(const std::string& text) const {
    const std::vector<std::string> texts = Texts();
    return static_cast<std::size_t>(std::count(texts.begin(), texts.end(), text));
}

void LogRecorder::Clear() {
    Check();
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_lines.clear();
}

std::vector<std::string> LogRecorder::TakeUnannounced() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return std::move(m_unannounced);
}

void LogRecorder::Check() {
    for (const std::string& text : TakeUnannounced()) {
        ADD_FAILURE() << "unannounced error line: " << text;
    }
}

void LogRecorder::Take(int level, const std::wstring& line, void* context) {
    auto& self = *static_cast<LogRecorder*>(context);
    std::string raw(line.size(), '\0');  // widened byte by byte by the front end
    std::transform(line.begin(), line.end(), raw.begin(),
                   [](wchar_t c) { return static_cast<char>(c); });
    const std::string text = WithoutOrigin(raw);
    std::function<void(const std::string& text)> onLine;
    {
        const std::lock_guard<std::mutex> guard(self.m_mutex);
        self.m_lines.push_back({level, text, raw});
        const bool expected =
            level != LOG_MESSAGE_LEVEL_ERROR ||
            std::any_of(self.m_announced.begin(), self.m_announced.end(),
                        [&](const std::string& prefix) { return text.rfind(prefix, 0) == 0; });
        if (!expected) {
            self.m_unannounced.push_back(text);
        }
        onLine = self.m_onLine;
    }
    if (onLine) {
        onLine(text);
    }
}

}  // namespace testing_support
