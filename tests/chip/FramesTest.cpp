// What each driver operation sends, in order and with its pauses, and how it fails.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

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

std::uint8_t g_buffer[4096];  // what the operations of the table read into and write from

NfcSpbCommon& DriverOf(const std::string& operation) {
    return operation[0] == 'N' ? static_cast<NfcSpbCommon&>(NfcSpbNormal::GetInstance())
                               : NfcSpbExtend::GetInstance();
}

/// A driver, "N"ormal or "E"xtend, one of its operations, and register and length if it takes them.
bool Do(const std::string& text) {
    std::istringstream words(text);
    std::string driverName;
    std::string operation;
    std::uint16_t reg = 0;
    std::int32_t len = 0;
    words >> driverName >> operation >> reg >> len;
    NfcSpbCommon& driver = DriverOf(text);
    g_buffer[0] = 0xEE;
    g_buffer[1] = 0xA1;
    return operation == "read"      ? driver.ReadReg(reg, len, g_buffer)
           : operation == "nowhere" ? driver.ReadReg(reg, len, nullptr)
           : operation == "write"   ? driver.WriteReg(reg, g_buffer, len)
           : operation == "head"    ? driver.WriteReg(reg, nullptr, len)
           : operation == "state"   ? driver.ReadState(reg, len, g_buffer)
           : operation == "init"    ? driver.InitDevice(g_buffer)
           : operation == "lower"   ? driver.BitlockEnable(false)
           : operation == "upper"   ? driver.BitlockEnable(true)
           : operation == "silent"  ? driver.RadioDisable()
           : operation == "wake"    ? driver.RadioEnable()
                                    : driver.CheckWriteTag(g_buffer);
}

std::string Repeat(const char* text, std::size_t count) {
    std::string all;
    while (count-- > 0) {
        all += text;
    }
    return all;
}

struct Traffic {
    std::string operation;
    std::string reads;
    bool result;
    std::string traffic;
    std::string told;  // how the last line begins, of any level
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
    {"N read 4660 2", "0329", true, "W 12 34, sleep 3, R 2", "Nfc data: 0329", 3},
    {"N head 16 16", "", true, "W 00 10", ""},
    {"N write 16 2", "", true, "W 00 10 ee a1", ""},
    {"N state 0 9", "", false, "", ""},
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
    {"E write 16 2", "", true, "W 00 10 00 02 ee a1", ""},
    {"E head 16 16", "", true, "W 00 10 00 10", ""},
    {"E read 4660 2", "5566", true, "W 12 34 01 02, sleep 7, R 2", "Nfc data: 5566", 0x55},
    {"E state 0 9", "010203040506070809", true, "W 00 00 02 09, sleep 7, R 9",
     "Nfc data: 010203040506070809", 1},
    {"E silent", "", true, "W f0 f2 00 00, sleep 7", "Nfc RadioDisable succ", 0xEE, false},
    {"E wake", "", true, "W f0 f1 00 00, sleep 7", "Nfc RadioEnable succ"},
    {"E check", "000010270000", true, kReadCheck, kChecked + "0, ticks: 10000", 1},
    {"E check", "341201020304", false, kReadCheck, kChecked + "1234, ticks: 67305985", 0},
    {"E init", "", true, "", "NfcExtend fanli not need init device here, it's ok!", 0},
    {"E lower", "", true, "", "NfcExtend fanli not need enable bitlock here, it's ok!"},
    // What fits a frame, and what doesn't.
    {"N write 16 2046", "", true, "W 00 10 ee a1" + Repeat(" 00", 2044), ""},
    {"N write 16 2047", "", false, "", "NfcWrite len: 2049 too large"},
    {"N write 16 -1", "", false, "", "NfcWrite reg: 16, infoLength: -1"},
    {"N read 16 2048", Repeat("00", 2048), true, "W 00 10, sleep 3, R 2048",
     "Nfc read spb dataLength = 2048", 0},
    {"N read 16 2049", "", false, "", "NfcRead reg: 16, readLength: 2049"},
    {"N nowhere 16 4", "", false, "", "NfcRead reg: 16, readLength: 4"},
    {"E write 16 246", "", true, "W 00 10 00 f6 ee a1" + Repeat(" 00", 244), ""},
    {"E write 16 247", "", false, "", "NfcExtend len: 251 too large"},
    {"E write 16 -1", "", false, "", "reg: 16, infoLength: -1"},
    {"E write 18 16", "", false, "", "reg: 0x12 need align with block"},
    {"E read 16 0", "", false, "", "reg: 16, readLength: 0"},
    {"E read 16 2049", "", false, "", "reg: 16, readLength: 2049"},
    {"E state 0 0", "", false, "", "state: 0, readLength: 0"},
};

TEST(Driver, SendsItsFramesWithTheirPausesAndStopsAtATransferThatFails) {
    hosted::UseScheduledClock({Seed()});
    const auto bus = std::make_shared<ScriptedBus>();
    const ScriptedDevice device(bus);
    g_nfcOpDelayMs = kOpDelay;
    g_nfcReadDelayMs = kReadDelay;
    for (const auto& [operation, reads, result, traffic, told, got, radio] : kTraffic) {
        SCOPED_TRACE(operation + traffic.substr(0, 80) + ": " + told);
        std::memset(g_buffer, 0, sizeof g_buffer);
        LogRecorder log;
        const bool before = DriverOf(operation).radioEnabled;
        const auto transfers = std::count_if(traffic.begin(), traffic.end(),
                                             [](char c) { return c == 'W' || c == 'R'; });
        for (auto failing = static_cast<std::size_t>(transfers); result && failing > 0; --failing) {
            bus->reads = Script(reads);
            bus->transfers = 0;
            bus->failAt = failing;
            EXPECT_FALSE(Do(operation)) << "transfer " << failing;
            EXPECT_EQ(bus->transfers, failing);
            EXPECT_EQ(DriverOf(operation).radioEnabled, before);
            EXPECT_FALSE(log.TakeUnannounced().empty()) << "transfer " << failing;
        }
        log.Clear();
        log.Announce("");
        bus->failAt = 0;
        bus->reads = Script(reads);
        BusRecorder recorder;
        EXPECT_EQ(Do(operation), result);
        EXPECT_EQ(Joined(recorder.Take()), traffic);
        EXPECT_TRUE(bus->reads.empty());
        const std::string last = log.Texts().empty() ? "" : log.Texts().back();
        EXPECT_TRUE(told.empty() ? last.empty() : last.rfind(told, 0) == 0) << last;
        EXPECT_EQ(g_buffer[0], got);
        EXPECT_EQ(DriverOf(operation).radioEnabled, radio);
    }
    LogRecorder log;
    NfcDeviceContext context;  // with no driver selected
    EXPECT_FALSE(context.ReadReg(16, 4, g_buffer));
    EXPECT_FALSE(context.WriteReg(16, g_buffer, 4));
    EXPECT_EQ(log.TakeUnannounced(), Texts(2, "spbDriverOps == nullptr"));
}

}  // namespace
