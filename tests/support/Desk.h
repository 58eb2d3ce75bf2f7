// A PC with a tag, and a host on it: what most tests of flows start from.
#pragma once

#include <tagport/NfcManager.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/hosted/Kernel.h"
#include "simulator/SimulatedPc.h"
#include "tests/support/LogRecorder.h"

namespace testing_support {

using Number = std::array<std::uint8_t, 32>;

/// A number of 32 equal bytes, none of which is zero for a `fill` other than zero.
Number NumberOf(std::uint8_t fill);

/// One call of the listener.
struct Heard {
    int event = 0;
    int route = 0;
    Number number{};
    hosted::Micros time = 0;
    hosted::ThreadId thread = 0;
};

/// What the listener heard so far, in order. The listener is `Desk::Listen`.
std::vector<Heard> HeardSoFar();
/// Only the event numbers, of one route or (0) of all.
std::vector<int> EventsHeard(int route = 0);

/// Every transfer and pause of the run so far: "W 00 10", "R 2", "IOCTL 04001c00", "sleep 40". The
/// interrupt wait is left out.
class BusRecorder {
  public:
    BusRecorder();  ///< becomes the layer's tracer
    ~BusRecorder();
    std::vector<std::string> Take(hosted::ThreadId thread = 0);  ///< of one or all; forgets them

  private:
    std::vector<std::pair<hosted::ThreadId, std::string>> m_entries;
};

/// Registers the devices, records log and events, and clears both in the end.
class Desk {
  public:
    explicit Desk(const std::vector<simulator::PcRoute>& routes,
                  const std::string& chip = "fm11nt081", std::uint8_t pcType = 5);
    ~Desk();

    static void Listen(int event, const std::uint8_t (&number)[32], int route);

    /// A message with a URL of the length that the PC type's register is made for.
    std::shared_ptr<NdefMessage> NewMessage(std::uint8_t fill = 0x11) const;

    /// Create; false when it failed.
    bool Create();
    /// Create, DeviceInit, the keyboard's connection, WriteMessage. Each must work.
    void Start(std::uint8_t fill = 0x11);

    /// Waits, on the run's clock, until so many events have been heard or the time is over.
    static bool WaitForEvents(std::size_t count, hosted::Micros timeout);
    /// Waits until the thread started by WriteRandNum and the like have ended: `count` live ones.
    static bool WaitForThreads(std::size_t count, hosted::Micros timeout = 60 * hosted::kSecond);
    /// Lets scheduled time pass.
    static void Pass(hosted::Micros time);

    /// The image that stands on the chip of the first driver route, read by the back door.
    std::string ImageOnChip(std::size_t length);
    /// The number at the PC type's register there.
    Number NumberOnChip();

    /// Sets the fault plan of the driver routes and of the HID route from its text.
    void SetFaults(const std::string& plan);

    const std::vector<simulator::PcRoute>& routes() const { return m_routes; }

    simulator::SimulatedPc pc;
    LogRecorder log;
    std::shared_ptr<NfcManager> manager;

  private:
    std::vector<simulator::PcRoute> m_routes;
    std::uint8_t m_pcType;
};

/// The lines of a log that are part of every stop.
void AnnounceStop(LogRecorder& log);

/// The error lines so far, in order.
std::vector<std::string> ErrorsIn(const LogRecorder& log);

/// True when the log has these lines in this order, others between them or not.
bool HasInOrder(const LogRecorder& log, const std::vector<std::string>& texts);

}  // namespace testing_support
