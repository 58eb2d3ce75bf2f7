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
using Bytes = std::vector<std::uint8_t>;

// Told apart from each other and from every other pause.
constexpr std::uint32_t kOpDelay = 7;
constexpr std::uint32_t kReadDelay = 3;

NfcSpbCommon& Normal() {
    return NfcSpbNormal::GetInstance();
}

NfcSpbCommon& Extend() {
    return NfcSpbExtend::GetInstance();
}

std::uint8_t g_buffer[4096];  // what the operations of the tables read into and write from

using Operation = bool (*)();

const Operation ReadNormal = [] { return Normal().ReadReg(0x1234, 2, g_buffer); };
const Operation WriteNormal = [] {
    return Normal().WriteReg(0x0010, Bytes{0xA0, 0xA1, 0xA2}.data(), 3);
};
const Operation AddressNormal = [] { return Normal().WriteReg(0x0010, nullptr, 0); };
const Operation StateNormal = [] { return Normal().ReadState(0, 9, g_buffer); };
const Operation InitNormal = [] { return Normal().InitDevice(g_buffer); };
const Operation LockLower = [] { return Normal().BitlockEnable(false); };
const Operation LockUpper = [] { return Normal().BitlockEnable(true); };
const Operation SilenceNormal = [] { return Normal().RadioDisable(); };
const Operation WakeNormal = [] { return Normal().RadioEnable(); };
const Operation CheckNormal = [] { return Normal().CheckWriteTag(g_buffer); };
const Operation WriteExtend = [] { return Extend().WriteReg(0x0010, Bytes{0xA0, 0xA1}.data(), 2); };
const Operation HeadExtend = [] { return Extend().WriteReg(0x1234, nullptr, 16); };
const Operation ReadExtend = [] { return Extend().ReadReg(0x007A, 2, g_buffer); };
const Operation StateExtend = [] { return Extend().ReadState(0, 9, g_buffer); };
const Operation InitExtend = [] { return Extend().InitDevice(g_buffer); };
const Operation LockExtend = [] { return Extend().BitlockEnable(true); };
const Operation SilenceExtend = [] { return Extend().RadioDisable(); };
const Operation WakeExtend = [] { return Extend().RadioEnable(); };
const Operation CheckExtend = [] { return Extend().CheckWriteTag(g_buffer); };

struct Traffic {
    Operation run;
    const char* reads;
    bool result;
    std::string traffic;
    std::string told;  // the last line, of any level
    int got = -1;      // in the first byte of the buffer; -1: not looked at
};

const std::string kReadMode = "W 03 8c, sleep 3, R 1, sleep 7";
const std::string kReadLock = "W 00 0a, sleep 3, R 1, sleep 7, ";
const std::string kReadSram = "W 10 37, sleep 3, R 4";
const std::string kReadRadio = "W 10 a1, sleep 3, R 1";

const Traffic kTraffic[] = {
    {ReadNormal, "0329", true, "W 12 34, sleep 3, R 2", "Nfc data: 0329", 3},
    {AddressNormal, "", true, "W 00 10", ""},
    {WriteNormal, "", true, "W 00 10 a0 a1 a2", ""},
    {StateNormal, "", false, "", "", 0xEE},
    {InitNormal, "06 06", true, kReadMode + ", " + kReadMode, "NfcInitDevice get fdMode 0x6", 6},
    {InitNormal, "0e 0e", true, kReadMode + ", " + kReadMode, "NfcInitDevice get fdMode 0xe", 14},
    {InitNormal, "03 16", true, kReadMode + ", W 03 8c 06, sleep 7, " + kReadMode,
     "NfcInitDevice get fdMode 0x16", 0x16},
    {LockLower, "05", true,
     kReadLock + "W 00 0a fd, sleep 7, W 00 0b ff, sleep 7, W 03 88 ff 3f 00 00, sleep 7",
     "NfcBitlockEnable set bitlock done"},
    {LockUpper, "f8", true,
     kReadLock + "W 00 0a f8, sleep 7, W 00 0b ff, sleep 7, W 03 c8 ff 3f 00 00, sleep 7",
     "NfcBitlockEnable set bitlock done"},
    {SilenceNormal, "fffdffff", true, kReadSram, "NfcRadioDisable sram not enable"},
    {SilenceNormal, "00020000 df", false, kReadSram + ", W 10 a1 28, " + kReadRadio,
     "NfcRadioDisable write fail2"},
    {SilenceNormal, "00020000 20", true, kReadSram + ", W 10 a1 28, " + kReadRadio, "Nfc data: 20"},
    {WakeNormal, "20", false, "W 10 a1 08, " + kReadRadio, "NfcRadioEnable write fail2"},
    {WakeNormal, "df", true, "W 10 a1 08, " + kReadRadio, "Nfc data: df"},
    {CheckNormal, "", true, "", "", 1},

    {WriteExtend, "", true, "W 00 10 00 02 a0 a1", ""},
    {HeadExtend, "", true, "W 12 34 00 10", ""},
    {ReadExtend, "5566", true, "W 00 7a 01 02, sleep 7, R 2", "Nfc data: 5566", 0x55},
    {StateExtend, "010203040506070809", true, "W 00 00 02 09, sleep 7, R 9",
     "Nfc data: 010203040506070809", 1},
    {SilenceExtend, "", true, "W f0 f2 00 00, sleep 7", "Nfc RadioDisable succ"},
    {WakeExtend, "", true, "W f0 f1 00 00, sleep 7", "Nfc RadioEnable succ"},
    {CheckExtend, "000010270000", true, "W f0 f8 01 06, sleep 7, R 6",
     "NfcExtend Check WriteTag , firstFailAddr: 0, ticks: 10000", 1},
    {CheckExtend, "341201020304", false, "W f0 f8 01 06, sleep 7, R 6",
     "NfcExtend Check WriteTag , firstFailAddr: 1234, ticks: 67305985", 0},
    {InitExtend, "", true, "", "NfcExtend fanli not need init device here, it's ok!", 0},
    {LockExtend, "", true, "", "NfcExtend fanli not need enable bitlock here, it's ok!"},
};

TEST(Driver, SendsItsFramesWithTheirPauses) {
    hosted::UseScheduledClock({Seed()});
    const auto bus = std::make_shared<ScriptedBus>();
    const OpenDevice device(bus);
    g_nfcOpDelayMs = kOpDelay;
    g_nfcReadDelayMs = kReadDelay;
    for (const Traffic& operation : kTraffic) {
        SCOPED_TRACE(operation.traffic + ": " + operation.told);
        LogRecorder log;
        log.Announce("Nfc");
        bus->reads = Script(operation.reads);
        g_buffer[0] = 0xEE;
        BusRecorder recorder;
        EXPECT_EQ(operation.run(), operation.result);
        EXPECT_EQ(Joined(recorder.Take()), operation.traffic);
        EXPECT_TRUE(bus->reads.empty());
        const Texts told = log.Texts();
        EXPECT_EQ(told.empty() ? "" : told.back(), operation.told);
        if (operation.got >= 0) {
            EXPECT_EQ(g_buffer[0], operation.got);
        }
    }
    g_nfcReadDelayMs = 0;
    BusRecorder recorder;
    bus->reads = Script("0102");
    EXPECT_TRUE(ReadNormal());
    EXPECT_EQ(Joined(recorder.Take()), "W 12 34, R 2");
}

// The radio's flag follows what the chip has done, and nothing else.
TEST(Driver, KnowsItsRadio) {
    hosted::UseScheduledClock({Seed()});
    const auto bus = std::make_shared<ScriptedBus>();
    const OpenDevice device(bus);
    LogRecorder log;
    log.Announce("Nfc");
    log.Announce("NFC");
    const struct {
        NfcSpbCommon& driver;
        Operation run;
        const char* reads;
        std::size_t failAt;
        bool enabled;
    } steps[] = {
        {Normal(), SilenceNormal, "00000000", 0, true},
        {Normal(), SilenceNormal, "00020000 08", 0, true},
        {Normal(), SilenceNormal, "00020000 28", 0, false},
        {Normal(), WakeNormal, "28", 0, false},
        {Normal(), WakeNormal, "08", 0, true},
        {Extend(), SilenceExtend, "", 1, true},
        {Extend(), SilenceExtend, "", 0, false},
        {Extend(), WakeExtend, "", 1, false},
        {Extend(), WakeExtend, "", 0, true},
    };
    for (const auto& step : steps) {
        bus->reads = Script(step.reads);
        bus->transfers = 0;
        bus->failAt = step.failAt;
        step.run();
        EXPECT_EQ(step.driver.radioEnabled, step.enabled);
    }
}

TEST(Driver, StopsAtTheFirstTransferThatFails) {
    hosted::UseScheduledClock({Seed()});
    const auto bus = std::make_shared<ScriptedBus>();
    const OpenDevice device(bus);
    // The error line of the operation itself, for each transfer that can fail.
    const struct {
        Operation run;
        const char* reads;
        Texts lines;
    } cases[] = {
        {InitNormal,
         "03 06",
         {"NfcInitDevice Read reg: 908 failed 1", "NfcInitDevice Read reg: 908 failed 1",
          "NfcInitDevice Write reg: 908 failed", "NfcInitDevice Read reg: 908 failed 2",
          "NfcInitDevice Read reg: 908 failed 2"}},
        {LockLower,
         "00",
         {"NfcBitlockEnable read reg: 10 lowByte failed",
          "NfcBitlockEnable read reg: 10 lowByte failed",
          "NfcBitlockEnable write reg: 10 lowByte failed",
          "NfcBitlockEnable write reg: 11 highByte failed",
          "NfcBitlockEnable write reg: 904 dyVal failed"}},
        {LockUpper, "00", {"", "", "", "", "NfcBitlockEnable write reg: 968 dyVal failed"}},
        {SilenceNormal,
         "00020000 20",
         {"NfcRadioDisable read sram failed", "NfcRadioDisable read sram failed",
          "NfcRadioDisable write fail1", "NfcRadioDisable read fail", "NfcRadioDisable read fail"}},
        {WakeNormal,
         "00",
         {"NfcRadioEnable write fail1", "NfcRadioEnable read fail", "NfcRadioEnable read fail"}},
        {ReadExtend, "0102", {"NfcExtend first write address: 122 failed", ""}},
        {StateExtend, "000000000000000000", {"NfcExtend first write state: 0 failed", ""}},
        {SilenceExtend, "", {"NfcExtend first write state: 61682 failed"}},
        {WakeExtend, "", {"NfcExtend first write state: 61681 failed"}},
        {CheckExtend,
         "000000000000",
         {"NfcExtend Check WriteTag Success: f0f8 failed",
          "NfcExtend Check WriteTag Failed: 61688 failed"}},
    };
    for (const auto& one : cases) {
        for (std::size_t failing = 1; failing <= one.lines.size(); ++failing) {
            SCOPED_TRACE(one.lines.back() + " at " + std::to_string(failing));
            LogRecorder log;
            bus->reads = Script(one.reads);
            bus->transfers = 0;
            bus->failAt = failing;
            EXPECT_FALSE(one.run());
            EXPECT_EQ(bus->transfers, failing);
            const Texts told = log.TakeUnannounced();
            ASSERT_FALSE(told.empty());
            EXPECT_TRUE(one.lines[failing - 1].empty() || told.back() == one.lines[failing - 1])
                << told.back();
        }
        bus->transfers = 0;
        bus->failAt = 0;
        bus->reads = Script(one.reads);
        LogRecorder log;
        EXPECT_TRUE(one.run());  // and can simply be tried again
        EXPECT_EQ(bus->transfers, one.lines.size());
    }
}

TEST(Driver, RefusesWhatFitsNoFrame) {
    hosted::UseScheduledClock({Seed()});
    const auto bus = std::make_shared<ScriptedBus>();
    const OpenDevice device(bus);
    enum Which { kWrite, kRead, kReadNothing, kState };
    const struct {
        NfcSpbCommon& driver;
        Which which;
        std::uint16_t reg;
        std::int32_t len;
        std::string refusal;  // empty: accepted
        std::size_t moved;    // bytes of the last transfer
    } cases[] = {
        {Normal(), kWrite, 16, 2046, "", 2048},
        {Normal(), kWrite, 16, 2047, "NfcWrite len: 2049 too large", 0},
        {Normal(), kWrite, 16, 2048, "NfcWrite len: 2050 too large", 0},
        {Normal(), kWrite, 16, 2049, "NfcWrite reg: 16, infoLength: 2049", 0},
        {Normal(), kWrite, 16, -1, "NfcWrite reg: 16, infoLength: -1", 0},
        {Normal(), kRead, 16, 2048, "", 2048},
        {Normal(), kRead, 16, 2049, "NfcRead reg: 16, readLength: 2049", 0},
        {Normal(), kRead, 16, 0, "NfcRead reg: 16, readLength: 0", 0},
        {Normal(), kReadNothing, 16, 4, "NfcRead reg: 16, readLength: 4", 0},
        {Extend(), kWrite, 16, 246, "", 250},
        {Extend(), kWrite, 16, 247, "NfcExtend len: 251 too large", 0},
        {Extend(), kWrite, 16, 250, "NfcExtend len: 254 too large", 0},
        {Extend(), kWrite, 16, 251, "reg: 16, infoLength: 251", 0},
        {Extend(), kWrite, 16, -1, "reg: 16, infoLength: -1", 0},
        {Extend(), kWrite, 18, 16, "reg: 0x12 need align with block", 0},
        {Extend(), kWrite, 18, 300, "reg: 18, infoLength: 300", 0},
        {Extend(), kRead, 17, 2048, "", 2048},
        {Extend(), kRead, 16, 0, "reg: 16, readLength: 0", 0},
        {Extend(), kRead, 16, 2049, "reg: 16, readLength: 2049", 0},
        {Extend(), kReadNothing, 16, 4, "reg: 16, readLength: 4", 0},
        {Extend(), kState, 0, 0, "state: 0, readLength: 0", 0},
        {Extend(), kState, 0, 2049, "state: 0, readLength: 2049", 0},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(std::to_string(one.reg) + ", " + std::to_string(one.len) + ": " + one.refusal);
        LogRecorder log;
        bus->transfers = 0;
        bus->lastLength = 0;
        bus->reads = {Gives(Bytes(2048))};
        std::uint8_t* const buffer = one.which == kReadNothing ? nullptr : g_buffer;
        const bool result = one.which == kWrite   ? one.driver.WriteReg(one.reg, g_buffer, one.len)
                            : one.which == kState ? one.driver.ReadState(one.reg, one.len, buffer)
                                                  : one.driver.ReadReg(one.reg, one.len, buffer);
        EXPECT_EQ(result, one.refusal.empty());
        EXPECT_EQ(log.TakeUnannounced(), one.refusal.empty() ? Texts{} : Texts{one.refusal});
        EXPECT_EQ(bus->lastLength, one.moved);
    }
    LogRecorder log;
    NfcDeviceContext context;  // with no driver selected
    EXPECT_FALSE(context.ReadReg(16, 4, g_buffer));
    EXPECT_FALSE(context.WriteReg(16, g_buffer, 4));
    EXPECT_EQ(log.TakeUnannounced(), Texts(2, "spbDriverOps == nullptr"));
}

}  // namespace
