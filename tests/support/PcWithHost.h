// A PC with a tag, and a host on it: what most tests of flows start from.
#pragma once

#include <gtest/gtest.h>
#include <tagport/NfcManager.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/emulation/Kernel.h"
#include "simulator/Pc.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/SeededRuns.h"

namespace testing_support {

using emulation::kMillisecond;
using emulation::kSecond;
using simulator::PcRoute;

using Number = std::array<std::uint8_t, 32>;

/// A number of 32 equal bytes, none of which is zero for a `fill` other than zero.
Number NumberOf(std::uint8_t fill);

/// WriteRandNum and SetRandomNumber with it.
int Renew(NfcManager& manager, const Number& number);
void SetNumber(NdefMessage& message, const Number& number);
Number NumberIn(NdefMessage& message);

/// One call of the listener.
struct ReceivedEvent {
    int event = 0;
    int route = 0;
    Number number{};
    emulation::Micros time = 0;
    emulation::ThreadId thread = 0;
};

/// What the listener heard so far, in order. The listener is `PcWithHost::Listen`.
std::vector<ReceivedEvent> EventsSoFar();
/// The same, and forgets it.
std::vector<ReceivedEvent> TakeEvents();
/// Only the event numbers, of one route or (0) of all.
std::vector<int> EventNumbers(int route = 0);

/// Makes `PcWithHost::Listen` call `reaction` with each event that it has recorded, on the event's
/// own thread. An empty one ends that, as does the end of a PcWithHost.
void ReactToEvents(std::function<void(const ReceivedEvent&)> reaction);

/// Runs `body` on a thread of its own, which nobody joins: see PcWithHost::WaitForThreads.
void OnThread(std::function<void()> body);

/// While it lives, the calls of one kind from the `first` to the `last` fail with `code`.
struct RefusedCalls {
    explicit RefusedCalls(emulation::Call call, unsigned first = 1, unsigned last = ~0U,
                          DWORD code = ERROR_NOT_ENOUGH_MEMORY) {
        emulation::SetCallHook([=](emulation::Call now, emulation::ThreadId) -> DWORD {
            seen += now == call ? 1 : 0;
            return now == call && first <= seen && seen <= last ? code : 0;
        });
    }
    ~RefusedCalls() { emulation::SetCallHook({}); }
    unsigned seen = 0;  ///< of this kind, so far
};

/// The next `count` writes over Bluetooth fail.
void RefuseBleWrites(unsigned count);

/// Every transfer and pause of the run so far: "W 00 10", "R 2", "open request", "sleep 40". The
/// interrupt wait is left out.
class BusRecorder {
  public:
    BusRecorder();  ///< becomes the layer's tracer
    ~BusRecorder();
    Texts Take(emulation::ThreadId thread = 0);  ///< of one or all; forgets them

  private:
    std::vector<std::pair<emulation::ThreadId, std::string>> m_entries;
};

/// Registers the devices, records log and events, and clears both in the end. The lines of a stop
/// are announced. A manager that is still there is ended first.
class PcWithHost : private OneSeed {
  public:
    explicit PcWithHost(const std::vector<PcRoute>& routes, const std::string& chip = "fm11nt081",
                        std::uint8_t pcType = 5);
    ~PcWithHost();

    static void Listen(int event, const std::uint8_t (&number)[32], int route);

    /// A message with a URL of the length that the PC type's register is made for. Number and
    /// all other fields are each made of one byte.
    std::shared_ptr<NdefMessage> NewMessage(std::uint8_t number = 0x11,
                                            std::uint8_t others = 'u') const;

    /// Creates the manager, with a new message if none is given; false when it failed.
    bool Create(std::shared_ptr<NdefMessage> content = nullptr);
    /// The device start, where the PC has a device, and the connections of its keyboards.
    bool StartDevices(NfcManager& with) const;
    /// Create, StartDevices, WriteMessage. Each must work.
    void Start(std::uint8_t number = 0x11);

    /// Waits, on the run's clock, until so many events have been heard or the time is over.
    static bool WaitForEvents(std::size_t count, emulation::Micros timeout) {
        return emulation::WaitFor([=] { return EventsSoFar().size() >= count; }, timeout, "events");
    }
    /// Waits until the threads of WriteRandNum, OnThread and the like have ended: `count` live
    /// ones.
    static bool WaitForThreads(std::size_t count, emulation::Micros timeout = 60 * kSecond) {
        return emulation::WaitFor([=] { return emulation::Live().threads <= count; }, timeout,
                                  "threads");
    }
    /// Lets scheduled time pass.
    static void Pass(emulation::Micros time) {
        emulation::WaitFor([] { return false; }, time, "time");
    }

    /// What stands on the tag from its first byte on, read by the back door: on the chip of the
    /// first driver route, or else of the keyboard.
    std::string ImageOnChip(std::size_t length);
    /// Where the number of this PC type stands on a tag, and which one stands there.
    unsigned NumberRegister() const { return m_pcType == 2 ? 73 : 122; }
    Number NumberOnChip();

    /// Sets the fault plan of the driver routes and of the HID route from its text.
    void SetFaults(const std::string& plan);

    bool Has(PcRoute route) const;

    simulator::Pc pc;
    LogRecorder log;
    std::shared_ptr<NfcManager> manager;
    std::shared_ptr<NdefMessage> message;  ///< the manager's own, as Create was given it

  private:
    std::vector<PcRoute> m_routes;
    std::uint8_t m_pcType;
};

struct StartedPc : PcWithHost {
    explicit StartedPc(const std::vector<PcRoute>& routes, const std::string& chip = "fm11nt081",
                       std::uint8_t pcType = 5)
        : PcWithHost(routes, chip, pcType) {
        Start();
    }
};

/// True when the log has these lines in this order, others between them or not.
bool HasInOrder(const LogRecorder& log, const Texts& texts);

}  // namespace testing_support
