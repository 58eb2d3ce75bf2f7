// The result of the detection for each chip, with its transfers, pauses and lines.
#include <gtest/gtest.h>

#include "chip/DetectChip.h"
#include "tests/support/PcWithHost.h"
#include "tests/support/ScriptedBus.h"

using namespace testing_support;
using simulator::Bytes;

namespace {

constexpr std::uint32_t kStartDelay = 40;

const char kFirstPass[] = "W 00 00, R 9";
const char kBothPasses[] = "W 00 00, R 9, sleep 40, W 00 00, sleep 40, R 9";
const char kWithProbe[] =
    "W 00 00, R 9, sleep 40, W 00 00, sleep 40, R 9, W 00 00 01 01, sleep 80, R 1";

const Bytes kIs081{0x1D, 1, 2, 3, 4, 5, 6, 0x00, 0x44};
const Bytes kIs082c{0x1D, 1, 2, 3, 4, 5, 6, 0x10, 0x44};
const Bytes kIsOther{0x53, 1, 2, 3, 4, 5, 6, 0x00, 0x44};
const Bytes kOnes(9, 0xFF);
const Bytes kAlmostOnes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE};
const Bytes kIsFanli{0x22};
const Bytes kIsLikeFanli{0x21};
const Bytes kFails;

// The error lines of the detection itself.
const char kLikeFm11n[] = "Nfc spb2 format, like FM11N chip";
const char kFm11nt081[] = "Nfc chip FM11NT081, Nfc spb2 format, like FM11N chip";
const std::string kFailedOnce = "Nfc ReadReg 0 failed!, Nfc spb2 format, like FM11N chip";

const struct {
    Bytes first, second, probe;  // what the reads of the two passes and of the probe give
    NfcLinkType linkType{};
    NfcChipKind chipKind{};
    std::uint32_t readDelay = 0;
    const char* traffic = nullptr;
    std::string lines;
} kOutcomes[] = {
    {kIs082c, kFails, kFails, NfcLinkSpb2, NfcChipFm11nt082c, 0, kFirstPass, "Nfc chip FM11NT082C"},
    {kOnes, kFails, kFails, NfcLinkSpb2, NfcChipLikeFm11n, 10, kBothPasses, kFailedOnce},
    {kFails, kIs082c, kFails, NfcLinkSpb2, NfcChipLikeFm11n, 10, kBothPasses, kFailedOnce},
    {kFails, kFails, kFails, NfcLinkSpb2, NfcChipLikeFm11n, 10, kBothPasses,
     "Nfc ReadReg 0 failed!, " + kFailedOnce},
    {kIs081, kIs081, kFails, NfcLinkSpb2, NfcChipFm11nt081, 10, kBothPasses, kFm11nt081},
    {kOnes, kIs081, kFails, NfcLinkSpb2, NfcChipFm11nt081, 10, kBothPasses, kFm11nt081},
    {kIsOther, kIsOther, kFails, NfcLinkSpb2, NfcChipLikeFm11n, 10, kBothPasses, kLikeFm11n},
    {kOnes, kAlmostOnes, kFails, NfcLinkSpb2, NfcChipLikeFm11n, 10, kBothPasses, kLikeFm11n},
    {kOnes, kOnes, kIsFanli, NfcLinkSpb4, NfcChipFanli, 40, kWithProbe, "Nfc chip Fanli"},
    {kOnes, kOnes, kIsLikeFanli, NfcLinkSpb4, NfcChipLikeFanli, 40, kWithProbe,
     "Nfc chip not fanli, unknown!"},
    {kOnes, kOnes, kFails, NfcLinkSpb4, NfcChipLikeFanli, 40, kWithProbe,
     "Nfc Extend ReadReg 0 failed!"},
};

TEST(DetectChip, FindsFormatChipAndPauses) {
    const ScriptedDevice device;
    BusRecorder recorder;
    for (const auto& [first, second, probe, linkType, chipKind, readDelay, traffic, lines] :
         kOutcomes) {
        SCOPED_TRACE(lines);
        LogRecorder log;
        log.Announce("NFC", "Nfc read spb");  // lines of the transfers
        device.bus->reads = {first, second, probe};
        g_nfcOpDelayMs = kStartDelay;
        g_nfcReadDelayMs = 50;
        NfcDeviceContext context;
        context.chipKind = NfcChipFdModeOther;  // found by an earlier start
        DetectChip(context);
        EXPECT_EQ(context.linkType, linkType);
        EXPECT_EQ(context.chipKind, chipKind);
        EXPECT_EQ(g_nfcOpDelayMs, linkType == NfcLinkSpb4 ? 40U : 10U);
        EXPECT_EQ(g_nfcReadDelayMs, readDelay);
        EXPECT_EQ(Joined(recorder.Take()), traffic);
        EXPECT_EQ(Joined(log.TakeUnannounced()), lines);
    }
}

}  // namespace
