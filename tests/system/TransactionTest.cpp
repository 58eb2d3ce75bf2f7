// What the locks around the one transfer record are for: threads that reach the chip by different
// ways, at once, under many orders of threads.
#include "chip/NfcDeviceContext.h"
#include "chip/NfcSpbExtend.h"
#include "tests/support/PcWithHost.h"

using namespace testing_support;

namespace {

// Each reads registers that hold its own mark, and finds nothing else in them.
void ReadByTwoThreads(const char* chip,
                      bool (*read)(std::uint16_t reg, std::int32_t length, std::uint8_t* buffer)) {
    ForEachSeed(30, [chip, read] {
        StartedPc setup({PcRoute::kI2c}, chip);  // which counts transfers at the same time
        const std::size_t threads = emulation::Live().threads;
        for (const std::uint16_t reg : {std::uint16_t{0x110}, std::uint16_t{0x150}}) {
            const simulator::Bytes marked(16, static_cast<std::uint8_t>(reg));
            setup.pc.chip()->BackDoor().SetMemory(reg, marked);
            OnThread([reg, marked, read] {
                for (int i = 0; i < 5; ++i) {
                    simulator::Bytes bytes(marked.size());
                    EXPECT_TRUE(read(reg, 16, bytes.data()));
                    EXPECT_EQ(bytes, marked);
                }
            });
        }
        EXPECT_TRUE(PcWithHost::WaitForThreads(threads));
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
