// Any notifications of the Bluetooth keyboard, through the client's thread.
#include "fuzz/Check.h"
#include "fuzz/Host.h"

namespace {

constexpr std::size_t kLongest = 70;
constexpr std::size_t kShortest = 4;

struct Keyboard {
    Keyboard() { desk.Start(); }

    void Send(const std::vector<std::uint8_t>& value) {
        {
            const hosted::DeviceLock lock;
            desk.pc.bluetooth()->SendRaw(value);
        }
        fuzz::Desk::Pass(hosted::kMillisecond);
    }

    const bool clock = fuzz::StartClock();
    fuzz::Desk desk{{simulator::PcRoute::kBle}};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static Keyboard keyboard;
    std::vector<std::uint8_t> zero(34);
    zero[0] = 0x2E;
    zero[1] = 3;
    keyboard.Send(zero);
    fuzz::Expected expected(4);
    for (const std::vector<std::uint8_t>& value : Messages(bytes, size, kLongest)) {
        keyboard.Send(value);
        if (value.size() >= kShortest && value[0] == 0x2E) {
            expected.Add({value.begin() + 1, value.end()});
        }
    }
    Check(fuzz::TakeEvents(keyboard.desk) == expected.Events(),
          "the listener hears what the notifications tell");
    return 0;
}
