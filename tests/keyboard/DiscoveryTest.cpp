// Finding the keyboard among other devices, with steps that fail.
#include <gtest/gtest.h>

#include <functional>

#include "peripheral/HidDiscovery.h"
#include "simulator/HidDriver.h"
#include "tests/support/Desk.h"
#include "tests/support/Seeds.h"

using namespace testing_support;
using hosted::HidInterface;

namespace {

const char kFound[] = "NFC find the corresponding device!\n";

// Where the first interface differs from a keyboard that fits, and the lines that it leaves. The
// one behind it fits, and is found.
struct Case {
    std::function<void(HidInterface&)> change;
    const char* lines;
    bool opens = true;
    bool found = true;
};
const char kNoMatch[] = "No Match\n";
const char kNoData[] = "Error: HidD_GetPreparsedData failed \n";
const char kOpened[] = "Hid device open success\n";
const Case kCases[] = {
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

TEST(Discovery, PassesOverWhatDoesNotFit) {
    hosted::UseScheduledClock({Seed()});
    LogRecorder log;
    log.Announce("Error: Hid");
    const auto driver =
        std::make_shared<simulator::HidDriver>(std::make_shared<simulator::KeyboardMcu>());
    std::string opened;
    hosted::SetTracer([&opened](const hosted::TraceEvent& event) {
        opened = event.kind == hosted::TraceEvent::Kind::kOpen ? event.text : opened;
    });
    for (const Case& one : kCases) {
        const auto& [change, lines, opens, found] = one;
        SCOPED_TRACE(&one - kCases);
        hosted::RemoveHidInterfaces();
        HidInterface first = simulator::KeyboardInterface();
        HidInterface fits = first;
        change(first);
        fits.path += L"&fits";
        hosted::AddHidInterface(first, opens ? driver : nullptr);
        hosted::AddHidInterface(fits, driver);
        log.Clear();
        const HANDLE handle = MatchNfcHidDevice();
        EXPECT_EQ(handle != INVALID_HANDLE_VALUE, found);
        std::string told;
        for (const std::string& text : log.Texts()) {
            told += text;
        }
        EXPECT_EQ(told, lines + (found ? kOpened + std::string(kFound) : ""));
        if (found) {
            EXPECT_EQ(opened.substr(opened.size() - 5), "&fits");
            CloseHandle(handle);
        }
        EXPECT_EQ(hosted::Live().handles, 0U);
    }
    hosted::SetTracer({});
    hosted::RemoveHidInterfaces();
    log.Clear();
    EXPECT_EQ(MatchNfcHidDevice(), INVALID_HANDLE_VALUE);
    EXPECT_TRUE(log.Lines().empty());
}

TEST(Discovery, GivesUpOnAnEnumerationThatKeepsFailing) {
    hosted::UseScheduledClock({Seed()});
    LogRecorder log;
    const auto driver =
        std::make_shared<simulator::HidDriver>(std::make_shared<simulator::KeyboardMcu>());
    simulator::RegisterKeyboard(driver, false);
    constexpr DWORD kUnexpected = 13;
    constexpr unsigned kMany = 1000;
    struct Case {
        unsigned first, last;  // enumeration calls that fail
        bool found;
    };
    for (const Case& one : {Case{1, 1, false}, Case{2, 4, true}, Case{2, kMany, false}}) {
        unsigned calls = 0;
        hosted::SetCallHook([&](hosted::Call call, hosted::ThreadId) -> DWORD {
            if (call != hosted::Call::kEnumerate) {
                return 0;
            }
            ++calls;
            return calls >= one.first && calls <= one.last ? kUnexpected : 0;
        });
        const HANDLE handle = MatchNfcHidDevice();
        hosted::SetCallHook({});
        EXPECT_EQ(handle != INVALID_HANDLE_VALUE, one.found);
        EXPECT_LT(calls, 100U);
        if (one.found) {
            CloseHandle(handle);
        }
        EXPECT_EQ(log.Count(kFound), one.found ? 1U : 0U);
        log.Clear();
    }
}

}  // namespace
