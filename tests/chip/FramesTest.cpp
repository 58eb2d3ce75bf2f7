// The transfers, pauses and lines of the chip detection and of each driver operation, and what is
// left when a transfer fails.
#include <cstring>

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

constexpr bool kFails = false;
constexpr std::uint8_t kUntouched = 0xEE;
std::uint8_t g_buffer[2048];  // the operations read into it and write from it

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
const Operation kCheck = [](Driver& driver) {
    std::uint8_t passed = kUntouched;
    const bool result = driver.CheckWriteTag(&passed);
    EXPECT_EQ(passed, result ? 1 : 0);
    return result;
};
// Switches the radio, which a success leaves like `after`.
Operation Radio(bool on, bool after) {
    return [=](Driver& driver) {
        driver.radioEnabled = !on;
        const bool result = on ? driver.RadioEnable() : driver.RadioDisable();
        EXPECT_EQ(driver.radioEnabled, result ? after : !on);
        return result;
    };
}
const Operation kRadioOff = Radio(false, false);
const Operation kRadioOn = Radio(true, true);

// What an operation sends when all its transfers work.
struct Exchange {
    Operation operation;
    std::deque<Bytes> answers;
    std::string traffic;
    std::uint8_t buffer = kUntouched;  // its first byte afterwards
    std::string line = "";             // one that carries a value
    bool result = true;
};

// What an operation refuses without a transfer, and the line that says so.
struct Refusal {
    Operation operation;
    std::string line;
};

// So many bytes of the buffer.
std::string BufferBytes(std::size_t count) {
    return count == 0 ? "" : " ee" + BufferBytes(count - 1);
}

const std::string kGetMode = "W 03 8c, sleep 3, R 1, sleep 7";
const std::string kHadMode3 = "NfcInitDevice config select mode, fdMode = 0x3";
const std::string kSetLow = "W 00 0a, sleep 3, R 1, sleep 7, W 00 0a ";
const std::string kSetHigh = ", sleep 7, W 00 0b ff, sleep 7, W ";
const std::string kDyVal = " ff 3f 00 00, sleep 7";
const std::string kHadLow5 = "NfcBitlockEnable read device, lowByte = 0x5";
const std::string kGetSram = "W 10 37, sleep 3, R 4";
const Bytes kSramOff{0xFF, 0xFD, 0xFF, 0xFF};
const Bytes kSramOn{0x00, 0x02, 0x00, 0x00};
const std::string kSwitchOff = kGetSram + ", W 10 a1 28, W 10 a1, sleep 3, R 1";
const std::string kSwitchOn = "W 10 a1 08, W 10 a1, sleep 3, R 1";

const Exchange kNormalExchanges[] = {
    {Read(0x1234, 2), {{0x03, 0x29}}, "W 12 34, sleep 3, R 2", 0x03},
    {Read(16, 2048), {Bytes(2048)}, "W 00 10, sleep 3, R 2048", 0},
    {Write(16, 16, nullptr), {}, "W 00 10"},
    {Write(16, 2), {}, "W 00 10 ee ee"},
    {Write(16, 2046), {}, "W 00 10" + BufferBytes(2046)},
    {kInit, {{0x06}, {0x06}}, kGetMode + ", " + kGetMode, 0x06},
    {kInit, {{0x0E}, {0x0E}}, kGetMode + ", " + kGetMode, 0x0E},
    {kInit, {{0x03}, {0x16}}, kGetMode + ", W 03 8c 06, sleep 7, " + kGetMode, 0x16, kHadMode3},
    {Lock(false), {{0x05}}, kSetLow + "fd" + kSetHigh + "03 88" + kDyVal, kUntouched, kHadLow5},
    {Lock(true), {{0xF8}}, kSetLow + "f8" + kSetHigh + "03 c8" + kDyVal},
    {Radio(false, true), {kSramOff}, kGetSram},
    {kRadioOff, {kSramOn, {0x20}}, kSwitchOff},
    {kRadioOff, {kSramOn, {0xDF}}, kSwitchOff, kUntouched, "NfcRadioDisable write fail2", kFails},
    {kRadioOn, {{0xDF}}, kSwitchOn},
    {kRadioOn, {{0x20}}, kSwitchOn, kUntouched, "NfcRadioEnable write fail2", kFails},
    {kCheck, {}, ""},
};

const Refusal kNormalRefusals[] = {
    {State(0, 9), ""},
    {Write(16, 2047), "NfcWrite len: 2049 too large"},
    {Write(16, 2048), "NfcWrite len: 2050 too large"},
    {Write(16, 2049), "NfcWrite reg: 16, infoLength: 2049"},
    {Write(16, -1), "NfcWrite reg: 16, infoLength: -1"},
    {Read(16, 2049), "NfcRead reg: 16, readLength: 2049"},
    {Read(16, 0), "NfcRead reg: 16, readLength: 0"},
    {Read(16, 4, nullptr), "NfcRead reg: 16, readLength: 4"},
};

const std::string kGetCheck = "W f0 f8 01 06, sleep 7, R 6";
const std::string kChecked = "NfcExtend Check WriteTag , firstFailAddr: ";

const Bytes kNoFault{0, 0, 0x10, 0x27, 0, 0};
const Bytes kFault{0x34, 0x12, 1, 2, 3, 4};

const Exchange kExtendExchanges[] = {
    {Write(16, 2), {}, "W 00 10 00 02 ee ee"},
    {Write(16, 16, nullptr), {}, "W 00 10 00 10"},
    {Write(16, 246), {}, "W 00 10 00 f6" + BufferBytes(246)},
    {Read(0x1234, 2), {{0x55, 0x66}}, "W 12 34 01 02, sleep 7, R 2", 0x55},
    {Read(16, 2048), {Bytes(2048)}, "W 00 10 01 00, sleep 7, R 2048", 0},
    {State(0, 9), {Bytes(9, 1)}, "W 00 00 02 09, sleep 7, R 9", 1},
    {State(0, 2048), {Bytes(2048)}, "W 00 00 02 00, sleep 7, R 2048", 0},
    {State(0, 1), {{0x07}}, "W 00 00 02 01, sleep 7, R 1", 0x07},
    {kRadioOff, {}, "W f0 f2 00 00, sleep 7"},
    {kRadioOn, {}, "W f0 f1 00 00, sleep 7"},
    {kCheck, {kNoFault}, kGetCheck, kUntouched, kChecked + "0, ticks: 10000"},
    {kCheck, {kFault}, kGetCheck, kUntouched, kChecked + "1234, ticks: 67305985", kFails},
    {kInit, {}, "", 0},
    {Lock(false), {}, ""},
};

const Refusal kExtendRefusals[] = {
    {Write(16, 247), "NfcExtend len: 251 too large"},
    {Write(16, 250), "NfcExtend len: 254 too large"},
    {Write(16, 251), "reg: 16, infoLength: 251"},
    {Write(16, -1), "reg: 16, infoLength: -1"},
    {Write(18, 16), "reg: 0x12 need align with block"},
    {Read(16, 0), "reg: 16, readLength: 0"},
    {Read(16, 2049), "reg: 16, readLength: 2049"},
    {Read(16, 4, nullptr), "reg: 16, readLength: 4"},
    {State(0, 0), "state: 0, readLength: 0"},
    {State(0, 2049), "state: 0, readLength: 2049"},
    {State(0, 4, nullptr), "state: 0, readLength: 4"},
};

template <std::size_t Exchanges, std::size_t Refusals>
void CheckTraffic(Driver& driver, const Exchange (&exchanges)[Exchanges],
                  const Refusal (&refusals)[Refusals]) {
    const ScriptedDevice device;
    ScriptedBus& bus = *device.bus;
    g_nfcOpDelayMs = kOpDelay;
    g_nfcReadDelayMs = kReadDelay;
    LogRecorder log;
    BusRecorder recorder;
    for (const auto& [operation, answers, traffic, buffer, line, result] : exchanges) {
        SCOPED_TRACE(traffic.substr(0, 80) + ": " + line);
        const auto run = [&, &operation = operation, &answers = answers](std::size_t failAt) {
            std::memset(g_buffer, kUntouched, sizeof g_buffer);
            bus.reads = answers;
            bus.transfers = 0;
            device.SetFaults(failAt == 0 ? "" : "any#" + std::to_string(failAt) + "=fail:1117");
            recorder.Take();
            log.TakeMarked();
            return operation(driver);
        };
        EXPECT_EQ(run(0), result);
        EXPECT_EQ(Joined(recorder.Take()), traffic);
        EXPECT_TRUE(bus.reads.empty());
        EXPECT_TRUE(line.empty() || log.Has(line)) << Joined(log.TextsSoFar());
        EXPECT_EQ(g_buffer[0], buffer);
        const std::size_t transfers = bus.transfers;
        for (std::size_t failing = 1; failing <= transfers; ++failing) {
            EXPECT_FALSE(run(failing));
            EXPECT_EQ(bus.transfers, failing - 1) << "it stops there";
            EXPECT_EQ(log.TakeMarked().back()[0], 'E') << "and says so";
        }
    }
    log.TakeMarked();
    bus.transfers = 0;
    for (const auto& [operation, line] : refusals) {
        EXPECT_FALSE(operation(driver));
        EXPECT_EQ(Joined(log.TakeUnannounced()), line);
    }
    EXPECT_EQ(bus.transfers, 0U);
}

TEST(NormalDriver, SendsItsFramesWithTheirPausesAndStopsAtATransferThatFails) {
    CheckTraffic(NfcSpbNormal::GetInstance(), kNormalExchanges, kNormalRefusals);
}

TEST(ExtendDriver, SendsItsFramesWithTheirPausesAndStopsAtATransferThatFails) {
    CheckTraffic(NfcSpbExtend::GetInstance(), kExtendExchanges, kExtendRefusals);
}

// Each reads registers that hold its own mark, and finds nothing else in them.
TEST(ExtendDriver, KeepsTheFramesOfTwoCallersApart) {
    ForEachSeed(30, [] {
        StartedPc setup({PcRoute::kI2c}, "fanli");  // which counts transfers at the same time
        const std::size_t threads = emulation::Live().threads;
        for (const std::uint16_t reg : {std::uint16_t{0x110}, std::uint16_t{0x150}}) {
            const Bytes marked(16, static_cast<std::uint8_t>(reg));
            setup.pc.chip()->BackDoor().SetMemory(reg, marked);
            OnThread([reg, marked] {
                platform::Mutex own{kDeviceLock};  // only the driver's lock keeps them apart
                const platform::Lock lock(own);
                for (int i = 0; i < 5; ++i) {
                    Bytes bytes(marked.size());
                    EXPECT_TRUE(NfcSpbExtend::GetInstance().ReadReg(reg, 16, bytes.data()));
                    EXPECT_EQ(bytes, marked);
                }
            });
        }
        EXPECT_TRUE(PcWithHost::WaitForThreads(threads));
    });
}

TEST(DeviceContext, RefusesWhatNeedsADriverWithoutOne) {
    LogRecorder log;
    NfcDeviceContext context;
    std::uint8_t byte = 0;
    EXPECT_FALSE(context.WriteReg(0, &byte, 1) || context.ReadReg(0, 1, &byte));
    EXPECT_EQ(log.TakeUnannounced(), Texts(2, "spbDriverOps == nullptr"));
}

const std::string kFirstPass = "W 00 00, R 9";
const std::string kBothPasses = kFirstPass + ", sleep 40, W 00 00, sleep 40, R 9";
const std::string kWithProbe = kBothPasses + ", W 00 00 01 01, sleep 80, R 1";

const Bytes kIs081{0x1D, 1, 2, 3, 4, 5, 6, 0x00, 0x44};
const Bytes kIs082c{0x1D, 1, 2, 3, 4, 5, 6, 0x10, 0x44};
const Bytes kIsOther{0x53, 1, 2, 3, 4, 5, 6, 0x00, 0x44};
const Bytes kOnes(9, 0xFF);
const Bytes kAlmostOnes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE};
const Bytes kIsFanli{0x22};
const Bytes kIsLikeFanli{0x21};
const Bytes kNone;  // of a read that fails

const char kReadFailed[] = "Nfc ReadReg 0 failed!";
const char kLikeFm11nLine[] = "Nfc spb2 format, like FM11N chip";

struct Finding {
    NfcLinkType linkType;
    NfcChipKind chipKind;
    std::uint32_t opDelay, readDelay;
    std::string traffic;
};
const Finding kFm11nt082c{NfcLinkSpb2, NfcChipFm11nt082c, 10, 0, kFirstPass};
const Finding kFm11nt081{NfcLinkSpb2, NfcChipFm11nt081, 10, 10, kBothPasses};
const Finding kLikeFm11n{NfcLinkSpb2, NfcChipLikeFm11n, 10, 10, kBothPasses};
const Finding kFanli{NfcLinkSpb4, NfcChipFanli, 40, 40, kWithProbe};
const Finding kLikeFanli{NfcLinkSpb4, NfcChipLikeFanli, 40, 40, kWithProbe};

const struct {
    Bytes firstPass, secondPass, probe;  // what the reads of each give
    Finding finding;
    Texts lines;  // errors of the detection itself
} kOutcomes[] = {
    {kIs082c, kNone, kNone, kFm11nt082c, {"Nfc chip FM11NT082C"}},
    {kIs081, kIs081, kNone, kFm11nt081, {"Nfc chip FM11NT081", kLikeFm11nLine}},
    {kOnes, kIs081, kNone, kFm11nt081, {"Nfc chip FM11NT081", kLikeFm11nLine}},
    {kIsOther, kIsOther, kNone, kLikeFm11n, {kLikeFm11nLine}},
    {kOnes, kAlmostOnes, kNone, kLikeFm11n, {kLikeFm11nLine}},
    {kOnes, kNone, kNone, kLikeFm11n, {kReadFailed, kLikeFm11nLine}},
    {kNone, kIs082c, kNone, kLikeFm11n, {kReadFailed, kLikeFm11nLine}},
    {kNone, kNone, kNone, kLikeFm11n, {kReadFailed, kReadFailed, kLikeFm11nLine}},
    {kOnes, kOnes, kIsFanli, kFanli, {"Nfc chip Fanli"}},
    {kOnes, kOnes, kIsLikeFanli, kLikeFanli, {"Nfc chip not fanli, unknown!"}},
    {kOnes, kOnes, kNone, kLikeFanli, {"Nfc Extend ReadReg 0 failed!"}},
};

TEST(DetectChip, FindsFormatChipAndPauses) {
    const ScriptedDevice device;
    BusRecorder recorder;
    for (const auto& [firstPass, secondPass, probe, finding, lines] : kOutcomes) {
        SCOPED_TRACE(Joined(lines));
        LogRecorder log;
        log.Announce("NFC", "Nfc read spb");  // lines of the transfers
        device.bus->reads = {firstPass, secondPass, probe};
        g_nfcOpDelayMs = 40;
        g_nfcReadDelayMs = 50;
        NfcDeviceContext context;
        context.chipKind = NfcChipFdModeOther;  // found by an earlier start
        DetectChip(context);
        EXPECT_EQ(context.linkType, finding.linkType);
        EXPECT_EQ(context.chipKind, finding.chipKind);
        EXPECT_EQ(g_nfcOpDelayMs, finding.opDelay);
        EXPECT_EQ(g_nfcReadDelayMs, finding.readDelay);
        EXPECT_EQ(Joined(recorder.Take()), finding.traffic);
        EXPECT_EQ(log.TakeUnannounced(), lines);
    }
}

}  // namespace
