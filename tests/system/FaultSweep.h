// The flows that a host can set off, and the ways in which each call of a flow can fail.
#pragma once

#include <array>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "platform/services/standin/ClientBackDoor.h"
#include "tests/support/PcWithHost.h"

namespace testing_support {

// Until nothing is under way any more.
constexpr emulation::Micros kSettle = 30 * emulation::kSecond;

// What stands on the tag before a flow, what the flow puts there, and what its repetition does.
constexpr std::uint8_t kOld = 0x11;
constexpr std::uint8_t kNew = 0x22;
constexpr std::uint8_t kNewer = 0x33;

struct Peripheral {
    const char* name = "";
    simulator::PcRoute route = {};
    std::string chip = "fm11nt081";
    bool onlyStarts = false;  ///< differs from the others in its start alone
    LinkDockService::DeliveryHabits habits = {};

    bool IsBle() const { return route == simulator::PcRoute::kBle; }
    bool IsHid() const { return route == simulator::PcRoute::kHid; }
    bool IsChip() const { return !IsBle() && !IsHid(); }
};

struct Flow {
    std::string name;
    void (*prepare)(PcWithHost&);                    ///< must work
    bool (*act)(PcWithHost&, std::uint8_t content);  ///< to its end; whether it worked
    std::vector<std::string> success = {};           ///< lines that a success logs, and no failure
    emulation::Micros longest = 0;                   ///< under a fault that lasts
    bool startsDevice = false;  ///< what fails leaves no more than stood before it
    Peripheral on = {};

    /// Nobody answers: it fails, with or without a fault.
    bool IsRefused() const { return startsDevice && on.chip == "silent"; }
};
std::vector<Flow> Flows();

/// For the test framework.
inline void PrintTo(const Flow& flow, std::ostream* out) {
    *out << flow.name;
}

/// What can fail in a flow: the calls by emulation::Call, then these.
enum Counter : std::size_t {
    kRead = static_cast<std::size_t>(emulation::Call::kConfiguration) + 1,  // requests
    kWrite,
    kControl,
    kInterrupt,
    kClient,  // calls of the Bluetooth client that reached the keyboard, by simulator::LinkCall
    kMemory = kClient + simulator::LinkCalls().size(),  // asked for without throwing
    kCopy,                                              // or filling, with bounds
    kCounters
};
/// How often a flow does each. Plain, so that a child process can leave it in shared memory.
using FlowCounts = std::array<unsigned, kCounters>;

/// Without a name nothing fails.
struct FaultCase {
    std::string name;         ///< "WaitForSingleObject#12=refuse:6"
    std::size_t counter = 0;  ///< what fails
    unsigned nth = 0;         ///< which of them, from 1; 0: all
    DWORD code = 0;           ///< that the call is refused with; 0: `set` causes the fault
    std::function<void(PcWithHost&, const FaultCase&)> set = {};
    /// It stays until the flow is over, so that trying again takes longer, and helps only where
    /// `mustFail` is not set.
    bool lasts = false;
    bool mustFail = false;
    bool losesDevice = false;  ///< which does not come back by itself
    /// Nobody can know: an interrupt or a report that never comes, a Bluetooth client that is not
    /// there.
    bool maySilentlyFail = false;

    bool Refuses(emulation::Call call) const {
        return code != 0 && counter == static_cast<std::size_t>(call);
    }
    /// The flow has come to it. A client's call that fails does not reach the keyboard.
    bool IsReached(const FlowCounts& counts) const {
        return counts[counter] + (counter >= kClient && counter < kMemory ? 1 : 0) >= nth;
    }
};
/// Every case of a flow with these counts.
std::vector<FaultCase> CasesFor(const FlowCounts& counts, const Peripheral& on);

/// Runs `act` under the fault, which stays until what `act` has started is over. The counts are
/// those of `act` alone.
FlowCounts RunUnder(PcWithHost& setup, const FaultCase& fault, const std::function<void()>& act);

}  // namespace testing_support
