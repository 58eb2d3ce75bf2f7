// A test of a host for a Bluetooth keyboard, on the simulated PC. It is a program of its own,
// because a process keeps in mind which routes it has had.
#include <gtest/gtest.h>
#include <tagport/Simulator.h>

#include "BluetoothHost.h"

using namespace std::chrono_literals;

namespace {

std::vector<int> g_events;

void Listen(int event, const std::uint8_t (&)[32], int) {
    g_events.push_back(event);
}

TEST(BluetoothHostTest, ConnectsAgainAfterTheKeyboardWasOutOfRange) {
    tagport::SimulatedPc pc(tagport::Route::kBle);
    auto message = std::make_shared<NdefMessage>();
    message->SetUrl("example.com/pc?" + std::string(35, '0'));  // 50 bytes, as PC type 5 has
    message->SetPcType(5);
    message->SetRandomNumber({1, 2, 3, 4});
    BluetoothHost host(message, tagport::kKeyboardAddress, &Listen);
    EXPECT_TRUE(host.Tick());
    EXPECT_TRUE(pc.Tap().read);
    pc.Unplug();
    EXPECT_FALSE(host.Tick());
    pc.Plug();
    EXPECT_TRUE(host.Tick());
    EXPECT_TRUE(pc.Tap().read);
    tagport::Advance(1s);
    EXPECT_EQ(g_events, (std::vector<int>{3, 1, 3, 1}));
}

}  // namespace

int main(int argc, char** argv) {
    tagport::UseScheduledClock(1);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
