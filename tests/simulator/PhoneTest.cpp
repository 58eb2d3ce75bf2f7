// The phone: what it reads of a tag, and what it says when it can't.
#include <gtest/gtest.h>

#include "simulator/Chip.h"
#include "simulator/Phone.h"
#include "tests/simulator/TagBytes.h"

namespace simulator {
namespace {

// Runs a visit that starts at 0; the time at which the phone had gone.
Micros Visit(TagRadio& tag, Micros stay, std::vector<PhoneReport>& reports,
             const std::function<void(Micros)>& meanwhile = {}) {
    Phone phone(tag, stay, [&](const PhoneReport& report) { reports.push_back(report); });
    Micros now = 0;
    while (const auto next = phone.Step(now)) {
        EXPECT_GT(*next, now);
        now = *next;
        if (meanwhile) {
            meanwhile(now);
        }
    }
    return now;
}

TEST(Phone, ReadsTheMessageByteForByteAndStaysInTouch) {
    const auto chip = MakeChip("fm11nt081");
    const Bytes image = ImageForTests();
    Bytes area = {0x00, 0x01, 0x03, 0xA0, 0x10, 0x44};  // filling, and a lock control in front
    area.insert(area.end(), image.begin(), image.end());
    chip->BackDoor().SetMemory(16, area);
    std::vector<PhoneReport> reports;
    EXPECT_EQ(Visit(chip->Radio(), kMilli * 1000, reports), kMilli * 1000);
    ASSERT_EQ(reports.size(), 1U);
    ASSERT_TRUE(reports[0].read) << reports[0].problem;
    EXPECT_EQ(reports[0].reading.message, Bytes(image.begin() + 2, image.end() - 1));
    EXPECT_EQ(reports[0].reading.uri, "https://tag/abcd1234");
    EXPECT_EQ(reports[0].reading.mimeType, "application/x-test");
    EXPECT_EQ(reports[0].reading.mimePayload, (Bytes{0x80, 0x64, 0x00, 0x7F, 0xFE}));
    // Coming, reading, and a check every 125 ms.
    EXPECT_EQ(chip->BackDoor().Counters().interrupts, 9U);
}

TEST(Phone, SaysWhyItCannotRead) {
    const auto spoilt = [](std::size_t at, std::uint8_t value) {
        Bytes image = ImageForTests();
        image.at(at) = value;
        return image;
    };
    const struct {
        const char* problem;
        Bytes image;
    } cases[] = {
        {"no whole NDEF message", {}},
        {"ends before any", spoilt(0, 0xFE)},
        {"message is empty", spoilt(1, 0)},
        {"record 1 has a wrong begin flag", spoilt(2, 0x11)},
        {"record 2 runs beyond", spoilt(1, 40)},
        {"without a last record", spoilt(19, 0x12)},
        {"record 2 has a wrong begin flag", spoilt(19, 0xD2)},
        {"bytes follow behind", spoilt(2, 0xD1)},
        {"unknown abbreviation", spoilt(6, 0x40)},
        {"record 1 is chunked", spoilt(2, 0xB1)},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.problem);
        const auto chip = MakeChip("fanli");
        chip->BackDoor().SetMemory(16, one.image);
        std::vector<PhoneReport> reports;
        Visit(chip->Radio(), kMilli * 1000, reports);
        ASSERT_EQ(reports.size(), 1U);
        EXPECT_FALSE(reports[0].read);
        EXPECT_NE(reports[0].problem.find(one.problem), std::string::npos) << reports[0].problem;
    }
}

TEST(Phone, FindsATagWhoseRadioComesOnLater) {
    const auto chip = MakeChip("fanli");
    chip->BackDoor().SetMemory(16, ImageForTests());
    ASSERT_TRUE(chip->Bus().Write(0, {0xF0, 0xF2, 0, 0}));
    std::vector<PhoneReport> reports;
    Visit(chip->Radio(), kMilli * 1000, reports, [&](Micros now) {
        if (now > kMilli * 300) {
            chip->Bus().Write(now, {0xF0, 0xF1, 0, 0});
        }
    });
    ASSERT_EQ(reports.size(), 2U);
    EXPECT_EQ(reports[0].problem, "no tag answers: its radio is off");
    EXPECT_TRUE(reports[1].read);
    reports.clear();
    EXPECT_EQ(Visit(chip->Radio(), kMilli * 10, reports), kMilli * 10);
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].problem, "the phone left before it had read the message");
}

}  // namespace
}  // namespace simulator
