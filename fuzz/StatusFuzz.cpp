// Any interrupt statuses of an spb4 chip, of any length, through the interrupt thread and the
// deferred call thread. The first byte of an input picks the chip kind.
#include <algorithm>
#include <optional>
#include <utility>

#include "fuzz/Host.h"
#include "simulator/FanliChip.h"
#include "simulator/SpbDriver.h"

namespace {

constexpr std::size_t kStatusSize = 9;
// 30 ms to read it, 100 if it fails.
constexpr emulation::Micros kBetween = 200 * emulation::kMillisecond;
constexpr emulation::Micros kLongestVisit = 8000 * emulation::kMillisecond;  // 21 polls of 350 ms

/// Answers the next read with the bytes of the input, in place of the chip.
class StatusDriver : public simulator::SpbDriver {
  public:
    using SpbDriver::SpbDriver;
    DWORD Start(const emulation::RequestPtr& request) override {
        if (!status || request->kind() != emulation::Request::Kind::kRead) {
            return SpbDriver::Start(request);
        }
        emulation::After(0, [request, bytes = *std::exchange(status, {})] {
            request->Complete(bytes.data(), std::min(bytes.size(), request->length()));
        });
        return ERROR_IO_PENDING;
    }
    std::optional<simulator::Bytes> status;
};

struct Pc {
    Pc() { emulation::AddDevice(simulator::kSpbDriverPath, driver); }

    void UseChip(std::uint8_t newIdentity) {
        if (newIdentity != std::exchange(identity, newIdentity)) {
            chip->BackDoor().SetMemory(0, {identity});
            setup->Start();
            fuzz::PcWithHost::Pass(emulation::kSecond);
        }
    }

    void Raise(const simulator::Bytes& status) {
        driver->status = status;
        chip->BackDoor().RaiseInterrupt();
        fuzz::PcWithHost::Pass(kBetween);
        Check(!driver->status && driver->WaitsPending() == 1,
              "the status is fetched, and the interrupt thread waits for the next one");
    }

    std::uint8_t identity = 0;
    std::shared_ptr<simulator::Chip> chip = simulator::MakeChip("fanli");
    std::shared_ptr<StatusDriver> driver = std::make_shared<StatusDriver>(chip);
    std::unique_ptr<fuzz::PcWithHost> setup = fuzz::MakeDesk({});
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static Pc pc;
    if (size == 0) {
        return 0;
    }
    const bool like = bytes[0] % 2 != 0;
    pc.UseChip(like ? simulator::kLikeFanliIdentity : simulator::kFanliIdentity);
    std::size_t enters = 0;
    std::size_t starts = 0;
    for (const simulator::Bytes& status : Messages(bytes + 1, size - 1, kStatusSize)) {
        pc.Raise(status);
        if (status.size() == kStatusSize) {
            enters += !like && status[0] == simulator::kStatusEnterField ? 1 : 0;
            starts += like || status[0] == simulator::kStatusMcuStart ? 1 : 0;
        }
    }
    fuzz::PcWithHost::Pass(kLongestVisit);
    std::vector<int> visits;
    for (const auto& [event, route, number] : fuzz::TakeEvents(*pc.setup)) {
        Check(route == 1, "the route is the driver's");
        if (event == 4) {
            --starts;
        } else {
            visits.push_back(event);
            Check(event == (visits.size() % 2 != 0 ? 3 : 1), "enter and leave take turns");
        }
    }
    Check(starts == 0, "an event 4 for each start of the processor, and no other");
    Check(visits.size() % 2 == 0, "a visit ends");
    Check(visits.size() / 2 <= enters && visits.empty() == (enters == 0),
          "visits are what enters open");
    return 0;
}
