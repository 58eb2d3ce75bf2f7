// Finding the keyboard among other devices, with steps that fail.
#include <gtest/gtest.h>

#include <functional>

#include "routes/HidDiscovery.h"
#include "simulator/HidDriver.h"
#include "tests/support/PcWithHost.h"

using namespace testing_support;
using hosted::HidInterface;

namespace {

const char kNoMatch[] = "No Match\n";
const char kNoData[] = "Error: HidD_GetPreparsedData failed \n";
const std::string kOpened = "Hid device open success\n";
const std::string kFound = kOpened + "NFC find the corresponding device!\n";

// Where the first interface differs from a keyboard that fits, and the lines that it leaves. The
// one after it fits, and is found.
const struct {
    std::function<void(HidInterface&)> change;
    std::string lines;
    bool opens = true;
    bool found = true;
} kCases[] = {
    {[](HidInterface& i) { i.path[12] = '8'; }, kNoMatch},
    {[](HidInterface& i) { i = simulator::DecoyInterfaces().back(); }, kNoMatch},  // upper case
    {[](HidInterface& i) { i.path.resize(24); }, kNoMatch},
    {[](HidInterface& i) { i.detailFails = true; }, ""},
    {[](HidInterface&) {}, kNoData, false},  // vanished
    {[](HidInterface& i) { i.preparsedDataFails = true; }, kNoData},
    {[](HidInterface& i) { i.capsFail = true; }, "Error: HidP_GetCaps failed \n"},
    {[](HidInterface& i) { i.usagePage = 0x464F; }, ""},
    {[](HidInterface& i) { i.usage = 0x44; }, ""},
    {[](HidInterface& i) { i.vendorId = 1; }, kOpened},
    {[](HidInterface& i) { i.productId = 1; }, kOpened},
    {[](HidInterface& i) { i.attributesFail = true; }, kOpened, true, false},
};

// The path of the keyboard that was found, empty for none.
std::wstring Find() {
    std::wstring opened;
    hosted::SetTracer([&opened](const hosted::TraceEvent& event) {
        if (event.kind == hosted::TraceEvent::Kind::kOpen) {
            opened.assign(event.text.begin(), event.text.end());
        }
    });
    const bool isFound{MatchNfcHidDevice()};
    hosted::SetTracer({});
    return isFound ? opened : L"";
}

struct Discovery : testing::Test, private OneSeed {
    Discovery() { keyboard.path += L"&fits"; }
    HidInterface keyboard = simulator::KeyboardInterface();
    std::shared_ptr<hosted::Driver> driver =
        std::make_shared<simulator::HidDriver>(std::make_shared<simulator::KeyboardMcu>());
    LogRecorder log;
};

TEST_F(Discovery, PassesOverWhatDoesNotFit) {
    log.Announce("Error: Hid");
    EXPECT_EQ(Find(), L"") << "where there is none";
    for (const auto& [change, lines, opens, found] : kCases) {
        SCOPED_TRACE(lines);
        hosted::RemoveHidInterfaces();
        HidInterface first = simulator::KeyboardInterface();
        change(first);
        hosted::AddHidInterface(first, opens ? driver : nullptr);
        hosted::AddHidInterface(keyboard, driver);
        log.Clear();
        EXPECT_EQ(Find(), found ? keyboard.path : L"");
        std::string text;
        for (const std::string& line : log.TextsSoFar()) {
            text += line;
        }
        EXPECT_EQ(text, lines + (found ? kFound : ""));
        EXPECT_EQ(hosted::Live().handles, 0U);
    }
}

// Enumeration calls from one on fail with a code that nobody expects.
TEST_F(Discovery, GivesUpWhenTheEnumerationGoesOnFailing) {
    hosted::AddHidInterface(keyboard, driver);
    for (const unsigned failures : {3U, 1000U}) {
        unsigned calls = 0;
        hosted::SetCallHook([&calls, failures](hosted::Call call, hosted::ThreadId) -> DWORD {
            const bool counts = call == hosted::Call::kEnumerate && ++calls > 1;
            return counts && calls <= 1 + failures ? 13 : 0;
        });
        EXPECT_EQ(Find(), failures == 3 ? keyboard.path : L"");
        EXPECT_LT(calls, 100U);
    }
    hosted::SetCallHook({});
}

}  // namespace
