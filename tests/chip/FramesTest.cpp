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

struct Traffic {
    const char* name;
    Operation run;
    std::deque<Answer> reads;
    bool result;
    Texts traffic;
    std::string told;      // the last line, of any level; empty: not looked at
    std::uint8_t got = 0;  // in the first byte of the buffer; 0: not looked at
};

bool InitNormal() {
    return Normal().InitDevice(g_buffer);
}
bool LockLower() {
    return Normal().BitlockEnable(false);
}
bool LockUpper() {
    return Normal().BitlockEnable(true);
}
bool SilenceNormal() {
    return Normal().RadioDisable();
}
bool WakeNormal() {
    return Normal().RadioEnable();
}
bool SilenceExtend() {
    return Extend().RadioDisable();
}
bool WakeExtend() {
    return Extend().RadioEnable();
}
bool ReadExtend() {
    return Extend().ReadReg(0x007A, 16, g_buffer);
}
bool ReadStatus() {
    return Extend().ReadState(0, 9, g_buffer);
}
bool CheckExtend() {
    g_buffer[0] = 0xEE;
    return Extend().CheckWriteTag(g_buffer) == (g_buffer[0] == 1) && g_buffer[0] == 1;
}

const Traffic kTraffic[] = {
    {"read",
     [] { return Normal().ReadReg(0x0010, 2, g_buffer); },
     {Gives({3, 41})},
     true,
     {"W 00 10", "sleep 3", "R 2"},
     "Nfc data: 0329",
     3},
    {"register bytes",
     [] { return Normal().WriteReg(0x1234, nullptr, 0); },
     {},
     true,
     {"W 12 34"},
     ""},
    {"write",
     [] {
         return Normal().WriteReg(0x0010, Bytes{0xA0, 0xA1, 0xA2}.data(), 3);
     },
     {},
     true,
     {"W 00 10 a0 a1 a2"},
     ""},
    {"state", [] { return Normal().ReadState(0, 9, g_buffer); }, {}, false, {}, ""},
    {"mode is 6",
     InitNormal,
     {Gives({6}), Gives({6})},
     true,
     {"W 03 8c", "sleep 3", "R 1", "sleep 7", "W 03 8c", "sleep 3", "R 1", "sleep 7"},
     "NfcInitDevice get fdMode 0x6",
     6},
    {"low bits are 6",
     InitNormal,
     {Gives({0x0E}), Gives({0x0E})},
     true,
     {"W 03 8c", "sleep 3", "R 1", "sleep 7", "W 03 8c", "sleep 3", "R 1", "sleep 7"},
     "NfcInitDevice get fdMode 0xe",
     0x0E},
    {"mode is 3",
     InitNormal,
     {Gives({3}), Gives({0x16})},
     true,
     {"W 03 8c", "sleep 3", "R 1", "sleep 7", "W 03 8c 06", "sleep 7", "W 03 8c", "sleep 3", "R 1",
      "sleep 7"},
     "NfcInitDevice get fdMode 0x16",
     0x16},
    {"lock",
     LockLower,
     {Gives({5})},
     true,
     {"W 00 0a", "sleep 3", "R 1", "sleep 7", "W 00 0a fd", "sleep 7", "W 00 0b ff", "sleep 7",
      "W 03 88 ff 3f 00 00", "sleep 7"},
     "NfcBitlockEnable set bitlock done"},
    {"upper lock",
     LockUpper,
     {Gives({0xF8})},
     true,
     {"W 00 0a", "sleep 3", "R 1", "sleep 7", "W 00 0a f8", "sleep 7", "W 00 0b ff", "sleep 7",
      "W 03 c8 ff 3f 00 00", "sleep 7"},
     "NfcBitlockEnable set bitlock done"},
    {"radio off, no sram",
     SilenceNormal,
     {Gives({0xFF, 0xFD, 0xFF, 0xFF})},
     true,
     {"W 10 37", "sleep 3", "R 4"},
     "NfcRadioDisable sram not enable"},
    {"radio off, not taken",
     SilenceNormal,
     {Gives({0, 2, 0, 0}), Gives({0xDF})},
     false,
     {"W 10 37", "sleep 3", "R 4", "W 10 a1 28", "W 10 a1", "sleep 3", "R 1"},
     "NfcRadioDisable write fail2"},
    {"radio off",
     SilenceNormal,
     {Gives({0, 2, 0, 0}), Gives({0x20})},
     true,
     {"W 10 37", "sleep 3", "R 4", "W 10 a1 28", "W 10 a1", "sleep 3", "R 1"},
     ""},
    {"radio on, not taken",
     WakeNormal,
     {Gives({0x20})},
     false,
     {"W 10 a1 08", "W 10 a1", "sleep 3", "R 1"},
     "NfcRadioEnable write fail2"},
    {"radio on",
     WakeNormal,
     {Gives({0xDF})},
     true,
     {"W 10 a1 08", "W 10 a1", "sleep 3", "R 1"},
     ""},
    {"check", [] { return Normal().CheckWriteTag(g_buffer); }, {}, true, {}, "", 1},

    {"spb4 write",
     [] {
         return Extend().WriteReg(0x0010, Bytes{0xA0, 0xA1}.data(), 2);
     },
     {},
     true,
     {"W 00 10 00 02 a0 a1"},
     ""},
    {"spb4 empty write",
     [] { return Extend().WriteReg(0x1234, nullptr, 16); },
     {},
     true,
     {"W 12 34 00 10"},
     ""},
    {"spb4 read",
     ReadExtend,
     {Gives(Bytes(16, 0x55))},
     true,
     {"W 00 7a 01 10", "sleep 7", "R 16"},
     "",
     0x55},
    {"spb4 state",
     ReadStatus,
     {Gives(Bytes(9, 0x44))},
     true,
     {"W 00 00 02 09", "sleep 7", "R 9"},
     "",
     0x44},
    {"spb4 radio off",
     SilenceExtend,
     {},
     true,
     {"W f0 f2 00 00", "sleep 7"},
     "Nfc RadioDisable succ"},
    {"spb4 radio on", WakeExtend, {}, true, {"W f0 f1 00 00", "sleep 7"}, "Nfc RadioEnable succ"},
    {"clean write",
     CheckExtend,
     {Gives({0, 0, 0x10, 0x27, 0, 0})},
     true,
     {"W f0 f8 01 06", "sleep 7", "R 6"},
     "NfcExtend Check WriteTag , firstFailAddr: 0, ticks: 10000",
     1},
    {"failed write",
     CheckExtend,
     {Gives({0x34, 0x12, 1, 2, 3, 4})},
     false,
     {"W f0 f8 01 06", "sleep 7", "R 6"},
     "NfcExtend Check WriteTag , firstFailAddr: 1234, ticks: 67305985"},
    {"spb4 init",
     [] { return Extend().InitDevice(g_buffer); },
     {},
     true,
     {},
     "NfcExtend fanli not need init device here, it's ok!"},
    {"spb4 lock",
     [] { return Extend().BitlockEnable(true); },
     {},
     true,
     {},
     "NfcExtend fanli not need enable bitlock here, it's ok!"},
};

TEST(Driver, SendsItsFramesWithTheirPauses) {
    hosted::UseScheduledClock({Seed()});
    const auto bus = std::make_shared<ScriptedBus>();
    const OpenDevice device(bus);
    g_nfcOpDelayMs = kOpDelay;
    g_nfcReadDelayMs = kReadDelay;
    for (const Traffic& operation : kTraffic) {
        SCOPED_TRACE(operation.name);
        LogRecorder log;
        log.Announce("Nfc");
        bus->reads = operation.reads;
        BusRecorder recorder;
        EXPECT_EQ(operation.run(), operation.result);
        EXPECT_EQ(recorder.Take(), operation.traffic);
        EXPECT_TRUE(bus->reads.empty());
        if (!operation.told.empty()) {
            ASSERT_FALSE(log.Texts().empty());
            EXPECT_EQ(log.Texts().back(), operation.told);
        }
        if (operation.got != 0) {
            EXPECT_EQ(g_buffer[0], operation.got);
        }
    }
    g_nfcReadDelayMs = 0;
    BusRecorder recorder;
    bus->reads = {Gives({1})};
    EXPECT_TRUE(Normal().ReadReg(0x0010, 1, g_buffer));
    EXPECT_EQ(recorder.Take(), (Texts{"W 00 10", "R 1"}));
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
        std::deque<Answer> reads;
        std::size_t failAt;
        bool enabled;
    } steps[] = {
        {Normal(), SilenceNormal, {Gives({0, 0, 0, 0})}, 0, true},
        {Normal(), SilenceNormal, {Gives({0, 2, 0, 0}), Gives({0x08})}, 0, true},
        {Normal(), SilenceNormal, {Gives({0, 2, 0, 0}), Gives({0x28})}, 0, false},
        {Normal(), WakeNormal, {Gives({0x28})}, 0, false},
        {Normal(), WakeNormal, {Gives({0x08})}, 0, true},
        {Extend(), SilenceExtend, {}, 1, true},
        {Extend(), SilenceExtend, {}, 0, false},
        {Extend(), WakeExtend, {}, 1, false},
        {Extend(), WakeExtend, {}, 0, true},
    };
    for (const auto& step : steps) {
        bus->reads = step.reads;
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
    // The last error line by the number of the transfer that fails, from 1.
    const struct {
        Operation run;
        std::deque<Answer> reads;
        Texts lines;
    } cases[] = {
        {InitNormal,
         {Gives({3}), Gives({6})},
         {"NfcInitDevice Read reg: 908 failed 1", "NfcInitDevice Read reg: 908 failed 1",
          "NfcInitDevice Write reg: 908 failed", "NfcInitDevice Read reg: 908 failed 2",
          "NfcInitDevice Read reg: 908 failed 2"}},
        {LockLower,
         {Gives({0})},
         {"NfcBitlockEnable read reg: 10 lowByte failed",
          "NfcBitlockEnable read reg: 10 lowByte failed",
          "NfcBitlockEnable write reg: 10 lowByte failed",
          "NfcBitlockEnable write reg: 11 highByte failed",
          "NfcBitlockEnable write reg: 904 dyVal failed"}},
        {LockUpper, {Gives({0})}, {"", "", "", "", "NfcBitlockEnable write reg: 968 dyVal failed"}},
        {SilenceNormal,
         {Gives({0, 2, 0, 0}), Gives({0x20})},
         {"NfcRadioDisable read sram failed", "NfcRadioDisable read sram failed",
          "NfcRadioDisable write fail1", "NfcRadioDisable read fail", "NfcRadioDisable read fail"}},
        {WakeNormal,
         {Gives({0})},
         {"NfcRadioEnable write fail1", "NfcRadioEnable read fail", "NfcRadioEnable read fail"}},
        {ReadExtend,
         {Gives(Bytes(16))},
         {"NfcExtend first write address: 122 failed", "Nfc read spb status error, status = 1117"}},
        {ReadStatus,
         {Gives(Bytes(9))},
         {"NfcExtend first write state: 0 failed", "Nfc read spb status error, status = 1117"}},
        {SilenceExtend, {}, {"NfcExtend first write state: 61682 failed"}},
        {WakeExtend, {}, {"NfcExtend first write state: 61681 failed"}},
        {CheckExtend,
         {Gives(Bytes(6))},
         {"NfcExtend Check WriteTag Success: f0f8 failed",
          "NfcExtend Check WriteTag Failed: 61688 failed"}},
    };
    for (const auto& one : cases) {
        for (std::size_t failing = 1; failing <= one.lines.size(); ++failing) {
            SCOPED_TRACE(one.lines.back() + " at " + std::to_string(failing));
            LogRecorder log;
            bus->reads = one.reads;
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
        bus->reads = one.reads;
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
