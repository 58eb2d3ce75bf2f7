// What detection finds, chip by chip, and what it sends and waits for on the way.
#include <gtest/gtest.h>

#include "chip/DetectChip.h"
#include "tests/support/Desk.h"
#include "tests/support/ScriptedBus.h"
#include "tests/support/Seeds.h"

using namespace testing_support;

namespace {

constexpr std::uint32_t kStartDelay = 40;
const char kFirstPass[] = "W 00 00, R 9";
const char kBothPasses[] = "W 00 00, R 9, sleep 40, W 00 00, sleep 40, R 9";
const char kWithProbe[] =
    "W 00 00, R 9, sleep 40, W 00 00, sleep 40, R 9, W 00 00 01 01, sleep 80, R 1";

// What the reads give.
const std::string kIs081 = "1d0102030405060044 ";
const std::string kIs082c = "1d0102030405061044 ";
const std::string kIsOther = "530102030405060044 ";
const std::string kNone = "ffffffffffffffffff ";

struct Outcome {
    std::string chip;     // what the reads give, or "silent" when no write is taken either
    const char* outcome;  // linkType, chipKind, pause between operations, pause before a read
    const char* traffic;
    const char* told;  // error lines of the detection itself
};

const char kLikeFm11n[] = "Nfc spb2 format, like FM11N chip";
const char kFm11nt081[] = "Nfc chip FM11NT081, Nfc spb2 format, like FM11N chip";
const char kFailedOnce[] = "Nfc ReadReg 0 failed!, Nfc spb2 format, like FM11N chip";
const char kFailedTwice[] =
    "Nfc ReadReg 0 failed!, Nfc ReadReg 0 failed!, Nfc spb2 format, like FM11N chip";

const Outcome kOutcomes[] = {
    {kIs082c, "1 3 10 0", kFirstPass, "Nfc chip FM11NT082C"},
    {kNone + "-", "1 0 10 10", kBothPasses, kFailedOnce},
    {"- " + kIs082c, "1 0 10 10", kBothPasses, kFailedOnce},
    {kNone + kNone + "22", "2 4 40 40", kWithProbe, "Nfc chip Fanli"},
    {kNone + kNone + "21", "2 5 40 40", kWithProbe, "Nfc chip not fanli, unknown!"},
    {kNone + kNone + "-", "2 5 40 40", kWithProbe, "Nfc Extend ReadReg 0 failed!"},
    {kIs081 + kIs081, "1 2 10 10", kBothPasses, kFm11nt081},
    {kNone + kIs081, "1 2 10 10", kBothPasses, kFm11nt081},
    {kIsOther + kIsOther, "1 0 10 10", kBothPasses, kLikeFm11n},
    {kNone + "fffffffffffffffffe", "1 0 10 10", kBothPasses, kLikeFm11n},
    {"silent", "1 0 10 10", "W 00 00, sleep 40, W 00 00", kFailedTwice},
};

TEST(DetectChip, FindsFormatChipAndPauses) {
    hosted::UseScheduledClock({Seed()});
    for (const Outcome& outcome : kOutcomes) {
        SCOPED_TRACE(outcome.chip);
        LogRecorder log;
        for (const char* transfer : {"NFC", "NfcRead first", "Nfc read spb", "Nfc write spd"}) {
            log.Announce(transfer);
        }
        const auto bus = std::make_shared<ScriptedBus>();
        const bool silent = outcome.chip == "silent";
        (silent ? bus->writes : bus->reads) = Script(silent ? "- -" : outcome.chip);
        const ScriptedDevice device(bus);
        g_nfcOpDelayMs = kStartDelay;
        g_nfcReadDelayMs = 50;
        NfcDeviceContext context;
        context.chipKind = NfcChipFdModeOther;  // what an earlier start found
        BusRecorder recorder;
        DetectChip(context);
        std::ostringstream found;
        found << context.linkType << ' ' << context.chipKind << ' ' << g_nfcOpDelayMs << ' '
              << g_nfcReadDelayMs;
        EXPECT_EQ(found.str(), outcome.outcome);
        EXPECT_EQ(Joined(recorder.Take()), outcome.traffic);
        EXPECT_EQ(Joined(log.TakeUnannounced()), outcome.told);
    }
}

}  // namespace
