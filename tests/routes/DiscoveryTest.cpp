// Finding the keyboard among other devices, with steps that fail.
#include <gtest/gtest.h>

#include <functional>

#include "routes/HidDiscovery.h"
#include "simulator/HidDriver.h"
#include "tests/support/Desk.h"
#include "tests/support/Seeds.h"

using namespace testing_support;
using hosted::HidInterface;

namespace {

const char kNoMatch[] = "No Match\n";
const char kNoData[] = "Error: HidD_GetPreparsedData failed \n";
const std::string kOpened = "Hid device open success\n";
const std::string kFound = kOpened + "NFC find the corresponding device!\n";

// Where the first interface differs from a keyboard that fits, and the lines that it leaves. The
// one behind it fits, and is found.
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

std::shared_ptr<hosted::Driver> NewKeyboard() {
    return std::make_shared<simulator::HidDriver>(std::make_shared<simulator::KeyboardMcu>());
}

// Whether the keyboard was found. It must then be the one whose path ends with "&fits".
bool Find() {
    std::string opened;
    hosted::SetTracer([&opened](const hosted::TraceEvent& event) {
        opened = event.kind == hosted::TraceEvent::Kind::kOpen ? event.text : opened;
    });
    const UniqueHandle device = MatchNfcHidDevice();
    hosted::SetTracer({});
    if (!device) {
        return false;
    }
    EXPECT_NE(opened.find("&fits"), std::string::npos) << opened;
    return true;
}

TEST(Discovery, PassesOverWhatDoesNotFit) {
    hosted::UseScheduledClock({Seed()});
    LogRecorder log;
    log.Announce("Error: Hid");
    EXPECT_FALSE(Find()) << "where there is none";
    HidInterface fits = simulator::KeyboardInterface();
    fits.path += L"&fits";
    for (const auto& [change, lines, opens, found] : kCases) {
        SCOPED_TRACE(lines);
        hosted::RemoveHidInterfaces();
        HidInterface first = simulator::KeyboardInterface();
        change(first);
        hosted::AddHidInterface(first, opens ? NewKeyboard() : nullptr);
        hosted::AddHidInterface(fits, NewKeyboard());
        log.Clear();
        EXPECT_EQ(Find(), found);
        std::string told;
        for (const std::string& text : log.Texts()) {
            told += text;
        }
        EXPECT_EQ(told, lines + (found ? kFound : ""));
        EXPECT_EQ(hosted::Live().handles, 0U);
    }
    hosted::RemoveHidInterfaces();
    hosted::AddHidInterface(fits, NewKeyboard());
    // Enumeration calls from one on that fail with a code that nobody expects.
    for (const auto& [lasting, expected] : {std::pair{3U, true}, {1000U, false}}) {
        unsigned calls = 0;
        hosted::SetCallHook([&, most = lasting](hosted::Call call, hosted::ThreadId) -> DWORD {
            calls += call == hosted::Call::kEnumerate ? 1 : 0;
            return call == hosted::Call::kEnumerate && calls > 1 && calls <= 1 + most ? 13 : 0;
        });
        EXPECT_EQ(Find(), expected) << lasting << " failures";
        EXPECT_LT(calls, 100U) << "the search gives up";
    }
    hosted::SetCallHook({});
}

}  // namespace
