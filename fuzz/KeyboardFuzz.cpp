// Any messages of a keyboard: input reports (HID) through the read thread, or notifications
// (Bluetooth) through the client's thread. TAGPORT_FUZZ_ROUTE says which.
#include <algorithm>

#include "fuzz/Host.h"
#include "simulator/HidDriver.h"

using fuzz::PcWithHost;
using simulator::Bytes;
using simulator::PcRoute;

namespace {

constexpr PcRoute kRoute = PcRoute::TAGPORT_FUZZ_ROUTE;
constexpr bool kHid = kRoute == PcRoute::kHid;
constexpr std::size_t kLongest = kHid ? simulator::kReportSize : 255;
constexpr std::size_t kType = kHid ? 5 : 1;  // the place of the type byte
constexpr std::size_t kShortest = 4;         // notification
const Bytes kEnter{0x02, 0x6E, 0xE6};
const Bytes kLeave{0x02, 0xE6, 0x6E};
const Bytes kNumber{0x03};

/// The frame from its type byte on, empty for a message that is ignored.
Bytes FrameOf(const Bytes& message, Bytes& report) {
    if (kHid) {
        // A report may be short: the read thread's buffer keeps what the one before left there.
        std::copy(message.begin(), message.end(), report.begin());
        return {report.begin() + kType, report.end()};
    }
    const bool good = message.size() >= kShortest && message[0] == simulator::kFrameMark;
    return good ? Bytes(message.begin() + kType, message.end()) : Bytes();
}

bool Begins(const Bytes& frame, const Bytes& start) {
    return frame.size() >= start.size() && std::equal(start.begin(), start.end(), frame.begin());
}

void Settle(PcWithHost& setup) {
    PcWithHost::Pass(emulation::kMillisecond);
    Check(!kHid || setup.pc.hid()->ReadsPending() == 1,
          "the read thread waits for the next report");
}

/// One by one, or all at once. The first message makes the number zero.
void Try(PcWithHost& setup, const std::vector<Bytes>& messages, bool atOnce) {
    constexpr int kNumberedRoute = static_cast<int>(kRoute) + 1;
    Bytes report(kLongest);
    testing_support::Number number{};
    std::vector<fuzz::Event> expected;
    for (const Bytes& message : messages) {
        kHid ? setup.pc.keyboard()->SendRaw(message) : setup.pc.bluetooth()->SendRaw(message);
        if (!atOnce) {
            Settle(setup);
        }
        const Bytes frame = FrameOf(message, report);
        if (Begins(frame, kNumber) && frame.size() > number.size()) {
            std::copy_n(frame.begin() + 1, number.size(), number.begin());
        } else if (Begins(frame, kEnter)) {
            expected.emplace_back(3, kNumberedRoute, number);
        } else if (Begins(frame, kLeave)) {
            expected.emplace_back(1, kNumberedRoute, number);
        }
    }
    Settle(setup);
    Check(fuzz::TakeEvents(setup) == expected, "the listener hears what the messages mean");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static const auto setup = fuzz::MakeDesk({kRoute});
    std::vector<Bytes> messages = Messages(bytes, size, kLongest);
    Bytes zero(kHid ? kLongest : kType + 1 + simulator::kNumberSize);
    zero[0] = simulator::kFrameMark;
    zero[kType] = simulator::kTypeNumber;
    messages.insert(messages.begin(), zero);
    Try(*setup, messages, false);
    if (!kHid || messages.size() <= simulator::kInputQueueLength) {  // else reports are dropped
        Try(*setup, messages, true);
    }
    return 0;
}
