// The HID keyboard: found among other devices with steps that fail, and at work.
#include <algorithm>
#include <optional>

#include "routes/HidDiscovery.h"
#include "routes/KeyboardReadThread.h"
#include "routes/NfcProxy.h"
#include "simulator/HidDriver.h"
#include "tests/support/PcWithHost.h"

using emulation::HidInterface;
using namespace testing_support;

namespace {

const char kNoMatch[] = "No Match\n, ";
const char kNoData[] = "Error: HidD_GetPreparsedData failed \n, ";
const std::string kOpened = "Hid device open success\n, ";
const std::string kFound = kOpened + "NFC find the corresponding device!\n";

// Where the first interface differs from a keyboard that fits, and the lines that it leaves. The
// one after it fits, and is found.
const struct {
    std::function<void(HidInterface&)> change;
    std::string lines;
    bool opens = true;
    bool found = true;
} kInterfaces[] = {
    {[](HidInterface& i) { i.path[12] = '8'; }, kNoMatch},
    {[](HidInterface& i) { i = simulator::DecoyInterfaces().back(); }, kNoMatch},  // upper case
    {[](HidInterface& i) { i.path.resize(24); }, kNoMatch},
    {[](HidInterface& i) { i.detailFails = true; }, ""},
    {[](HidInterface&) {}, kNoData, false},  // vanished
    {[](HidInterface& i) { i.preparsedDataFails = true; }, kNoData},
    {[](HidInterface& i) { i.capsFail = true; }, "Error: HidP_GetCaps failed \n, "},
    {[](HidInterface& i) { i.usagePage = 0x464F; }, ""},
    {[](HidInterface& i) { i.usage = 0x44; }, ""},
    {[](HidInterface& i) { i.vendorId = 1; }, kOpened},
    {[](HidInterface& i) { i.productId = 1; }, kOpened},
    {[](HidInterface& i) { i.attributesFail = true; }, "Hid device open success\n", true, false},
};

// The path of the keyboard that was found, empty for none.
std::wstring Find() {
    std::wstring opened;
    emulation::SetTracer([&opened](const emulation::TraceEvent& event) {
        if (event.kind == emulation::TraceEvent::Kind::kOpen) {
            opened.assign(event.text.begin(), event.text.end());
        }
    });
    const bool isFound{MatchNfcHidDevice()};
    emulation::SetTracer({});
    return isFound ? opened : L"";
}

struct Discovery : testing::Test, private OneSeed {
    Discovery() { keyboard.path += L"&fits"; }
    HidInterface keyboard = simulator::KeyboardInterface();
    std::shared_ptr<emulation::Driver> driver =
        std::make_shared<simulator::HidDriver>(std::make_shared<simulator::KeyboardMcu>());
    LogRecorder log;
};

TEST_F(Discovery, PassesOverWhatDoesNotFit) {
    log.Announce("Error: Hid");
    EXPECT_EQ(Find(), L"") << "where there is none";
    for (const auto& [change, lines, opens, found] : kInterfaces) {
        SCOPED_TRACE(lines);
        emulation::RemoveHidInterfaces();
        HidInterface first = simulator::KeyboardInterface();
        change(first);
        emulation::AddHidInterface(first, opens ? driver : nullptr);
        emulation::AddHidInterface(keyboard, driver);
        log.Clear();
        EXPECT_EQ(Find(), found ? keyboard.path : L"");
        EXPECT_EQ(Joined(log.TextsSoFar()), lines + (found ? kFound : ""));
        EXPECT_EQ(emulation::Live().handles, 0U);
    }
}

// Enumeration calls from one on fail with a code that nobody expects.
TEST_F(Discovery, GivesUpWhenTheEnumerationGoesOnFailing) {
    emulation::AddHidInterface(keyboard, driver);
    for (const unsigned failures : {8U, 9U}) {
        const RefusedCalls refused(emulation::Call::kEnumerate, 2, 1 + failures, 13);
        EXPECT_EQ(Find(), failures == 8 ? keyboard.path : L"");
    }
}

TEST(Hid, JudgesEveryReport) {
    StartedPc setup({PcRoute::kHid});
    EXPECT_TRUE(setup.manager->SetMcuKbConnectStatus(false));  // stops no report from coming
    const std::string arrived = "NFC Interrupt arrive, ";
    const std::string invalid = arrived + "not valid mcu data, ";
    const struct {
        simulator::Bytes start;  // from the type byte on; 0x5A follows
        std::string lines;
    } cases[] = {
        {{1, 0x6E, 0xE6}, "NFC not valid data, "},
        {{4, 0x6E, 0xE6}, "NFC not valid data, "},
        {{3, 0xA1, 0xA2}, ""},
        {{2, 0x6E, 0xE6}, arrived + "NFC_SELECT_IN_FIELD 1st report, "},
        {{2, 0xE6, 0x6E}, arrived + "NFC_defer call done: A1A25A5A5A5A5A5A, "},
        {{2, 0x6E, 0x6E}, invalid},
        {{2, 0xE6, 0xE6}, invalid},
    };
    for (const auto& [start, lines] : cases) {
        PcWithHost::Pass(kSecond);
        setup.log.Clear();
        simulator::Bytes report(64, 0x5A);
        std::copy(start.begin(), start.end(), report.begin() + 5);
        setup.pc.keyboard()->SendRaw(report);
        PcWithHost::Pass(5 * kMillisecond);
        EXPECT_EQ(Joined(setup.log.TextsSoFar()), lines + "NFC Wait For KeyboardData");
    }
    EXPECT_EQ(EventNumbers(3), (std::vector<int>{3, 1}));
    EXPECT_EQ(EventsSoFar()[0].number[31], 0x5A) << "the whole number";
}

TEST(Hid, SendsNothingWhileTheKeyboardIsAway) {
    StartedPc setup({PcRoute::kHid});
    const simulator::KeyboardMcu& keyboard = *setup.pc.keyboard();
    const std::size_t before = keyboard.ReportsSeen();
    std::uint8_t number[32] = {0xCD};
    setup.manager->SetMcuKbConnectStatus(false);
    EXPECT_EQ(setup.manager->ReadRandNum(number), 0);
    EXPECT_EQ(number[0], 0xCD);
    setup.log.Announce("ReadRandNum value is wrong", "UpdateNfcData ReadRandNum failed");
    EXPECT_FALSE(setup.manager->UpdateNfcData()) << "nobody gives the number back";
    EXPECT_EQ(keyboard.ReportsSeen(), before);
    setup.manager->SetMcuKbConnectStatus(true);
    EXPECT_TRUE(setup.manager->UpdateNfcData());
    EXPECT_EQ(keyboard.ReportsSeen(), before + 4) << "an image of three pages, a request of one";
}

TEST(Hid, SendsNoPageThatIsNone) {
    StartedPc setup({PcRoute::kHid});
    const std::size_t before = setup.pc.keyboard()->ReportsSeen();
    const std::uint8_t data[61] = {};
    EXPECT_FALSE(NfcProxy::HidWrite(0, data, 1, 1));
    EXPECT_FALSE(NfcProxy::HidWrite(1, nullptr, 1, 1));
    EXPECT_FALSE(NfcProxy::HidWrite(1, data, 0, 1));
    EXPECT_FALSE(NfcProxy::HidWrite(1, data, 61, 1));
    EXPECT_EQ(setup.pc.keyboard()->ReportsSeen(), before);
}

// The listener takes its time with a report, so the read thread is there and no read is pending
// when a device start closes the keyboard.
struct BusyKeyboard : StartedPc {
    BusyKeyboard() : StartedPc({PcRoute::kHid}) {
        ReactToEvents([this](const ReceivedEvent&) {
            emulation::WaitFor([this] { return release; }, emulation::kForever, "the host");
        });
        pc.keyboard()->SendField(true);
        EXPECT_TRUE(WaitForEvents(1, kSecond));
    }
    bool release = false;
};

TEST(HidThread, EndsWithoutAReadWhenAnotherStartFindsAChipOrNothing) {
    for (const bool findsChip : {true, false}) {
        ForEachSeed(1, [findsChip] {
            BusyKeyboard setup;
            setup.log.Announce("Nfc chip", "Nfc spb2 format", "NFC_Error opening any driver",
                               "NfcManager Init DeviceInit failed");
            emulation::RemoveHidInterfaces();
            std::optional<simulator::Pc> withChip;
            if (findsChip) {
                withChip.emplace(std::vector<PcRoute>{PcRoute::kI2c});
            }
            BusRecorder bus;
            EXPECT_EQ(setup.manager->DeviceInit(), findsChip);
            EXPECT_FALSE(g_readHidRunning);
            setup.release = true;
            PcWithHost::Pass(10 * kMillisecond);
            EXPECT_EQ(Joined(bus.Take(EventsSoFar()[0].thread)), "") << "of the read thread";
            EXPECT_TRUE(setup.log.Has("NFC ReadKeyboardDataThread return"));
        });
    }
}

TEST(HidThread, GoesOnWhenTheKeyboardIsOpenedAgainMeanwhile) {
    BusyKeyboard setup;
    const emulation::Micros before = emulation::Now();
    EXPECT_TRUE(setup.manager->DeviceInit());
    EXPECT_EQ(emulation::Now(), before) << "at the first attempt";
    EXPECT_TRUE(setup.log.Has("NFC_ g_hReadHidThread already exist"));
    setup.release = true;
    setup.pc.keyboard()->SendField(false, kSecond);
    PcWithHost::Pass(2 * kSecond);
    EXPECT_EQ(EventNumbers(), (std::vector<int>{3, 1}));
}

}  // namespace
