#include "tests/system/FaultCases.h"

#include <atomic>
#include <new>

#include "platform/LinkDockBackDoor.h"

using hosted::Call;

namespace {

// The program's operator new(std::nothrow) fails on demand; the throwing one stays as it is.
std::atomic<unsigned> g_allocations{0};  // without throwing, since the last FailAllocation
std::atomic<unsigned> g_failing{0};      // the one that fails, from 1; 0 for none

void FailAllocation(unsigned nth) {
    g_failing = nth;
    g_allocations = 0;
}

void* AllocateUnlessDue(void* (*ordinary)(std::size_t), std::size_t size) noexcept {
    try {
        return ++g_allocations == g_failing ? nullptr : ordinary(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

}  // namespace

// What they give is released by the ordinary operator delete of its kind, so it comes from the
// ordinary new of that kind.
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return AllocateUnlessDue(&::operator new, size);
}

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return AllocateUnlessDue(&::operator new[], size);
}

namespace testing_support {

namespace {

constexpr hosted::LiveCounts kWaitingThread{2, 1, 1};  // with its handle, event and request

struct RefusedCall {
    Call call;
    std::vector<DWORD> codes;
    hosted::LiveCounts leftovers = {};
};

// Sleep cannot fail, and no flow of these reads the configuration.
const RefusedCall kRefusedCalls[] = {
    {Call::kCreateEvent, {8}, {1, 0, 0}},   // a thread that could not begin, until the next start
    {Call::kCreateThread, {8}, {0, 1, 0}},  // a deferred call thread let go of, until its wake-up
    {Call::kSetEvent, {6}},
    {Call::kResetEvent, {6}},
    {Call::kWait, {6}},
    {Call::kCloseHandle, {6}},
    {Call::kCreateFile, {2, 5, 32}},
    {Call::kReadFile, {1117, 1167}},
    {Call::kWriteFile, {1117, 1167}},
    {Call::kDeviceIoControl, {1, 1167}},
    {Call::kGetOverlappedResult, {996, 1117}},
    // The request cannot be left, so the thread waits for its end.
    {Call::kCancelIoEx, {1168}, kWaitingThread},
    {Call::kEnumerate, {259, 31}, {1, 0, 0}},  // the release of a list or of preparsed data
    {Call::kHid, {31}, {1, 0, 0}},
};

enum RequestKind : std::size_t { kRead, kWrite, kControl, kInterrupt };
constexpr const char* kRequestNames[kRequestKinds] = {"read", "write", "control", "interrupt"};
const std::string kActions[] = {"fail:1117", "short:1", "late:100", "never", "gone"};

constexpr const char* kBleNames[] = {"BleClientConnect", "BleClientDisConnect",
                                     "BleClientSubscribeNotify", "BleClientUnsubscribeNotify",
                                     "BleClientWrite"};
// No flow makes more calls of one kind that its own retries do not repeat.
constexpr unsigned kBleCallsTried = 4;

// One case for each of `count` calls.
void AddNumbered(std::vector<FaultCase>& cases, const std::string& name, unsigned count,
                 const std::string& fault, FaultCase one) {
    for (one.nth = 1; one.nth <= count; ++one.nth) {
        one.name = name + "#" + std::to_string(one.nth) + fault;
        cases.push_back(one);
    }
}

}  // namespace

std::vector<FaultCase> CasesFor(const FlowCounts& counts, bool bluetooth) {
    std::vector<FaultCase> cases;
    for (const RefusedCall& refused : kRefusedCalls) {
        FaultCase one;
        one.refused = refused.call;
        one.leftovers = refused.leftovers;
        one.maySilentlyFail = refused.call == Call::kCreateThread;
        one.isFailedClose = refused.call == Call::kCloseHandle;
        for (const DWORD code : refused.codes) {
            one.code = code;
            AddNumbered(cases, hosted::Name(refused.call),
                        counts.calls[static_cast<std::size_t>(refused.call)],
                        "=refuse:" + std::to_string(code), one);
        }
    }
    for (std::size_t kind = 0; kind < kRequestKinds; ++kind) {
        for (const std::string& action : kActions) {
            if (action == "short:1" && kind >= kControl) {
                continue;
            }
            FaultCase one;
            one.set = [](Desk& desk, const FaultCase& self) { desk.SetFaults(self.name); };
            one.maySilentlyFail = action == "never";
            one.losesDevice = action == "never" || action == "gone";
            if (action == "never" && kind == kInterrupt) {
                // A keyboard refuses the interrupt wait as a rule; this one keeps it.
                one.leftovers = kWaitingThread;
            }
            AddNumbered(cases, kRequestNames[kind], counts.requests[kind], "=" + action, one);
        }
    }
    FaultCase one;
    one.set = [](Desk&, const FaultCase& self) { FailAllocation(self.nth); };
    AddNumbered(cases, "new", counts.allocations, "", one);
    for (std::size_t kind = 0; bluetooth && kind < std::size(kBleNames); ++kind) {
        one.set = [kind](Desk&, const FaultCase& self) {
            LinkDockService::FailCall(static_cast<LinkDockService::BleCall>(kind), self.nth);
        };
        AddNumbered(cases, kBleNames[kind], kBleCallsTried, "", one);
    }
    if (bluetooth) {
        one.set = [](Desk&, const FaultCase&) { LinkDockService::SetNoInstance(true); };
        one.maySilentlyFail = true;
        AddNumbered(cases, "no Bluetooth client", 1, "", one);
    }
    return cases;
}

FaultInjection::FaultInjection(Desk& desk, const FaultCase& fault) {
    FailAllocation(0);
    if (fault.set) {
        fault.set(desk, fault);
    }
    hosted::SetCallHook([this, &fault](Call call, hosted::ThreadId) -> DWORD {
        const unsigned seen = ++m_counts.calls[static_cast<std::size_t>(call)];
        return call == fault.refused && seen == fault.nth ? fault.code : 0;
    });
    hosted::SetTracer([this](const hosted::TraceEvent& event) {
        if (event.kind == hosted::TraceEvent::Kind::kStart) {
            const hosted::Request& request = *event.request;
            ++m_counts.requests[request.controlCode() == simulator::kControlInterrupt
                                    ? kInterrupt
                                    : static_cast<std::size_t>(request.kind())];
        }
    });
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
    counts.allocations = g_allocations;
    return counts;
}

}  // namespace testing_support
