// Any input reports of the HID keyboard, through the read thread. A report may be short; the read
// thread's buffer then keeps what the one before left there.
#include <algorithm>

#include "fuzz/Check.h"
#include "fuzz/Host.h"

namespace {

constexpr std::size_t kReportSize = 64;
constexpr std::size_t kType = 5;

struct Keyboard {
    Keyboard() {
        desk.Start();
        fuzz::Desk::Pass(hosted::kSecond);
    }

    void Send(const std::vector<std::uint8_t>& report) {
        {
            const hosted::DeviceLock lock;
            desk.pc.keyboard()->SendRaw(report);
        }
        fuzz::Desk::Pass(hosted::kMillisecond);
        const hosted::DeviceLock lock;
        Check(desk.pc.hid()->ReadsPending() == 1, "the read thread waits for the next report");
    }

    const bool clock = fuzz::StartClock();
    fuzz::Desk desk{{simulator::PcRoute::kHid}};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static Keyboard keyboard;
    // A whole report with a zero number: from here on buffer and number are known.
    std::vector<std::uint8_t> buffer(kReportSize);
    buffer[kType] = 3;
    keyboard.Send(buffer);
    fuzz::Expected expected(3);
    for (const std::vector<std::uint8_t>& report : Messages(bytes, size, kReportSize)) {
        keyboard.Send(report);
        std::copy(report.begin(), report.end(), buffer.begin());
        expected.Add({buffer.begin() + kType, buffer.end()});
    }
    Check(fuzz::TakeEvents(keyboard.desk) == expected.Events(),
          "the listener hears what the reports tell");
    return 0;
}
