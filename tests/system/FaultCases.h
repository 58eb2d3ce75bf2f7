// One way in which one call of a flow can fail: counting the calls, listing the ways, doing it.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "platform/hosted/Kernel.h"
#include "simulator/SimulatedPc.h"

namespace testing_support {

constexpr std::size_t kCallKinds = static_cast<std::size_t>(hosted::Call::kConfiguration) + 1;
enum class RequestKind { kRead, kWrite, kControl, kInterrupt };
constexpr std::size_t kRequestKinds = 4;

/// What a flow does, in numbers. Plain, so that a child process can leave it in shared memory.
struct FlowCounts {
    std::array<unsigned, kCallKinds> calls{};
    std::array<unsigned, kRequestKinds> requests{};
    unsigned allocations = 0;
};

struct FaultCase {
    enum class Way { kRefusedCall, kRequest, kMemory, kBluetooth, kNoBluetooth };
    Way way = Way::kRefusedCall;
    std::size_t kind = 0;  ///< hosted::Call, RequestKind or LinkDockService::BleCall
    unsigned nth = 0;      ///< from 1, counted from the moment that the fault is set
    DWORD code = 0;        ///< kRefusedCall
    std::string action;    ///< kRequest: as a fault plan says it

    std::string Name() const;  ///< "WaitForSingleObject#12=refuse:6"

    /// The device does not come back by itself.
    bool LosesDevice() const;
    /// Nobody can tell: an interrupt or a report that never comes, a thread that the contract says
    /// is not looked at, a Bluetooth client that is not there.
    bool MaySilentlyFail() const;
    /// What may be left over beyond what the flow without a fault leaves.
    hosted::LiveCounts Leftovers() const;
    /// A handle that could not be closed stays, a share of the device with it: there is nothing
    /// that a caller can do, and the flow cannot be asked to work again.
    bool IsFailedClose() const;
};

/// Every case of a flow with these counts.
std::vector<FaultCase> CasesFor(const FlowCounts& counts, bool bluetooth);

/// Counts, and sets the fault if one is given, for its lifetime.
class FaultInjection {
  public:
    FaultInjection(simulator::SimulatedPc& pc, const FaultCase* fault);
    ~FaultInjection();
    FaultInjection(const FaultInjection&) = delete;
    FaultInjection& operator=(const FaultInjection&) = delete;

    FlowCounts Counts() const;

  private:
    simulator::SimulatedPc& m_pc;
    FlowCounts m_counts;
};

}  // namespace testing_support
