// Any input reports of the HID keyboard, through the read thread. A report may be short; the read
// thread's buffer then keeps what the one before left there.
#include "fuzz/Check.h"
#include "fuzz/Host.h"
#include "simulator/SimulatedPc.h"

namespace {

constexpr std::size_t kReportSize = 64;
constexpr std::size_t kType = 5;

struct Keyboard {
    Keyboard() {
        Check(manager->DeviceInit() && manager->SetMcuKbConnectStatus(true), "the keyboard starts");
        Check(manager->WriteMessage(fuzz::MakeMessage()) == 0, "the message is written");
        fuzz::Pass(hosted::kSecond);
    }

    void Send(const std::vector<std::uint8_t>& report) {
        {
            const hosted::DeviceLock lock;
            pc.keyboard()->SendRaw(report);
        }
        fuzz::Pass(hosted::kMillisecond);
        const hosted::DeviceLock lock;
        Check(pc.hid()->ReadsPending() == 1, "the read thread waits for the next report");
    }

    const bool clock = (fuzz::StartClock(), true);
    simulator::SimulatedPc pc{{simulator::PcRoute::kHid}};
    std::shared_ptr<NfcManager> manager = fuzz::MakeManager();
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static Keyboard keyboard;
    // A whole report with a zero number: from here on buffer and number are known.
    std::vector<std::uint8_t> buffer(kReportSize);
    buffer[kType] = 3;
    keyboard.Send(buffer);
    fuzz::Number number{};
    std::vector<fuzz::Event> expected;
    for (const std::vector<std::uint8_t>& report : Messages(bytes, size, kReportSize)) {
        keyboard.Send(report);
        std::copy(report.begin(), report.end(), buffer.begin());
        if (buffer[kType] == 3) {
            std::copy_n(buffer.begin() + kType + 1, number.size(), number.begin());
        } else if (buffer[kType] == 2 && buffer[kType + 1] == 0x6E && buffer[kType + 2] == 0xE6) {
            expected.push_back({3, 3, number});
        } else if (buffer[kType] == 2 && buffer[kType + 1] == 0xE6 && buffer[kType + 2] == 0x6E) {
            expected.push_back({1, 3, number});
        }
    }
    Check(fuzz::TakeEvents() == expected, "the listener hears what the reports tell");
    return 0;
}
