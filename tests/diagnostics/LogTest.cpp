// The line that reaches the logger, and the texts that never do.
#include "diagnostics/Log.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/LogRecorder.h"

namespace {

using testing_support::LogRecorder;
using Texts = std::vector<std::string>;

/// Level and line, as the logger got them.
Texts Take(LogRecorder& log) {
    Texts lines;
    for (const LogRecorder::Line& line : log.Lines()) {
        lines.push_back(std::to_string(line.level) + ' ' + line.raw);
    }
    log.TakeUnannounced();
    log.Clear();
    return lines;
}

TEST(Log, HandsTextAndOriginToTheLogger) {
    LogRecorder log;
    LogErrorFun("ReadRandNum failed %d", 1);
    LogWarnFun("%s %02X%%", "a", 0xBU);
    LogWarnFun("");
    LogErrorFun("%s", "%d is text here");
    LogWithOrigin(LOG_MESSAGE_LEVEL_ERROR, "NfcProxy::BtConnect", "as it is: %d");
    EXPECT_EQ(Take(log),
              (Texts{"4 ReadRandNum failed 1(LogErrorFun)", "3 a 0B%(LogWarnFun)", "3 (LogWarnFun)",
                     "4 %d is text here(LogErrorFun)", "4 as it is: %d(NfcProxy::BtConnect)"}));
}

TEST(Log, DropsATextThatDoesNotFit) {
    const std::string longest(511, 'x');
    const std::string plain = longest + "x";
    const std::string huge(5000, 'x');
    LogRecorder log;
    for (const auto front : {&LogWarnFun, &LogErrorFun}) {
        front("%s", plain.c_str());
        front(plain.c_str());
        front("%s", huge.c_str());
        EXPECT_EQ(Take(log), Texts{});
        front("%s", longest.c_str());
        const bool warn = front == &LogWarnFun;
        EXPECT_EQ(Take(log), Texts{(warn ? "3 " : "4 ") + longest +
                                   (warn ? "(LogWarnFun)" : "(LogErrorFun)")});
    }
}

}  // namespace
