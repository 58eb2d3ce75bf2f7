// What the locks around the one transfer record are for: threads that reach the chip by different
// ways, at once, under many orders of threads.
#include <gtest/gtest.h>

#include "chip/NfcDeviceContext.h"
#include "chip/NfcSpbExtend.h"
#include "tests/support/PcWithHost.h"
#include "tests/support/SeededRuns.h"

using simulator::PcRoute;
using namespace testing_support;

namespace {

constexpr unsigned kSeeds = 30;
constexpr int kReads = 5;
constexpr std::uint16_t kRegisters[] = {0x110, 0x150};

// Each reads registers that hold its own mark, and finds nothing else in them.
void ReadByTwoThreads(const char* chip,
                      bool (*read)(std::uint16_t reg, std::int32_t length, std::uint8_t* buffer)) {
    ForEachSeed(kSeeds, [chip, read] {
        PcWithHost setup({PcRoute::kI2c}, chip);  // which counts transfers at the same time
        setup.Start();
        const std::size_t threads = emulation::Live().threads;
        int good = 0;  // threads of the scheduled clock take turns
        for (const std::uint16_t reg : kRegisters) {
            const simulator::Bytes marked(16, static_cast<std::uint8_t>(reg));
            {
                const emulation::DeviceLock lock;
                setup.pc.chip()->BackDoor().SetMemory(reg, marked);
            }
            OnThread([reg, marked, read, &good] {
                for (int i = 0; i < kReads; ++i) {
                    simulator::Bytes bytes(marked.size());
                    good += read(reg, 16, bytes.data()) && bytes == marked ? 1 : 0;
                }
            });
        }
        ASSERT_TRUE(PcWithHost::WaitForThreads(threads));
        EXPECT_EQ(good, 2 * kReads);
    });
}

TEST(Transactions, OfTwoCallersOfTheContextDoNotMix) {
    ReadByTwoThreads("fm11nt081", [](std::uint16_t reg, std::int32_t length, std::uint8_t* to) {
        // An address by itself, which the other one's read must not take for its own.
        return GetNfcDeviceContext().WriteReg(reg, nullptr, 0) &&
               GetNfcDeviceContext().ReadReg(reg, length, to);
    });
}

// Each has a device mutex of its own, so that only the driver's lock keeps them apart.
TEST(Transactions, OfTwoCallersOfTheSpb4DriverDoNotMix) {
    ReadByTwoThreads("fanli", [](std::uint16_t reg, std::int32_t length, std::uint8_t* to) {
        platform::Mutex own{kDeviceLock};
        const platform::Lock lock(own);
        return NfcSpbExtend::GetInstance().ReadReg(reg, length, to);
    });
}

}  // namespace
