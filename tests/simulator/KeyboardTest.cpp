// The keyboard's microcontroller: how strict it is with pages, and what it answers.
#include <gtest/gtest.h>

#include <algorithm>

#include "simulator/KeyboardMcu.h"

namespace simulator {
namespace {

Bytes Report(std::uint8_t pages, std::uint8_t page, std::uint8_t length, const Bytes& payload) {
    Bytes report = {kReportId, pages, page, length};
    report.insert(report.end(), payload.begin(), payload.end());
    report.resize(kReportSize);
    return report;
}

Bytes Full(std::uint8_t pages, std::uint8_t page) {
    Bytes payload(kReportPayload, page);
    if (page == 1) {
        payload[0] = kFrameMark;
        payload[1] = kFrameWrite;
    }
    return Report(pages, page, kReportSize, payload);
}

TEST(KeyboardMcu, PutsPagesTogetherAndRecoversFromABrokenFrame) {
    KeyboardMcu mcu;
    mcu.Output(Full(3, 1));
    mcu.Output(Full(3, 2));
    EXPECT_TRUE(mcu.MidFrame());
    mcu.Output(Full(2, 1));  // the PC began anew
    EXPECT_EQ(mcu.Refusals().size(), 1U);
    Bytes last = Report(2, 2, 5, {0xAB});
    last.back() = 1;
    mcu.Output(last);
    EXPECT_EQ(mcu.DirtyTails(), 1U);
    Bytes expected(kReportPayload - 2, 1);
    expected.push_back(0xAB);
    EXPECT_EQ(mcu.Image(), expected);
    EXPECT_EQ(mcu.Memory(kFirstImageRegister + 58, 2), (Bytes{0xAB, 0}));
    EXPECT_FALSE(mcu.MidFrame());
}

TEST(KeyboardMcu, RefusesWhatIsNotQuiteRight) {
    Bytes wrongId = Full(1, 1);
    wrongId[0] = 4;
    const struct {
        const char* what;
        std::vector<Bytes> reports;
    } cases[] = {
        {"bytes", {Bytes(63)}},
        {"id", {wrongId}},
        {"page 2 where page 1", {Full(2, 2)}},
        {"page 0 where page 1", {Full(2, 0)}},
        {"page 1 of 0", {Full(0, 1)}},
        {"page 3 where page 2", {Full(3, 1), Full(3, 3)}},
        {"page 2 of 4 in a frame of 3", {Full(3, 1), Full(4, 2)}},
        {"length byte 4", {Report(1, 1, 4, {})}},
        {"length byte 65", {Report(1, 1, 65, {kFrameMark, 0})}},
        {"length byte 63", {Report(2, 1, 63, {kFrameMark, 0})}},
        {"has no head", {Report(1, 1, 5, {kFrameMark})}},
        {"first byte", {Report(1, 1, 6, {0x2F, 0})}},
        {"direction", {Report(1, 1, 6, {kFrameMark, 2})}},
        {"request has 5", {Report(1, 1, 9, {kFrameMark, 1, 73, 0, 0})}},
        {"behind the memory", {Report(1, 1, 8, {kFrameMark, 1, 0, 0x10})}},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.what);
        KeyboardMcu mcu;
        for (const Bytes& report : one.reports) {
            mcu.Output(report);
        }
        ASSERT_EQ(mcu.Refusals().size(), 1U);
        EXPECT_NE(mcu.Refusals()[0].find(one.what), std::string::npos) << mcu.Refusals()[0];
        EXPECT_EQ(mcu.ImagesStored() + mcu.NumbersAsked(), 0U);
        EXPECT_FALSE(mcu.MidFrame());
    }
}

TEST(KeyboardMcu, AnswersWithTheBytesAtTheRegisterAndReportsPhones) {
    KeyboardMcu mcu;
    std::vector<std::pair<Micros, Bytes>> sent;
    mcu.OnSend([&](Micros delay, const Bytes& report) { sent.emplace_back(delay, report); });
    Bytes number(kNumberSize);
    for (std::size_t i = 0; i < number.size(); ++i) {
        number[i] = static_cast<std::uint8_t>(i + 1);
    }
    mcu.SetMemory(0x0149, number);
    mcu.Output(Report(1, 1, 8, {kFrameMark, kFrameRequest, 0x49, 0x01}));
    mcu.Radio().Enter(0);
    mcu.Radio().Leave(0);
    ASSERT_EQ(sent.size(), 3U);
    EXPECT_EQ(sent[0].first, kDefaultAnswerLatency);
    EXPECT_EQ(sent[0].second.size(), kReportSize);
    EXPECT_EQ(sent[0].second[5], kTypeNumber);
    EXPECT_TRUE(std::equal(number.begin(), number.end(), sent[0].second.begin() + 6));
    EXPECT_EQ(Bytes(sent[1].second.begin() + 5, sent[1].second.begin() + 8),
              (Bytes{2, 0x6E, 0xE6}));
    EXPECT_EQ(Bytes(sent[2].second.begin() + 5, sent[2].second.begin() + 8),
              (Bytes{2, 0xE6, 0x6E}));
}

}  // namespace
}  // namespace simulator
