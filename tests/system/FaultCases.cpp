#include "tests/system/FaultCases.h"

#include <gtest/gtest.h>

#include "platform/LinkDockBackDoor.h"
#include "tests/system/FailingNew.h"

using hosted::Call;
using LinkDockService::BleCall;

namespace testing_support {

namespace {

constexpr DWORD kInvalidHandle = 6;
constexpr DWORD kNoMemory = 8;
constexpr DWORD kIoDevice = 1117;
constexpr DWORD kNotConnected = 1167;

struct RefusedCall {
    Call call;
    std::vector<DWORD> codes;
};

// Sleep cannot fail, and no flow of these reads the configuration.
const std::vector<RefusedCall>& RefusedCalls() {
    static const std::vector<RefusedCall> calls{
        {Call::kCreateEvent, {kNoMemory}},
        {Call::kCreateThread, {kNoMemory}},
        {Call::kSetEvent, {kInvalidHandle}},
        {Call::kResetEvent, {kInvalidHandle}},
        {Call::kWait, {kInvalidHandle}},
        {Call::kCloseHandle, {kInvalidHandle}},
        {Call::kCreateFile, {2, 5, 32}},
        {Call::kReadFile, {kIoDevice, kNotConnected}},
        {Call::kWriteFile, {kIoDevice, kNotConnected}},
        {Call::kDeviceIoControl, {1, kNotConnected}},
        {Call::kGetOverlappedResult, {996, kIoDevice}},
        {Call::kCancelIoEx, {1168}},
        {Call::kEnumerate, {259, 31}},
        {Call::kHid, {31}},
    };
    return calls;
}

constexpr const char* kRequestNames[kRequestKinds] = {"read", "write", "control", "interrupt"};
constexpr const char* kTransferActions[] = {"fail:1117", "short:1", "late:100", "never", "gone"};
constexpr const char* kControlActions[] = {"fail:1117", "late:100", "never", "gone"};

constexpr const char* kBleNames[] = {"BleClientConnect", "BleClientDisConnect",
                                     "BleClientSubscribeNotify", "BleClientUnsubscribeNotify",
                                     "BleClientWrite"};
// No flow makes more calls of one kind that its own retries do not repeat.
constexpr unsigned kBleCallsTried = 4;

std::size_t KindOf(const hosted::Request& request) {
    switch (request.kind()) {
        case hosted::Request::Kind::kRead:
            return static_cast<std::size_t>(RequestKind::kRead);
        case hosted::Request::Kind::kWrite:
            return static_cast<std::size_t>(RequestKind::kWrite);
        case hosted::Request::Kind::kControl:
            break;
    }
    return static_cast<std::size_t>(request.controlCode() == simulator::kControlInterrupt
                                        ? RequestKind::kInterrupt
                                        : RequestKind::kControl);
}

}  // namespace

std::string FaultCase::Name() const {
    const std::string number = "#" + std::to_string(nth);
    switch (way) {
        case Way::kRefusedCall:
            return hosted::Name(static_cast<Call>(kind)) + number +
                   "=refuse:" + std::to_string(code);
        case Way::kRequest:
            return kRequestNames[kind] + number + "=" + action;
        case Way::kMemory:
            return "new" + number;
        case Way::kBluetooth:
            return kBleNames[kind] + number;
        case Way::kNoBluetooth:
            break;
    }
    return "no Bluetooth client";
}

bool FaultCase::LosesDevice() const {
    return way == Way::kRequest && (action == "gone" || action == "never");
}

bool FaultCase::MaySilentlyFail() const {
    switch (way) {
        case Way::kRequest:
            return action == "never";
        case Way::kRefusedCall:
            return static_cast<Call>(kind) == Call::kCreateThread;
        default:
            return way == Way::kNoBluetooth;
    }
}

bool FaultCase::IsFailedClose() const {
    return way == Way::kRefusedCall && static_cast<Call>(kind) == Call::kCloseHandle;
}

hosted::LiveCounts FaultCase::Leftovers() const {
    constexpr hosted::LiveCounts kWaitingThread{2, 1, 1};  // with its handle, event and request
    hosted::LiveCounts left;
    if (way == Way::kRequest) {
        // A keyboard refuses the interrupt wait as a rule; this one keeps it.
        const bool waits = static_cast<RequestKind>(kind) == RequestKind::kInterrupt;
        return waits && action == "never" ? kWaitingThread : left;
    }
    if (way != Way::kRefusedCall) {
        return left;
    }
    switch (static_cast<Call>(kind)) {
        case Call::kCancelIoEx:  // its request cannot be left, so the thread waits for the end
            return kWaitingThread;
        case Call::kCreateThread:  // a deferred call thread let go of, until its next wake-up
            left.threads = 1;
            break;
        case Call::kCreateEvent:  // a thread that could not begin, until the next start
        case Call::kEnumerate:    // the release of a list or of preparsed data
        case Call::kHid:
            left.handles = 1;
            break;
        default:
            break;
    }
    return left;
}

std::vector<FaultCase> CasesFor(const FlowCounts& counts, bool bluetooth) {
    std::vector<FaultCase> cases;
    for (const RefusedCall& refused : RefusedCalls()) {
        const auto kind = static_cast<std::size_t>(refused.call);
        for (unsigned nth = 1; nth <= counts.calls[kind]; ++nth) {
            for (const DWORD code : refused.codes) {
                cases.push_back({FaultCase::Way::kRefusedCall, kind, nth, code, {}});
            }
        }
    }
    for (std::size_t kind = 0; kind < kRequestKinds; ++kind) {
        const bool transfer = kind <= static_cast<std::size_t>(RequestKind::kWrite);
        const std::vector<const char*> actions =
            transfer
                ? std::vector<const char*>(std::begin(kTransferActions), std::end(kTransferActions))
                : std::vector<const char*>(std::begin(kControlActions), std::end(kControlActions));
        for (unsigned nth = 1; nth <= counts.requests[kind]; ++nth) {
            for (const char* const action : actions) {
                cases.push_back({FaultCase::Way::kRequest, kind, nth, 0, action});
            }
        }
    }
    for (unsigned nth = 1; nth <= counts.allocations; ++nth) {
        cases.push_back({FaultCase::Way::kMemory, 0, nth, 0, {}});
    }
    for (std::size_t kind = 0; bluetooth && kind < std::size(kBleNames); ++kind) {
        for (unsigned nth = 1; nth <= kBleCallsTried; ++nth) {
            cases.push_back({FaultCase::Way::kBluetooth, kind, nth, 0, {}});
        }
    }
    if (bluetooth) {
        cases.push_back({FaultCase::Way::kNoBluetooth, 0, 1, 0, {}});
    }
    return cases;
}

FaultInjection::FaultInjection(simulator::SimulatedPc& pc, const FaultCase* fault) : m_pc(pc) {
    FaultCase::Way way = FaultCase::Way::kRefusedCall;
    std::size_t kind = kCallKinds;
    unsigned nth = 0;
    DWORD code = 0;
    if (fault != nullptr) {
        way = fault->way;
        kind = fault->kind;
        nth = fault->nth;
        code = fault->code;
    }
    switch (way) {
        case FaultCase::Way::kRequest: {
            std::string problem;
            const auto plan = simulator::FaultPlan::Parse(fault->Name(), problem);
            EXPECT_TRUE(plan.has_value()) << problem;
            m_pc.Faults(*plan);
            break;
        }
        case FaultCase::Way::kBluetooth:
            LinkDockService::FailCall(static_cast<BleCall>(kind), nth);
            break;
        case FaultCase::Way::kNoBluetooth:
            LinkDockService::SetNoInstance(true);
            break;
        default:
            break;
    }
    const bool refuses = way == FaultCase::Way::kRefusedCall;
    hosted::SetCallHook([this, refuses, kind, nth, code](Call call, hosted::ThreadId) -> DWORD {
        const auto which = static_cast<std::size_t>(call);
        const unsigned seen = ++m_counts.calls[which];
        return refuses && which == kind && seen == nth ? code : 0;
    });
    hosted::SetTracer([this](const hosted::TraceEvent& event) {
        if (event.kind == hosted::TraceEvent::Kind::kStart) {
            ++m_counts.requests[KindOf(*event.request)];
        }
    });
    FailAllocation(way == FaultCase::Way::kMemory ? nth : 0);
}

FaultInjection::~FaultInjection() {
    FailAllocation(0);
    hosted::SetTracer({});
    hosted::SetCallHook({});
    LinkDockService::SetNoInstance(false);
    LinkDockService::ClearFaults();
}

FlowCounts FaultInjection::Counts() const {
    const hosted::DeviceLock lock;
    FlowCounts counts = m_counts;
    counts.allocations = AllocationsSeen();
    return counts;
}

}  // namespace testing_support
