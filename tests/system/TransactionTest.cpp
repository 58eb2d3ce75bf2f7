// What the locks around the one transfer record are for: threads that reach the chip by different
// ways, at once, under many orders of threads.
#include <gtest/gtest.h>

#include <algorithm>

#include "chip/NfcDeviceContext.h"
#include "chip/NfcSpbExtend.h"
#include "peripheral/PeripheralState.h"
#include "simulator/FanliChip.h"
#include "tests/support/Desk.h"
#include "tests/support/Seeds.h"

using simulator::PcRoute;
using namespace testing_support;

namespace {

using hosted::kMillisecond;
using hosted::kSecond;

constexpr unsigned kSeeds = 30;
constexpr int kReads = 5;

// Reads registers that hold the reader's own mark and finds nothing else in them.
struct Reader {
    std::uint16_t reg;
    std::uint8_t mark;
    bool (*read)(std::uint16_t reg, std::int32_t length, std::uint8_t* buffer);
    int good = 0;
};

DWORD WINAPI Read(LPVOID argument) {
    Reader& reader = *static_cast<Reader*>(argument);
    for (int i = 0; i < kReads; ++i) {
        std::uint8_t bytes[16] = {};
        const bool marked = reader.read(reader.reg, sizeof(bytes), bytes) &&
                            std::all_of(std::begin(bytes), std::end(bytes),
                                        [&reader](std::uint8_t b) { return b == reader.mark; });
        reader.good += marked ? 1 : 0;
    }
    return 0;
}

void ReadByTwoThreads(const char* chip, decltype(Reader::read) read) {
    Desk desk({PcRoute::kI2c}, chip);
    desk.Start();
    Reader readers[] = {{0x100, 0xA1, read}, {0x140, 0xB2, read}};
    const std::size_t threads = hosted::Live().threads;
    for (Reader& reader : readers) {
        {
            const hosted::DeviceLock lock;
            desk.pc.chip()->BackDoor().SetMemory(reader.reg, simulator::Bytes(16, reader.mark));
        }
        CloseHandle(CreateThread(nullptr, 0, Read, &reader, 0, nullptr));
    }
    ASSERT_TRUE(Desk::WaitForThreads(threads));
    EXPECT_EQ(readers[0].good, kReads);
    EXPECT_EQ(readers[1].good, kReads);
    EXPECT_EQ(desk.pc.spb()->Violations(), 0U);
    AnnounceStop(desk.log);
    desk.manager.reset();
    Desk::Pass(kSecond);
}

TEST(Transactions, OfTwoCallersOfTheContextDoNotMix) {
    ForEachSeed(kSeeds, [] {
        ReadByTwoThreads("fm11nt081", [](std::uint16_t reg, std::int32_t length, std::uint8_t* to) {
            return GetNfcDeviceContext().ReadReg(reg, length, to);
        });
    });
}

TEST(Transactions, OfTwoCallersOfTheFourByteDriverDoNotMix) {
    ForEachSeed(kSeeds, [] {
        ReadByTwoThreads("fanli", [](std::uint16_t reg, std::int32_t length, std::uint8_t* to) {
            return NfcSpbExtend::GetInstance().ReadReg(reg, length, to);
        });
    });
}

// Detection asks in the other frame format as well, past the four-byte driver's own lock.
TEST(Transactions, OfAStatusAndOfADetectionDoNotMix) {
    ForEachSeed(kSeeds, [] {
        Desk desk({PcRoute::kI2c}, "fanli");
        desk.Start();
        desk.log.Announce("");  // the chip's starts, and what detection finds
        constexpr int kStarts = 8;
        for (int i = 0; i < kStarts; ++i) {
            hosted::After((5 + 23 * i) * kMillisecond, [&desk] {
                desk.pc.chip()->BackDoor().RaiseStatus(hosted::Now(), simulator::kStatusMcuStart,
                                                       0);
            });
        }
        EXPECT_TRUE(desk.manager->DeviceInit());
        EXPECT_TRUE(Desk::WaitForEvents(kStarts, 10 * kSecond));
        EXPECT_EQ(EventsHeard(1), std::vector<int>(kStarts, 4));
        EXPECT_EQ(desk.pc.spb()->Violations(), 0U);
        EXPECT_EQ(GetNfcDeviceContext().chipKind, NfcChipFanli);
        desk.manager.reset();
        Desk::Pass(kSecond);
    });
}

// A write during a visit lets the next interrupt open a second one, whose notification comes
// between the end of the first and the thread's next wait.
TEST(Visit, OpenedDuringAnotherOneIsClosedToo) {
    ForEachSeed(kSeeds, [] {
        Desk desk({PcRoute::kUsb});
        desk.Start();
        for (const hosted::Micros at : {0, 150}) {
            hosted::After(at * kMillisecond,
                          [&desk] { desk.pc.chip()->BackDoor().RaiseInterrupt(); });
        }
        ASSERT_TRUE(Desk::WaitForEvents(1, kSecond));
        g_interruptFirst = true;  // as WriteMessage does
        EXPECT_TRUE(Desk::WaitForEvents(4, 10 * kSecond));
        EXPECT_EQ(EventsHeard(2), (std::vector<int>{3, 3, 1, 1}));
        AnnounceStop(desk.log);
        Desk::Pass(kSecond);
        desk.manager.reset();
        Desk::Pass(kSecond);
    });
}

}  // namespace
