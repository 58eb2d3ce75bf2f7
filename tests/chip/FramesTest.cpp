// The transfers, pauses and lines of the chip detection and of each driver operation, and what is
// left when a transfer fails.
#include <cstring>
#include <optional>
#include <sstream>

#include "chip/DetectChip.h"
#include "chip/NfcDeviceContext.h"
#include "chip/NfcSpbExtend.h"
#include "chip/NfcSpbNormal.h"
#include "tests/support/PcWithHost.h"
#include "tests/support/ScriptedBus.h"

using namespace testing_support;
using simulator::Bytes;

namespace {

using Driver = NfcSpbCommon;
using Operation = std::function<bool(Driver& driver)>;

// Different from each other and from every other pause.
constexpr std::uint32_t kOpDelay = 7;
constexpr std::uint32_t kReadDelay = 3;

std::uint8_t g_buffer[4096];  // the operations read into it and write from it

Operation Read(std::uint16_t reg, std::int32_t len, std::uint8_t* buffer = g_buffer) {
    return [=](Driver& driver) { return driver.ReadReg(reg, len, buffer); };
}
Operation State(std::uint16_t state, std::int32_t len, std::uint8_t* buffer = g_buffer) {
    return [=](Driver& driver) { return driver.ReadState(state, len, buffer); };
}
Operation Write(std::uint16_t reg, std::int32_t len, const std::uint8_t* data = g_buffer) {
    return [=](Driver& driver) { return driver.WriteReg(reg, data, len); };
}
Operation Lock(bool upper) {
    return [=](Driver& driver) { return driver.BitlockEnable(upper); };
}
const Operation kInit = [](Driver& driver) { return driver.InitDevice(g_buffer); };
const Operation kCheck = [](Driver& driver) { return driver.CheckWriteTag(g_buffer); };
const Operation kRadioOff = &Driver::RadioDisable;
const Operation kRadioOn = &Driver::RadioEnable;

// So many bytes of the buffer.
std::string BufferBytes(std::size_t count) {
    return count == 0 ? "" : " ee" + BufferBytes(count - 1);
}

struct Traffic {
    Operation operation;
    std::string reads;  // what they give, in hexadecimal digits
    bool result;
    std::string traffic;
    std::string lines;            // with their levels, without the lengths of the reads
    std::string failures{};       // the last line when the first transfer fails, the second...
    std::uint8_t first = 0xEE;    // first byte of the buffer afterwards
    std::optional<bool> radio{};  // what a success sets radioEnabled to
};

// A register read logs the same whether its address or its answer fails.
std::string Twice(const std::string& line) {
    return line + ", " + line;
}

const std::string kUnwritten = "E Nfc write spd error, status = 1117";
const std::string kUnread = ", E Nfc read spb status error, status = 1117";
const std::string kUnaddressed = "E NfcRead first write address: ";

const std::string kGetMode = "W 03 8c, sleep 3, R 1, sleep 7";
const std::string kFirstMode = Twice("E NfcInitDevice Read reg: 908 failed 1") + ", ";
const std::string kSecondMode = Twice("E NfcInitDevice Read reg: 908 failed 2");
const std::string kGetLock = "W 00 0a, sleep 3, R 1, sleep 7, ";
const std::string kPutHighLock = "sleep 7, W 00 0b ff, sleep 7, ";
const std::string kLocking = ", W NfcBitlockEnable read device, lowByte = 0x";
const std::string kLocked = ", W NfcBitlockEnable set bitlock done";
const std::string kUnlocked = Twice("E NfcBitlockEnable read reg: 10 lowByte failed") +
                              ", E NfcBitlockEnable write reg: 10 lowByte failed"
                              ", E NfcBitlockEnable write reg: 11 highByte failed"
                              ", E NfcBitlockEnable write reg: ";
const std::string kGetSram = "W 10 37, sleep 3, R 4";
const std::string kSwitchOff = kGetSram + ", W 10 a1 28, W 10 a1, sleep 3, R 1";
const std::string kSramOn = "W Nfc data: 00020000, W Nfc data: ";
const std::string kNoSram = Twice("E NfcRadioDisable read sram failed");
const std::string kNotOff =
    kNoSram + ", E NfcRadioDisable write fail1, " + Twice("E NfcRadioDisable read fail");
const std::string kSwitchOn = "W 10 a1 08, W 10 a1, sleep 3, R 1";
const std::string kNotOn = "E NfcRadioEnable write fail1, " + Twice("E NfcRadioEnable read fail");

const Traffic kNormalTraffic[] = {
    {Read(0x1234, 2), "0329", true, "W 12 34, sleep 3, R 2", "W Nfc data: 0329",
     kUnaddressed + "4660 failed" + kUnread, 3},
    {Write(16, 16, nullptr), "", true, "W 00 10", "", kUnwritten},
    {Write(16, 2), "", true, "W 00 10 ee ee", "", kUnwritten},
    {State(0, 9), "", false, "", ""},
    {kInit, "06 06", true, kGetMode + ", " + kGetMode,
     Twice("W Nfc data: 06") + ", W NfcInitDevice get fdMode 0x6", kFirstMode + kSecondMode, 6},
    {kInit, "0e 0e", true, kGetMode + ", " + kGetMode,
     Twice("W Nfc data: 0e") + ", W NfcInitDevice get fdMode 0xe", kFirstMode + kSecondMode, 14},
    {kInit, "03 16", true, kGetMode + ", W 03 8c 06, sleep 7, " + kGetMode,
     "W Nfc data: 03, W NfcInitDevice config select mode, fdMode = 0x3, W Nfc data: 16, W "
     "NfcInitDevice get fdMode 0x16",
     kFirstMode + "E NfcInitDevice Write reg: 908 failed, " + kSecondMode, 0x16},
    {Lock(false), "05", true,
     kGetLock + "W 00 0a fd, " + kPutHighLock + "W 03 88 ff 3f 00 00, sleep 7",
     "W Nfc data: 05" + kLocking + "5" + kLocked, kUnlocked + "904 dyVal failed"},
    {Lock(true), "f8", true,
     kGetLock + "W 00 0a f8, " + kPutHighLock + "W 03 c8 ff 3f 00 00, sleep 7",
     "W Nfc data: f8" + kLocking + "f8" + kLocked, kUnlocked + "968 dyVal failed"},
    {kRadioOff, "fffdffff", true, kGetSram,
     "W Nfc data: fffdffff, W NfcRadioDisable sram not enable", kNoSram},
    {kRadioOff, "00020000 df", false, kSwitchOff, kSramOn + "df, E NfcRadioDisable write fail2"},
    {kRadioOff, "00020000 20", true, kSwitchOff, kSramOn + "20", kNotOff, 0xEE, false},
    {kRadioOn, "20", false, kSwitchOn, "W Nfc data: 20, E NfcRadioEnable write fail2"},
    {kRadioOn, "df", true, kSwitchOn, "W Nfc data: df", kNotOn, 0xEE, true},
    {kCheck, "", true, "", "", "", 1},
    // What fits a frame, and what does not.
    {Write(16, 2046), "", true, "W 00 10" + BufferBytes(2046), "", kUnwritten},
    {Write(16, 2047), "", false, "", "E NfcWrite len: 2049 too large"},
    {Write(16, 2048), "", false, "", "E NfcWrite len: 2050 too large"},
    {Write(16, 2049), "", false, "", "E NfcWrite reg: 16, infoLength: 2049"},
    {Write(16, -1), "", false, "", "E NfcWrite reg: 16, infoLength: -1"},
    {Read(16, 2048), std::string(4096, '0'), true, "W 00 10, sleep 3, R 2048", "",
     kUnaddressed + "16 failed" + kUnread, 0},
    {Read(16, 2049), "", false, "", "E NfcRead reg: 16, readLength: 2049"},
    {Read(16, 0), "", false, "", "E NfcRead reg: 16, readLength: 0"},
    {Read(16, 4, nullptr), "", false, "", "E NfcRead reg: 16, readLength: 4"},
};

const std::string kGetCheck = "W f0 f8 01 06, sleep 7, R 6";
const std::string kChecked = ", W NfcExtend Check WriteTag , firstFailAddr: ";
const std::string kUnchecked =
    "E NfcExtend Check WriteTag Success: f0f8 failed, E NfcExtend Check WriteTag Failed: 61688 "
    "failed";
const std::string kUnsent = "E NfcExtend first write ";

const Traffic kExtendTraffic[] = {
    {Write(16, 2), "", true, "W 00 10 00 02 ee ee", "", kUnwritten},
    {Write(16, 16, nullptr), "", true, "W 00 10 00 10", "", kUnwritten},
    {Read(0x1234, 2), "5566", true, "W 12 34 01 02, sleep 7, R 2", "W Nfc data: 5566",
     kUnsent + "address: 4660 failed" + kUnread, 0x55},
    {State(0, 9), "010203040506070809", true, "W 00 00 02 09, sleep 7, R 9",
     "W Nfc data: 010203040506070809", kUnsent + "state: 0 failed" + kUnread, 1},
    {kRadioOff, "", true, "W f0 f2 00 00, sleep 7", "W Nfc RadioDisable succ",
     kUnsent + "state: 61682 failed", 0xEE, false},
    {kRadioOn, "", true, "W f0 f1 00 00, sleep 7", "W Nfc RadioEnable succ",
     kUnsent + "state: 61681 failed", 0xEE, true},
    {kCheck, "000010270000", true, kGetCheck,
     "W Nfc data: 000010270000" + kChecked + "0, ticks: 10000", kUnchecked, 1},
    {kCheck, "341201020304", false, kGetCheck,
     "W Nfc data: 341201020304" + kChecked + "1234, ticks: 67305985", "", 0},
    {kInit, "", true, "", "E NfcExtend fanli not need init device here, it's ok!", "", 0},
    {Lock(false), "", true, "", "E NfcExtend fanli not need enable bitlock here, it's ok!"},
    // What fits a frame, and what does not.
    {Write(16, 246), "", true, "W 00 10 00 f6" + BufferBytes(246), "", kUnwritten},
    {Write(16, 247), "", false, "", "E NfcExtend len: 251 too large"},
    {Write(16, 250), "", false, "", "E NfcExtend len: 254 too large"},
    {Write(16, 251), "", false, "", "E reg: 16, infoLength: 251"},
    {Write(16, -1), "", false, "", "E reg: 16, infoLength: -1"},
    {Write(18, 16), "", false, "", "E reg: 0x12 need align with block"},
    {Read(16, 2048), std::string(4096, '0'), true, "W 00 10 01 00, sleep 7, R 2048", "",
     kUnsent + "address: 16 failed" + kUnread, 0},
    {Read(16, 0), "", false, "", "E reg: 16, readLength: 0"},
    {Read(16, 2049), "", false, "", "E reg: 16, readLength: 2049"},
    {Read(16, 4, nullptr), "", false, "", "E reg: 16, readLength: 4"},
    {State(0, 2048), std::string(4096, '0'), true, "W 00 00 02 00, sleep 7, R 2048", "",
     kUnsent + "state: 0 failed" + kUnread, 0},
    {State(0, 0), "", false, "", "E state: 0, readLength: 0"},
    {State(0, 2049), "", false, "", "E state: 0, readLength: 2049"},
    {State(0, 4, nullptr), "", false, "", "E state: 0, readLength: 4"},
};

// One for each word of hexadecimal digits.
std::deque<Bytes> Answers(const std::string& digits) {
    std::deque<Bytes> answers;
    std::istringstream words(digits);
    for (std::string word; words >> word;) {
        answers.emplace_back();
        for (std::size_t i = 0; i < word.size(); i += 2) {
            const int byte = std::stoi(word.substr(i, 2), nullptr, 16);
            answers.back().push_back(static_cast<std::uint8_t>(byte));
        }
    }
    return answers;
}

// Without the lengths of the reads.
Texts TakeLines(LogRecorder& log) {
    Texts lines;
    for (const std::string& line : log.TakeMarked()) {
        if (line.rfind("W Nfc read spb dataLength", 0) != 0) {
            lines.push_back(line);
        }
    }
    return lines;
}

template <std::size_t Rows>
void CheckTraffic(Driver& driver, const Traffic (&table)[Rows]) {
    const ScriptedDevice device;
    ScriptedBus& bus = *device.bus;
    g_nfcOpDelayMs = kOpDelay;
    g_nfcReadDelayMs = kReadDelay;
    LogRecorder log;
    for (const auto& [operation, reads, result, traffic, lines, failures, first, radio] : table) {
        SCOPED_TRACE(traffic.substr(0, 80) + ": " + lines);
        const bool before = !radio.value_or(true);
        driver.radioEnabled = before;
        BusRecorder recorder;
        const auto run = [&, &operation = operation, &reads = reads](std::size_t failAt) {
            std::memset(g_buffer, 0xEE, sizeof g_buffer);
            bus.reads = Answers(reads);
            bus.transfers = 0;
            bus.failAt = failAt;
            recorder.Take();
            return operation(driver);
        };
        EXPECT_EQ(run(0), result);
        EXPECT_EQ(Joined(recorder.Take()), traffic);
        EXPECT_TRUE(bus.reads.empty());
        EXPECT_EQ(Joined(TakeLines(log)), lines);
        EXPECT_EQ(g_buffer[0], first);
        EXPECT_EQ(driver.radioEnabled, radio.value_or(before));
        driver.radioEnabled = before;
        Texts lastLines;
        const std::size_t transfers = result ? bus.transfers : 0;
        for (std::size_t failing = 1; failing <= transfers; ++failing) {
            EXPECT_FALSE(run(failing));
            EXPECT_EQ(bus.transfers, failing) << "it stops there";
            EXPECT_EQ(driver.radioEnabled, before);
            lastLines.push_back(TakeLines(log).back());
        }
        EXPECT_EQ(Joined(lastLines), failures);
    }
}

TEST(NormalDriver, SendsItsFramesWithTheirPausesAndStopsAtATransferThatFails) {
    CheckTraffic(NfcSpbNormal::GetInstance(), kNormalTraffic);
}

TEST(ExtendDriver, SendsItsFramesWithTheirPausesAndStopsAtATransferThatFails) {
    CheckTraffic(NfcSpbExtend::GetInstance(), kExtendTraffic);
}

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
