// What each driver operation sends, in order and with its pauses, and how it fails.
#include <gtest/gtest.h>

#include "chip/NfcDeviceContext.h"
#include "chip/NfcSpbExtend.h"
#include "chip/NfcSpbNormal.h"
#include "tests/support/Desk.h"
#include "tests/support/ScriptedBus.h"
#include "tests/support/Seeds.h"

using namespace testing_support;

namespace {

using Texts = std::vector<std::string>;

// Told apart from each other and from every other pause.
constexpr std::uint32_t kOpDelay = 7;
constexpr std::uint32_t kReadDelay = 3;

std::uint8_t g_buffer[4096];  // what the operations of the tables read into and write from

NfcSpbCommon& DriverOf(const char* operation) {
    return operation[0] == 'N' ? static_cast<NfcSpbCommon&>(NfcSpbNormal::GetInstance())
                               : NfcSpbExtend::GetInstance();
}

/// A driver, "N"ormal or "E"xtend, and one of its operations: "N read".
bool Do(const char* text) {
    NfcSpbCommon& driver = DriverOf(text);
    const std::string operation = text + 2;
    g_buffer[0] = 0xEE;
    g_buffer[1] = 0xA1;
    return operation == "read"     ? driver.ReadReg(0x1234, 2, g_buffer)
           : operation == "write"  ? driver.WriteReg(0x0010, g_buffer, 2)
           : operation == "head"   ? driver.WriteReg(0x0010, nullptr, 16)
           : operation == "state"  ? driver.ReadState(0, 9, g_buffer)
           : operation == "init"   ? driver.InitDevice(g_buffer)
           : operation == "lower"  ? driver.BitlockEnable(false)
           : operation == "upper"  ? driver.BitlockEnable(true)
           : operation == "silent" ? driver.RadioDisable()
           : operation == "wake"   ? driver.RadioEnable()
                                   : driver.CheckWriteTag(g_buffer);
}

struct Traffic {
    const char* operation;
    const char* reads;
    bool result;
    std::string traffic;
    std::string told;  // the last line, of any level
    int got = 0xEE;    // in the first byte of the buffer
    bool radio = true;
};

const std::string kReadMode = "W 03 8c, sleep 3, R 1, sleep 7";
const std::string kReadLock = "W 00 0a, sleep 3, R 1, sleep 7, ";
const std::string kReadSram = "W 10 37, sleep 3, R 4";
const std::string kReadRadio = "W 10 a1, sleep 3, R 1";
const std::string kReadCheck = "W f0 f8 01 06, sleep 7, R 6";
const std::string kMode = "NfcInitDevice get fdMode ";
const std::string kChecked = "NfcExtend Check WriteTag , firstFailAddr: ";
const std::string kHigh = "sleep 7, W 00 0b ff, sleep 7, ";

const Traffic kTraffic[] = {
    {"N read", "0329", true, "W 12 34, sleep 3, R 2", "Nfc data: 0329", 3},
    {"N head", "", true, "W 00 10", ""},
    {"N write", "", true, "W 00 10 ee a1", ""},
    {"N state", "", false, "", ""},
    {"N init", "06 06", true, kReadMode + ", " + kReadMode, kMode + "0x6", 6},
    {"N init", "0e 0e", true, kReadMode + ", " + kReadMode, kMode + "0xe", 14},
    {"N init", "03 16", true, kReadMode + ", W 03 8c 06, sleep 7, " + kReadMode, kMode + "0x16",
     0x16},
    {"N lower", "05", true, kReadLock + "W 00 0a fd, " + kHigh + "W 03 88 ff 3f 00 00, sleep 7",
     "NfcBitlockEnable set bitlock done"},
    {"N upper", "f8", true, kReadLock + "W 00 0a f8, " + kHigh + "W 03 c8 ff 3f 00 00, sleep 7",
     "NfcBitlockEnable set bitlock done"},
    {"N silent", "fffdffff", true, kReadSram, "NfcRadioDisable sram not enable"},
    {"N silent", "00020000 df", false, kReadSram + ", W 10 a1 28, " + kReadRadio,
     "NfcRadioDisable write fail2"},
    {"N silent", "00020000 20", true, kReadSram + ", W 10 a1 28, " + kReadRadio, "Nfc data: 20",
     0xEE, false},
    {"N wake", "20", false, "W 10 a1 08, " + kReadRadio, "NfcRadioEnable write fail2", 0xEE, false},
    {"N wake", "df", true, "W 10 a1 08, " + kReadRadio, "Nfc data: df"},
    {"N check", "", true, "", "", 1},
    {"E write", "", true, "W 00 10 00 02 ee a1", ""},
    {"E head", "", true, "W 00 10 00 10", ""},
    {"E read", "5566", true, "W 12 34 01 02, sleep 7, R 2", "Nfc data: 5566", 0x55},
    {"E state", "010203040506070809", true, "W 00 00 02 09, sleep 7, R 9",
     "Nfc data: 010203040506070809", 1},
    {"E silent", "", true, "W f0 f2 00 00, sleep 7", "Nfc RadioDisable succ", 0xEE, false},
    {"E wake", "", true, "W f0 f1 00 00, sleep 7", "Nfc RadioEnable succ"},
    {"E check", "000010270000", true, kReadCheck, kChecked + "0, ticks: 10000", 1},
    {"E check", "341201020304", false, kReadCheck, kChecked + "1234, ticks: 67305985", 0},
    {"E init", "", true, "", "NfcExtend fanli not need init device here, it's ok!", 0},
    {"E lower", "", true, "", "NfcExtend fanli not need enable bitlock here, it's ok!"},
};

TEST(Driver, SendsItsFramesWithTheirPauses) {
    hosted::UseScheduledClock({Seed()});
    const auto bus = std::make_shared<ScriptedBus>();
    const OpenDevice device(bus);
    g_nfcOpDelayMs = kOpDelay;
    g_nfcReadDelayMs = kReadDelay;
    for (const Traffic& operation : kTraffic) {
        SCOPED_TRACE(operation.operation + operation.traffic + ": " + operation.told);
        LogRecorder log;
        log.Announce("Nfc");
        bus->reads = Script(operation.reads);
        BusRecorder recorder;
        EXPECT_EQ(Do(operation.operation), operation.result);
        EXPECT_EQ(Joined(recorder.Take()), operation.traffic);
        EXPECT_TRUE(bus->reads.empty());
        const Texts told = log.Texts();
        EXPECT_EQ(told.empty() ? "" : told.back(), operation.told);
        EXPECT_EQ(g_buffer[0], operation.got);
        EXPECT_EQ(DriverOf(operation.operation).radioEnabled, operation.radio);
    }
}

// The last error lines, for each transfer that can fail; one line stands for all that have it.
const struct {
    const char* operation;
    const char* reads;
    std::size_t transfers;
    std::string lines;
} kFailures[] = {
    {"N init", "03 06", 5,
     "NfcInitDevice Read reg: 908 failed 1, NfcInitDevice Write reg: 908 failed, "
     "NfcInitDevice Read reg: 908 failed 2"},
    {"N lower", "00", 5,
     "NfcBitlockEnable read reg: 10 lowByte failed, NfcBitlockEnable write reg: 10 lowByte failed, "
     "NfcBitlockEnable write reg: 11 highByte failed, "
     "NfcBitlockEnable write reg: 904 dyVal failed"},
    {"N silent", "00020000 20", 5,
     "NfcRadioDisable read sram failed, NfcRadioDisable write fail1, NfcRadioDisable read fail"},
    {"N wake", "00", 3, "NfcRadioEnable write fail1, NfcRadioEnable read fail"},
    {"E read", "0102", 2,
     "NfcExtend first write address: 4660 failed, Nfc read spb status error, status = 1117"},
    {"E state", "000000000000000000", 2,
     "NfcExtend first write state: 0 failed, Nfc read spb status error, status = 1117"},
    {"E silent", "", 1, "NfcExtend first write state: 61682 failed"},
    {"E wake", "", 1, "NfcExtend first write state: 61681 failed"},
    {"E check", "000000000000", 2,
     "NfcExtend Check WriteTag Success: f0f8 failed, NfcExtend Check WriteTag Failed: 61688 "
     "failed"},
};

TEST(Driver, StopsAtTheFirstTransferThatFails) {
    hosted::UseScheduledClock({Seed()});
    const auto bus = std::make_shared<ScriptedBus>();
    const OpenDevice device(bus);
    for (const auto& [operation, reads, transfers, lines] : kFailures) {
        SCOPED_TRACE(operation);
        LogRecorder log;
        Texts told;
        const bool radio = DriverOf(operation).radioEnabled;
        for (std::size_t failing = 1; failing <= transfers + 1; ++failing) {
            bus->reads = Script(reads);
            bus->transfers = 0;
            bus->failAt = failing;
            const bool fails = failing <= transfers;  // afterwards it can simply be tried again
            EXPECT_EQ(Do(operation), !fails);
            EXPECT_EQ(bus->transfers, fails ? failing : transfers);
            EXPECT_TRUE(!fails || DriverOf(operation).radioEnabled == radio);
            const Texts errors = log.TakeUnannounced();
            EXPECT_EQ(errors.empty(), !fails);
            if (fails && (told.empty() || told.back() != errors.back())) {
                told.push_back(errors.back());
            }
        }
        EXPECT_EQ(Joined(told), lines);
    }
}

TEST(Driver, RefusesWhatFitsNoFrame) {
    hosted::UseScheduledClock({Seed()});
    const auto bus = std::make_shared<ScriptedBus>();
    const OpenDevice device(bus);
    const struct {
        const char* operation;  // "N write", "N read", "N nothing" for a read into nowhere
        std::uint16_t reg;
        std::int32_t len;
        std::string refusal;  // empty: accepted
        std::size_t moved;    // bytes of the last transfer
    } cases[] = {
        {"N write", 16, 2046, "", 2048},
        {"N write", 16, 2047, "NfcWrite len: 2049 too large", 0},
        {"N write", 16, -1, "NfcWrite reg: 16, infoLength: -1", 0},
        {"N read", 16, 2048, "", 2048},
        {"N read", 16, 2049, "NfcRead reg: 16, readLength: 2049", 0},
        {"N nothing", 16, 4, "NfcRead reg: 16, readLength: 4", 0},
        {"E write", 16, 246, "", 250},
        {"E write", 16, 247, "NfcExtend len: 251 too large", 0},
        {"E write", 16, -1, "reg: 16, infoLength: -1", 0},
        {"E write", 18, 16, "reg: 0x12 need align with block", 0},
        {"E read", 17, 2048, "", 2048},
        {"E read", 16, 0, "reg: 16, readLength: 0", 0},
        {"E read", 16, 2049, "reg: 16, readLength: 2049", 0},
        {"E state", 0, 0, "state: 0, readLength: 0", 0},
    };
    LogRecorder log;
    for (const auto& [operation, reg, len, refusal, moved] : cases) {
        SCOPED_TRACE(std::string(operation) + std::to_string(len));
        bus->lastLength = 0;
        bus->reads = {Gives(std::vector<std::uint8_t>(2048))};
        NfcSpbCommon& driver = DriverOf(operation);
        const char which = operation[2];
        std::uint8_t* const buffer = which == 'n' ? nullptr : g_buffer;
        EXPECT_EQ(which == 'w'   ? driver.WriteReg(reg, g_buffer, len)
                  : which == 's' ? driver.ReadState(reg, len, buffer)
                                 : driver.ReadReg(reg, len, buffer),
                  refusal.empty());
        EXPECT_EQ(Joined(log.TakeUnannounced()), refusal);
        EXPECT_EQ(bus->lastLength, moved);
    }
    NfcDeviceContext context;  // with no driver selected
    EXPECT_FALSE(context.ReadReg(16, 4, g_buffer));
    EXPECT_FALSE(context.WriteReg(16, g_buffer, 4));
    EXPECT_EQ(log.TakeUnannounced(), Texts(2, "spbDriverOps == nullptr"));
}

}  // namespace
