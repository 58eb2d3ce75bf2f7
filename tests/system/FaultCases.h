// One way in which one call of a flow can fail: counting the calls, listing the ways, causing it.
#pragma once

#include <array>
#include <functional>
#include <string>
#include <vector>

#include "platform/hosted/Kernel.h"
#include "tests/support/PcWithHost.h"

namespace testing_support {

constexpr hosted::Micros kSettle = 30 * hosted::kSecond;  // until nothing is under way any more
constexpr std::size_t kCallKinds = static_cast<std::size_t>(hosted::Call::kConfiguration) + 1;
constexpr std::size_t kRequestKinds = 4;  // read, write, control, interrupt

/// What a flow does, in numbers. Plain, so that a child process can leave it in shared memory.
struct FlowCounts {
    std::array<unsigned, kCallKinds> calls{};
    std::array<unsigned, kRequestKinds> requests{};
    simulator::LinkCalls client{};  ///< of the Bluetooth client, that reached the keyboard
    unsigned allocations = 0;
    std::size_t spoiled = 0;  ///< requests that the fault plan named
};

/// Without a name nothing fails.
struct FaultCase {
    std::string name;  ///< "WaitForSingleObject#12=refuse:6"
    unsigned nth = 0;  ///< from 1, counted from the moment that the fault is set
    std::function<void(PcWithHost&, const FaultCase&)> set = {};  ///< all but refused calls
    hosted::Call refused = hosted::Call::kWait;
    DWORD code = 0;  ///< that the call is refused with; 0: none is
    std::function<bool(const FlowCounts&, unsigned nth)> reached =
        {};  ///< null: it holds from the start on

    /// It stays until the flow is over, so that trying again takes longer, and helps only where
    /// `mustFail` is not set.
    bool lasts = false;
    bool mustFail = false;
    /// The device does not come back by itself.
    bool losesDevice = false;
    /// Nobody can know: an interrupt or a report that never comes, a Bluetooth client that is not
    /// there.
    bool maySilentlyFail = false;

    bool Refuses(hosted::Call call) const { return code != 0 && refused == call; }
};

/// Every case of a flow with these counts.
std::vector<FaultCase> CasesFor(const FlowCounts& counts, simulator::PcRoute route);

/// Runs `act` under the fault, which stays until what `act` has started is over. The counts are
/// those of `act` alone.
FlowCounts RunUnder(PcWithHost& setup, const FaultCase& fault, const std::function<void()>& act);

}  // namespace testing_support
