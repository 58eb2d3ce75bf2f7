// Finding the keyboard among other devices, with steps that fail.
#include <gtest/gtest.h>

#include "peripheral/HidDiscovery.h"
#include "simulator/HidDriver.h"
#include "tests/support/Desk.h"
#include "tests/support/Seeds.h"

using namespace testing_support;
using hosted::HidInterface;
using Lines = std::vector<std::string>;

namespace {

HidInterface Keyboard(const std::function<void(HidInterface&)>& change) {
    HidInterface interface = simulator::KeyboardInterface();
    change(interface);
    return interface;
}

const char kNoData[] = "Error: HidD_GetPreparsedData failed \n";
const char kNoCaps[] = "Error: HidP_GetCaps failed \n";
const char kOpened[] = "Hid device open success\n";
const char kFound[] = "NFC find the corresponding device!\n";
const char kNoMatch[] = "No Match\n";

TEST(Discovery, PassesOverWhatDoesNotFit) {
    hosted::UseScheduledClock({Seed()});
    struct Case {
        const char* name;
        HidInterface first;  // stands in front of a keyboard that fits
        bool opens;
        bool found;
        Lines log;
    };
    const Lines good = {kOpened, kFound};
    const auto then = [](Lines lines) {
        lines.insert(lines.end(), {kOpened, kFound});
        return lines;
    };
    const Case cases[] = {
        {"another path", Keyboard([](HidInterface& i) { i.path[12] = '8'; }), true, true,
         then({kNoMatch})},
        {"upper case", simulator::DecoyInterfaces().back(), true, true, then({kNoMatch})},
        {"a shorter path", Keyboard([](HidInterface& i) { i.path.resize(24); }), true, true,
         then({kNoMatch})},
        {"no detail", Keyboard([](HidInterface& i) { i.detailFails = true; }), true, true, good},
        {"vanished", Keyboard([](HidInterface&) {}), false, true, then({kNoData})},
        {"no data", Keyboard([](HidInterface& i) { i.preparsedDataFails = true; }), true, true,
         then({kNoData})},
        {"no capabilities", Keyboard([](HidInterface& i) { i.capsFail = true; }), true, true,
         then({kNoCaps})},
        {"another page", Keyboard([](HidInterface& i) { i.usagePage = 0x464F; }), true, true, good},
        {"another usage", Keyboard([](HidInterface& i) { i.usage = 0x44; }), true, true, good},
        {"another maker",
         Keyboard([](HidInterface& i) { i.vendorId = 1; }),
         true,
         true,
         {kOpened, kOpened, kFound}},
        {"another product",
         Keyboard([](HidInterface& i) { i.productId = 1; }),
         true,
         true,
         {kOpened, kOpened, kFound}},
        {"no attributes",
         Keyboard([](HidInterface& i) { i.attributesFail = true; }),
         true,
         false,
         {kOpened}},
    };
    LogRecorder log;
    log.Announce("Error: Hid");
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        hosted::RemoveHidInterfaces();
        const auto driver =
            std::make_shared<simulator::HidDriver>(std::make_shared<simulator::KeyboardMcu>());
        HidInterface first = one.first;
        hosted::AddHidInterface(first, one.opens ? driver : nullptr);
        const auto fits = Keyboard([](HidInterface& i) { i.path += L"&fits"; });
        hosted::AddHidInterface(fits, driver);
        log.Clear();
        std::string opened;
        hosted::SetTracer([&opened](const hosted::TraceEvent& event) {
            if (event.kind == hosted::TraceEvent::Kind::kOpen) {
                opened = event.text;
            }
        });
        const HANDLE handle = MatchNfcHidDevice();
        hosted::SetTracer({});
        EXPECT_EQ(handle != INVALID_HANDLE_VALUE, one.found);
        EXPECT_EQ(log.Texts(), one.log);
        if (one.found) {
            EXPECT_EQ(opened.substr(opened.size() - 5), "&fits");
            CloseHandle(handle);
        }
        EXPECT_EQ(hosted::Live().handles, 0U);
    }
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
