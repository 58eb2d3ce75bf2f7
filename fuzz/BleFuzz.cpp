// Any notifications of the Bluetooth keyboard, through the client's thread.
#include "fuzz/Check.h"
#include "fuzz/Host.h"

namespace {

constexpr std::size_t kLongest = 255;
constexpr std::size_t kShortest = 4;

struct Keyboard {
    Keyboard() { desk.Start(); }

    void Put(const std::vector<std::uint8_t>& value) {
        const hosted::DeviceLock lock;
        desk.pc.bluetooth()->SendRaw(value);
    }

    static void Settle() { fuzz::Desk::Pass(hosted::kMillisecond); }

    const bool clock = fuzz::StartClock();
    fuzz::Desk desk{{simulator::PcRoute::kBle}};
};

/// One behind another, or all at once.
void Try(Keyboard& keyboard, const std::vector<std::vector<std::uint8_t>>& values, bool atOnce) {
    std::vector<std::uint8_t> zero(34);
    zero[0] = 0x2E;
    zero[1] = 3;
    keyboard.Put(zero);
    Keyboard::Settle();
    fuzz::Expected expected(4);
    for (const std::vector<std::uint8_t>& value : values) {
        keyboard.Put(value);
        if (!atOnce) {
            Keyboard::Settle();
        }
        if (value.size() >= kShortest && value[0] == 0x2E) {
            expected.Add({value.begin() + 1, value.end()});
        }
    }
    Keyboard::Settle();
    Check(fuzz::TakeEvents(keyboard.desk) == expected.Events(),
          "the listener hears what the notifications tell");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static Keyboard keyboard;
    const auto values = Messages(bytes, size, kLongest);
    Try(keyboard, values, false);
    Try(keyboard, values, true);
    return 0;
}
