// The sink of the stand-in logger, for tests.
#include "tests/support/LogRecorder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <utility>

#include "platform/services/TraceLog.h"
#include "tests/support/SeededRuns.h"

namespace testing_support {

namespace {

// One for each hash of a line. Made before any child process.
using NotedLines = std::array<std::atomic<bool>, 1U << 16>;
NotedLines& g_noted = Shared<NotedLines>();

}  // namespace

void NoteLine(int level, std::string line) {
    const char* const path = std::getenv("TAGPORT_LINES");
    std::string key = std::to_string(level);
    std::unique_copy(line.begin(), line.end(), std::back_inserter(key),
                     [](unsigned char a, unsigned char b) { return isxdigit(a) && isxdigit(b); });
    if (path == nullptr || g_noted[std::hash<std::string>()(key) % g_noted.size()].exchange(true)) {
        return;
    }
    std::replace(line.begin(), line.end(), '\n', ' ');
    if (std::FILE* const file = std::fopen(path, "a")) {
        std::fprintf(file, "%d %s\n", level, line.c_str());
        std::fclose(file);
    }
}

std::string Joined(const Texts& texts) {
    std::string line;
    for (const std::string& text : texts) {
        line += (line.empty() ? "" : ", ") + text;
    }
    return line;
}

LogRecorder::LogRecorder() {
    TraceLogger::SetSink(&LogRecorder::Take, this);
}

LogRecorder::~LogRecorder() {
    TraceLogger::SetSink(nullptr, nullptr);
    Clear();
}

void LogRecorder::OnLine(std::function<void(const std::string& text)> action) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_onLine = std::move(action);
}

std::vector<LogRecorder::Line> LogRecorder::Lines() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_lines;
}

Texts LogRecorder::TextsSoFar() const {
    Texts texts;
    for (const Line& line : Lines()) {
        texts.push_back(line.text);
    }
    return texts;
}

std::size_t LogRecorder::Count(const std::string& text) const {
    const Texts texts = TextsSoFar();
    return static_cast<std::size_t>(std::count(texts.begin(), texts.end(), text));
}

void LogRecorder::Clear() {
    EXPECT_EQ(Joined(TakeUnannounced()), "") << "unannounced error lines";
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_lines.clear();
}

Texts LogRecorder::TakeUnannounced() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return std::exchange(m_unannounced, {});
}

Texts LogRecorder::TakeMarked() {
    TakeUnannounced();
    const std::lock_guard<std::mutex> guard(m_mutex);
    Texts marked;
    for (const Line& line : std::exchange(m_lines, {})) {
        marked.push_back((line.level == LOG_MESSAGE_LEVEL_ERROR ? "E " : "W ") + line.text);
    }
    return marked;
}

void LogRecorder::Take(int level, const std::wstring& line, void* context) {
    auto& self = *static_cast<LogRecorder*>(context);
    std::string text(line.begin(), line.end());  // widened byte by byte by the front end
    NoteLine(level, text);
    if (!text.empty() && text.back() == ')') {
        text.resize(text.rfind('('));
    }
    std::function<void(const std::string& text)> onLine;
    {
        const std::lock_guard<std::mutex> guard(self.m_mutex);
        self.m_lines.push_back({level, text});
        const auto begins = [&](const std::string& start) { return text.rfind(start, 0) == 0; };
        if (level == LOG_MESSAGE_LEVEL_ERROR &&
            std::none_of(self.m_announced.begin(), self.m_announced.end(), begins)) {
            self.m_unannounced.push_back(text);
        }
        onLine = self.m_onLine;
    }
    if (onLine) {
        onLine(text);
    }
}

}  // namespace testing_support
