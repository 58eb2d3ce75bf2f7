// Any notifications of the Bluetooth keyboard, through the client's thread.
#include "fuzz/Check.h"
#include "fuzz/Host.h"
#include "simulator/SimulatedPc.h"

namespace {

constexpr std::size_t kLongest = 70;
constexpr std::size_t kShortest = 4;
constexpr std::size_t kNumberAt = 2;

struct Keyboard {
    Keyboard() {
        Check(manager->BtConnect(simulator::kDefaultBleAddress), "the keyboard is connected");
    }

    void Send(const std::vector<std::uint8_t>& value) {
        {
            const hosted::DeviceLock lock;
            pc.bluetooth()->SendRaw(value);
        }
        fuzz::Pass(hosted::kMillisecond);
    }

    const bool clock = (fuzz::StartClock(), true);
    simulator::SimulatedPc pc{{simulator::PcRoute::kBle}};
    std::shared_ptr<NfcManager> manager = fuzz::MakeManager();
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static Keyboard keyboard;
    std::vector<std::uint8_t> zero(kNumberAt + 32);
    zero[0] = 0x2E;
    zero[1] = 3;
    keyboard.Send(zero);
    fuzz::Number number{};
    std::vector<fuzz::Event> expected;
    for (const std::vector<std::uint8_t>& value : Messages(bytes, size, kLongest)) {
        keyboard.Send(value);
        if (value.size() < kShortest || value[0] != 0x2E) {
            continue;
        }
        if (value[1] == 3 && value.size() >= kNumberAt + number.size()) {
            std::copy_n(value.begin() + kNumberAt, number.size(), number.begin());
        } else if (value[1] == 2 && value[2] == 0x6E && value[3] == 0xE6) {
            expected.push_back({3, 4, number});
        } else if (value[1] == 2 && value[2] == 0xE6 && value[3] == 0x6E) {
            expected.push_back({1, 4, number});
        }
    }
    Check(fuzz::TakeEvents() == expected, "the listener hears what the notifications tell");
    return 0;
}
