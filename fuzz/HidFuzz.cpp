// Any input reports of the HID keyboard, through the read thread. A report may be short; the read
// thread's buffer then keeps what the one before left there.
#include <algorithm>

#include "fuzz/Check.h"
#include "fuzz/Host.h"
#include "simulator/HidDriver.h"

namespace {

constexpr std::size_t kReportSize = 64;
constexpr std::size_t kType = 5;

struct Keyboard {
    Keyboard() {
        desk.Start();
        fuzz::Desk::Pass(hosted::kSecond);
    }

    void Put(const std::vector<std::uint8_t>& report) {
        const hosted::DeviceLock lock;
        desk.pc.keyboard()->SendRaw(report);
    }

    void Settle() {
        fuzz::Desk::Pass(hosted::kMillisecond);
        const hosted::DeviceLock lock;
        Check(desk.pc.hid()->ReadsPending() == 1, "the read thread waits for the next report");
    }

    const bool clock = fuzz::StartClock();
    fuzz::Desk desk{{simulator::PcRoute::kHid}};
};

/// One behind another, or all at once, as many as the driver keeps.
void Try(Keyboard& keyboard, const std::vector<std::vector<std::uint8_t>>& reports, bool atOnce) {
    // A whole report with a zero number: from here on buffer and number are known.
    std::vector<std::uint8_t> buffer(kReportSize);
    buffer[kType] = 3;
    keyboard.Put(buffer);
    keyboard.Settle();
    fuzz::Expected expected(3);
    for (const std::vector<std::uint8_t>& report : reports) {
        keyboard.Put(report);
        if (!atOnce) {
            keyboard.Settle();
        }
        std::copy(report.begin(), report.end(), buffer.begin());
        expected.Add({buffer.begin() + kType, buffer.end()});
    }
    keyboard.Settle();
    Check(fuzz::TakeEvents(keyboard.desk) == expected.Events(),
          "the listener hears what the reports tell");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static Keyboard keyboard;
    const auto reports = Messages(bytes, size, kReportSize);
    Try(keyboard, reports, false);
    if (reports.size() <= simulator::kInputQueueLength) {
        Try(keyboard, reports, true);
    }
    return 0;
}
