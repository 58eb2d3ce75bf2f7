// Any interrupt statuses of an spb4 chip, of any length, through the interrupt thread and the
// deferred call thread. The first byte of an input picks the chip kind.
#include "fuzz/Check.h"
#include "fuzz/Host.h"
#include "simulator/FanliChip.h"
#include "simulator/SpbDriver.h"

namespace {

constexpr std::size_t kStatusSize = 9;
constexpr hosted::Micros kBetween = 200 * hosted::kMillisecond;  // 30 to read it, 100 if it fails
constexpr hosted::Micros kLongestVisit = 8000 * hosted::kMillisecond;  // 21 polls of 350 ms

/// Answers the next read with the bytes of the input, in place of the chip.
class StatusDriver : public simulator::SpbDriver {
  public:
    using SpbDriver::SpbDriver;
    DWORD Start(const hosted::RequestPtr& request) override {
        if (!armed || request->kind() != hosted::Request::Kind::kRead) {
            return SpbDriver::Start(request);
        }
        armed = false;
        hosted::After(0, [request, bytes = status] {
            request->Complete(bytes.data(), std::min(bytes.size(), request->length()));
        });
        return ERROR_IO_PENDING;
    }
    std::vector<std::uint8_t> status;
    bool armed = false;
};

struct Pc {
    Pc() {
        desk.log.Announce("");
        hosted::AddDevice(simulator::kSpbDriverPath, driver);
        UseChip(simulator::kFanliIdentity);
    }

    void UseChip(std::uint8_t identity) {
        if (identity != std::exchange(m_identity, identity)) {
            {
                const hosted::DeviceLock lock;
                chip->BackDoor().SetMemory(0, {identity});
            }
            desk.Start();
            fuzz::Desk::Pass(hosted::kSecond);
        }
    }

    void Raise(const std::vector<std::uint8_t>& status) {
        {
            const hosted::DeviceLock lock;
            driver->status = status;
            driver->armed = true;
            chip->BackDoor().RaiseInterrupt();
        }
        fuzz::Desk::Pass(kBetween);
        const hosted::DeviceLock lock;
        Check(!driver->armed, "the status is fetched");
        Check(driver->WaitsPending() == 1, "the interrupt thread waits for the next one");
    }

    std::shared_ptr<simulator::Chip> chip = simulator::MakeChip("fanli");
    std::shared_ptr<StatusDriver> driver = std::make_shared<StatusDriver>(chip);
    const bool clock = fuzz::StartClock();
    fuzz::Desk desk{{}};

  private:
    std::uint8_t m_identity = 0;
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
    for (const std::vector<std::uint8_t>& status : Messages(bytes + 1, size - 1, kStatusSize)) {
        pc.Raise(status);
        if (status.size() == kStatusSize) {
            enters += !like && status[0] == simulator::kStatusEnterField ? 1 : 0;
            starts += like || status[0] == simulator::kStatusMcuStart ? 1 : 0;
        }
    }
    fuzz::Desk::Pass(kLongestVisit);
    std::size_t visits = 0;
    bool inField = false;
    for (const auto& [event, route, number] : fuzz::TakeEvents(pc.desk)) {
        Check(route == 1, "the route is the driver's");
        if (event == 4) {
            Check(starts-- > 0, "an event 4 for each start of the processor, and no other");
            continue;
        }
        Check(event == (inField ? 1 : 3), "enter and leave take turns");
        inField = !inField;
        visits += inField ? 1 : 0;
    }
    Check(starts == 0, "each start of the processor is told");
    Check(!inField, "a visit ends");
    Check(visits <= enters && (visits > 0) == (enters > 0), "visits are what enters open");
    return 0;
}
