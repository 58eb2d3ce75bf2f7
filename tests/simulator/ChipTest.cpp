// The chips by themselves: pauses that a driver must keep, registers, locks, interrupts.
#include <gtest/gtest.h>

#include "simulator/Chip.h"
#include "simulator/FanliChip.h"
#include "simulator/Fm11nChip.h"

namespace simulator {
namespace {

TEST(Fm11nChip, GivesOnesToAReaderThatDoesNotWait) {
    const struct {
        const char* kind;
        Micros gap;
        std::uint8_t first;
        std::uint8_t seventh;
    } cases[] = {{"fm11nt081", kFm11nReadGap, 0x1D, 0x00},
                 {"fm11nt082c", 0, 0x1D, 0x10},
                 {"like-fm11n", kFm11nReadGap, 0x53, 0x02}};
    for (const auto& one : cases) {
        SCOPED_TRACE(one.kind);
        const auto chip = MakeChip(one.kind);
        ASSERT_TRUE(chip->Bus().Write(0, {0, 0}));
        if (one.gap > 0) {
            EXPECT_EQ(chip->Bus().Read(one.gap - 1, 9), Bytes(9, 0xFF));
        }
        const auto id = chip->Bus().Read(one.gap, 9);
        ASSERT_TRUE(id);
        EXPECT_EQ(id->at(0), one.first);
        EXPECT_EQ(id->at(7), one.seventh);
        EXPECT_EQ(chip->BackDoor().Counters().earlyReads, one.gap > 0 ? 1U : 0U);
    }
}

TEST(Fm11nChip, AnswersNobodyWhileItStores) {
    const auto chip = MakeChip("fm11nt082c");
    ChipBus& bus = chip->Bus();
    ASSERT_TRUE(bus.Write(0, {0x00, 0x10, 1, 2, 3}));
    EXPECT_FALSE(bus.Write(kFm11nStoreTime - 1, {0x00, 0x10}));
    EXPECT_FALSE(bus.Read(kFm11nStoreTime - 1, 1));
    EXPECT_TRUE(bus.Write(kFm11nStoreTime, {0x00, 0x10}));
    EXPECT_EQ(bus.Read(kFm11nStoreTime, 3), (Bytes{1, 2, 3}));
    EXPECT_EQ(chip->BackDoor().Counters().naks, 2U);
    // Volatile registers take no time.
    EXPECT_TRUE(bus.Write(100000, {0x10, 0xA1, 0x28}));
    EXPECT_TRUE(bus.Write(100000, {0x10, 0xA1}));
    EXPECT_EQ(bus.Read(100000, 1), Bytes{0x28});
    EXPECT_FALSE(chip->BackDoor().RadioOn());
    EXPECT_FALSE(chip->Radio().Enter(100000));
    EXPECT_EQ(chip->BackDoor().Counters().interrupts, 0U);
}

TEST(Fm11nChip, LocksItsPagesAgainstPhonesForGood) {
    for (const char* kind : {"fm11nt081", "fm11nt082c"}) {
        SCOPED_TRACE(kind);
        const bool upper = std::string(kind) == "fm11nt082c";
        const auto chip = MakeChip(kind);
        Micros now = 0;
        const auto write = [&](const Bytes& frame) {
            EXPECT_TRUE(chip->Bus().Write(now += kFm11nStoreTime, frame));
        };
        EXPECT_TRUE(chip->Radio().WritePage(0, 4, {9, 9, 9, 9}));
        write({0x00, 0x0A, 0xF8});
        write({0x00, 0x0B, 0xFF});
        EXPECT_FALSE(chip->Radio().WritePage(0, 15, {9, 9, 9, 9}));
        EXPECT_TRUE(chip->Radio().WritePage(0, 16, {9, 9, 9, 9}));
        EXPECT_FALSE(chip->BackDoor().Locked());
        // The dynamic lock lies elsewhere on the other chip, where these bytes lock nothing.
        const std::uint8_t right = upper ? 0xC8 : 0x88;
        const std::uint8_t wrong = upper ? 0x88 : 0xC8;
        write({0x03, wrong, 0xFF, 0x3F, 0x00, 0x00});
        EXPECT_FALSE(chip->BackDoor().Locked());
        write({0x03, right, 0xFF, 0x3F, 0x00, 0x00});
        EXPECT_TRUE(chip->BackDoor().Locked());
        write({0x00, 0x0A, 0x00});
        write({0x03, right, 0x00, 0x00, 0x00, 0x00});
        EXPECT_TRUE(chip->BackDoor().Locked());
        EXPECT_FALSE(chip->Radio().WritePage(0, 16, {1, 1, 1, 1}));
        write({0x00, 0x40, 7});  // the bus side still writes
        EXPECT_EQ(chip->BackDoor().Memory(0x40, 2), (Bytes{7, 9}));
    }
}

TEST(FanliChip, NeedsItsTimeToAnswer) {
    const auto chip = MakeChip("fanli");
    ChipBus& bus = chip->Bus();
    ASSERT_TRUE(bus.Write(0, {0, 0}));  // the other format
    EXPECT_EQ(bus.Read(kMilli * 40, 9), Bytes(9, 0xFF));
    const Bytes probe = {0, 0, 1, 1};
    ASSERT_TRUE(bus.Write(0, probe));
    EXPECT_EQ(bus.Read(kFanliFirstAnswerTime - 1, 1), Bytes{0xFF});
    EXPECT_EQ(bus.Read(kFanliFirstAnswerTime, 1), Bytes{0x22});
    ASSERT_TRUE(bus.Write(0, probe));
    EXPECT_EQ(bus.Read(kFanliAnswerTime - 1, 1), Bytes{0xFF});
    EXPECT_EQ(bus.Read(kFanliAnswerTime, 1), Bytes{0x22});
}

TEST(FanliChip, LosesABlockThatComesTooSoonAndTellsOnlyWhenChecked) {
    const auto chip = MakeChip("fanli");
    ChipBus& bus = chip->Bus();
    const auto check = [&](Micros now) {
        EXPECT_TRUE(bus.Write(now, {0xF0, 0xF8, 0x01, 0x06}));
        Bytes answer = bus.Read(now + kFanliFirstAnswerTime, 6).value();
        answer.resize(2);
        return answer;
    };
    EXPECT_TRUE(bus.Write(0, {0x00, 0x10, 0, 2, 1, 2}));
    EXPECT_TRUE(bus.Write(kFanliStoreTime - 1, {0x00, 0x20, 0, 2, 3, 4}));
    EXPECT_EQ(chip->BackDoor().Memory(0x20, 2), (Bytes{0, 0}));
    EXPECT_EQ(check(kMilli * 100), (Bytes{0x20, 0x00}));
    EXPECT_TRUE(bus.Write(kMilli * 200, {0x00, 0x20, 0, 2, 3, 4}));
    EXPECT_EQ(chip->BackDoor().Memory(0x20, 2), (Bytes{3, 4}));
    EXPECT_EQ(check(kMilli * 300), (Bytes{0x00, 0x00}));
    EXPECT_TRUE(bus.Write(kMilli * 400, {0x00, 0x12, 0, 2, 3, 4}));  // not aligned
    EXPECT_TRUE(bus.Write(kMilli * 400, {0x00, 0x20, 0, 3, 3, 4}));  // wrong length
    EXPECT_EQ(chip->BackDoor().Counters().malformed, 2U);
}

TEST(FanliChip, QueuesWhatHappenedUntilItIsRead) {
    const auto chip = MakeChip("fanli");
    unsigned edges = 0;
    chip->Bus().OnInterrupt([&] { ++edges; });
    chip->Radio().Enter(kMilli * 5);
    chip->Radio().Leave(kMilli * 6);
    chip->BackDoor().RaiseStatus(kMilli * 7, kStatusMcuStart, 0x01020304);
    EXPECT_EQ(edges, 3U);
    Micros now = kMilli * 10;
    for (const Bytes& expected :
         {Bytes{1, 0, 0, 1, 0, 5, 0, 0, 0}, Bytes{2, 1, 0, 1, 0, 6, 0, 0, 0},
          Bytes{3, 4, 3, 2, 1, 7, 0, 0, 0}}) {
        EXPECT_TRUE(chip->Bus().InterruptAsserted());
        EXPECT_TRUE(chip->Bus().Write(now, {0, 0, 2, 9}));
        EXPECT_EQ(chip->Bus().Read(now + 1, 9), Bytes(9, 0xFF));  // too early, and nothing is lost
        now += kFanliFirstAnswerTime;
        EXPECT_EQ(chip->Bus().Read(now, 9), expected);
    }
    EXPECT_FALSE(chip->Bus().InterruptAsserted());
    EXPECT_TRUE(chip->Bus().Write(now, {0, 0, 2, 9}));
    EXPECT_EQ(chip->Bus().Read(now + kFanliAnswerTime, 9).value().at(0), kStatusNoData);
}

}  // namespace
}  // namespace simulator
