// A test of a host without keyboard, phone or Windows: the simulated PC stands in for all three,
// and its clock runs as fast as the test. Called with a route: usb (the usual one), i2c or hid.
#include <gtest/gtest.h>
#include <tagport/Simulator.h>

#include <chrono>
#include <cstdlib>
#include <string>

#include "RenewingHost.h"

using namespace std::chrono_literals;

namespace {

tagport::Route g_route = tagport::Route::kUsb;
std::vector<int> g_events;  // on the scheduled clock one thread runs at a time: no lock is needed

void Listen(int event, const std::uint8_t (&)[32], int) {
    g_events.push_back(event);
}

std::shared_ptr<NdefMessage> Message() {
    auto message = std::make_shared<NdefMessage>();
    message->SetUrl("example.com/pc?" + std::string(35, '0'));  // 50 bytes, as PC type 5 has
    message->SetMac({0x02, 0x11, 0x22, 0x33, 0x44, 0x55});
    message->SetPcType(5);
    return message;
}

// What the phone is to find.
std::vector<std::uint8_t> NumberOf(const RenewingHost& host) {
    return {host.CurrentNumber().begin(), host.CurrentNumber().end()};
}

struct HostTest : testing::Test {
    HostTest() { g_events.clear(); }

    bool LogHas(const std::string& text) const {
        const auto lines = log.Lines();
        return std::any_of(lines.begin(), lines.end(), [&](const tagport::LogLine& line) {
            return line.level == 4 && line.text.find(text) != std::string::npos;
        });
    }

    tagport::SimulatedPc pc{g_route};
    tagport::LogRecorder log;
    RenewingHost host{Message(), &Listen};
};

TEST_F(HostTest, ReportsEachOfManyPhonesOnce) {
    ASSERT_TRUE(host.Tick());
    std::vector<int> expected;
    for (int tap = 0; tap < 500; ++tap) {
        const tagport::PhoneReading reading = pc.Tap(800ms);
        ASSERT_TRUE(reading.read) << reading.problem;
        EXPECT_EQ(reading.number, NumberOf(host));
        expected.insert(expected.end(), {3, 1});
        ASSERT_TRUE(tagport::WaitFor([&] { return g_events.size() >= expected.size(); }, 8s));
    }
    EXPECT_EQ(g_events, expected);
}

TEST_F(HostTest, ComesBackAfterTheKeyboardWasPulledOut) {
    ASSERT_TRUE(host.Tick());
    tagport::Advance(1min);
    pc.Unplug();
    EXPECT_FALSE(host.Tick());
    tagport::Advance(1min);
    pc.Plug();
    EXPECT_TRUE(host.Tick());
    EXPECT_EQ(pc.Tap().number, NumberOf(host));
}

// As some drivers do at a suspend. Nothing says so to the host.
TEST_F(HostTest, ReportsPhonesAfterTheDriverHasCancelledTheRequestForThem) {
    ASSERT_TRUE(host.Tick());
    pc.SetFaults(g_route == tagport::Route::kHid ? "read#1=fail:995" : "interrupt#1=fail:995");
    pc.Tap();
    pc.SetFaults("");
    std::vector<int> expected;
    for (int minute = 0; minute < 600; ++minute) {
        tagport::Advance(1min);
        g_events.resize(expected.size());  // not those of the first phone
        ASSERT_TRUE(host.Tick());
        pc.Tap();
        expected.insert(expected.end(), {3, 1});
        ASSERT_TRUE(tagport::WaitFor([&] { return g_events.size() >= expected.size(); }, 8s));
    }
    EXPECT_EQ(g_events, expected);
}

TEST_F(HostTest, RepairsANumberThatWasNotWritten) {
    ASSERT_TRUE(host.Tick());
    pc.SetFaults("write#1+=refuse:1117");
    tagport::Advance(1min);
    EXPECT_FALSE(host.Tick());
    ASSERT_NE(pc.Tap().number, NumberOf(host));
    EXPECT_TRUE(LogHas("NFC_WriteFile Error  1117"));
    pc.SetFaults("");
    EXPECT_TRUE(host.Tick());
    EXPECT_EQ(pc.Tap().number, NumberOf(host));
}

}  // namespace

int main(int argc, char** argv) {
    const char* const seed = std::getenv("SEED");  // another one is another order of the threads
    tagport::UseScheduledClock(seed == nullptr ? 1 : std::strtoull(seed, nullptr, 10));
    testing::InitGoogleTest(&argc, argv);
    const std::string route = argc > 1 ? argv[1] : "usb";
    g_route = route == "i2c"   ? tagport::Route::kI2c
              : route == "hid" ? tagport::Route::kHid
                               : tagport::Route::kUsb;
    return RUN_ALL_TESTS();
}
