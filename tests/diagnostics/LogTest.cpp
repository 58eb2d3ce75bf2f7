// The line that reaches the logger, and the texts that never do.
#include "diagnostics/Log.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/services/TraceLog.h"

namespace {

using Texts = std::vector<std::string>;

/// Level and line, as the logger got them.
Texts g_lines;
void Take(int level, const std::wstring& line, void* /*context*/) {
    g_lines.push_back(std::to_string(level) + ' ' + std::string(line.begin(), line.end()));
}

TEST(Log, HandsTextAndOriginToTheLoggerAndDropsATextThatDoesNotFit) {
    TraceLogger::SetSink(&Take, nullptr);
    LogErrorFun("ReadRandNum failed %d", 1);
    LogWarnFun("%s %02X%%", "a", 0xBU);
    LogErrorFun("%s", "%d is text here");
    LogWithOrigin(LOG_MESSAGE_LEVEL_ERROR, "NfcProxy::BtConnect", "as it is: %d");
    EXPECT_EQ(std::exchange(g_lines, {}),
              (Texts{"4 ReadRandNum failed 1(LogErrorFun)", "3 a 0B%(LogWarnFun)",
                     "4 %d is text here(LogErrorFun)", "4 as it is: %d(NfcProxy::BtConnect)"}));
    const std::string longest(511, 'x');
    const std::string tooLong = longest + "x";
    for (const auto front : {&LogWarnFun, &LogErrorFun}) {
        front("");
        front("%s", tooLong.c_str());
        front(tooLong.c_str());
        front("%s", std::string(5000, 'x').c_str());
        front("%s", longest.c_str());
    }
    EXPECT_EQ(std::exchange(g_lines, {}),
              (Texts{"3 (LogWarnFun)", "3 " + longest + "(LogWarnFun)", "4 (LogErrorFun)",
                     "4 " + longest + "(LogErrorFun)"}));
}

}  // namespace
