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

struct RefusedCall {
    Call call;
    std::vector<DWORD> codes;
};

// Sleep cannot fail, and no flow of these reads the configuration.
const RefusedCall kRefusedCalls[] = {
    {Call::kCreateEvent, {8}},
    {Call::kCreateThread, {8}},
    {Call::kSetEvent, {6}},
    {Call::kResetEvent, {6}},
    {Call::kWait, {6}},
    {Call::kCloseHandle, {6}},
    {Call::kCreateFile, {2, 5, 32}},
    {Call::kReadFile, {1117, 1167}},
    {Call::kWriteFile, {1117, 1167}},
    {Call::kDeviceIoControl, {1, 1167}},
    {Call::kGetOverlappedResult, {996, 1117}},
    {Call::kCancelIoEx, {1168}},
    {Call::kEnumerate, {259, 31}},
    {Call::kHid, {31}},
};

enum RequestKind : std::size_t { kRead, kWrite, kControl, kInterrupt };
constexpr const char* kRequestNames[kRequestKinds] = {"read", "write", "control", "interrupt"};
const std::string kActions[] = {"fail:1117", "short:1", "late:100", "never", "gone"};
const std::string kLastingActions[] = {"fail:1117", "short:1", "never"};

constexpr const char* kBleNames[kClientCalls] = {"BleClientConnect", "BleClientDisConnect",
                                                 "BleClientSubscribeNotify",
                                                 "BleClientUnsubscribeNotify", "BleClientWrite"};
constexpr std::size_t kBleWrite = static_cast<std::size_t>(LinkDockService::BleCall::kWrite);
constexpr std::size_t kBleConnect = static_cast<std::size_t>(LinkDockService::BleCall::kConnect);
constexpr unsigned kWritesTried = 9;  // what three times three tries make of one

// Beyond the 3 s that the library waits for an answer.
constexpr hosted::Micros kLateAnswer = 3500 * hosted::kMillisecond;
// Between a request that has been sent and its answer.
constexpr hosted::Micros kBehindRequest = 1 * hosted::kMillisecond;

simulator::KeyboardTag* TagOf(simulator::SimulatedPc& pc) {
    return pc.bluetooth() != nullptr ? static_cast<simulator::KeyboardTag*>(pc.bluetooth())
                                     : pc.keyboard();
}

// One case for each of `count` calls.
void AddNumbered(std::vector<FaultCase>& cases, const std::string& name, unsigned count,
                 const std::string& fault, FaultCase one) {
    for (one.nth = 1; one.nth <= count; ++one.nth) {
        one.name = name + "#" + std::to_string(one.nth) + fault;
        cases.push_back(one);
    }
}

void AddRefused(std::vector<FaultCase>& cases, const FlowCounts& counts) {
    for (const RefusedCall& refused : kRefusedCalls) {
        const auto kind = static_cast<std::size_t>(refused.call);
        FaultCase one;
        one.refused = refused.call;
        one.reached = [kind](const FlowCounts& now, unsigned nth) {
            return now.calls[kind] >= nth;
        };
        one.isFailedClose = refused.call == Call::kCloseHandle;
        for (const DWORD code : refused.codes) {
            one.code = code;
            AddNumbered(cases, hosted::Name(refused.call), counts.calls[kind],
                        "=refuse:" + std::to_string(code), one);
        }
    }
}

void AddSpoiled(std::vector<FaultCase>& cases, const FlowCounts& counts, bool hid) {
    for (std::size_t kind = 0; kind < kRequestKinds; ++kind) {
        const unsigned count = counts.requests[kind];
        const bool isReport = hid && kind == kRead;
        const auto base = [&](const std::string& action) {
            FaultCase one;
            one.set = [](Desk& desk, const FaultCase& self) { desk.SetFaults(self.name); };
            one.reached = [](const FlowCounts& now, unsigned) { return now.spoiled > 0; };
            // Everywhere else the time-out is told, and the device works on.
            const bool waitsForEver = action == "never" && (kind == kInterrupt || isReport);
            one.maySilentlyFail = waitsForEver;
            one.losesDevice = waitsForEver || action == "gone";
            return one;
        };
        const auto makesSense = [kind](const std::string& action) {
            return action != "short:1" || kind < kControl;
        };
        for (const std::string& action : kActions) {
            if (makesSense(action)) {
                AddNumbered(cases, kRequestNames[kind], count, "=" + action, base(action));
            }
        }
        for (const std::string& action : kLastingActions) {
            FaultCase one = base(action);
            one.lasts = true;
            // Nobody looks how much of a write was taken; reports and interrupts are asked for in
            // advance, so the first ones still come.
            one.mustFail =
                kind < kInterrupt && !isReport && (action != "short:1" || kind != kWrite);
            for (const unsigned first : {1U, count / 2 + 1}) {
                if (makesSense(action) && first <= count && (first == 1 || count > 1)) {
                    one.nth = first;
                    one.name = kRequestNames[kind] + ("#" + std::to_string(first) + "+=" + action);
                    cases.push_back(one);
                }
            }
        }
    }
}

void AddClient(std::vector<FaultCase>& cases, const FlowCounts& counts) {
    for (std::size_t kind = 0; kind < kClientCalls; ++kind) {
        FaultCase one;
        const auto fail = [kind](unsigned nth, unsigned calls) {
            for (unsigned i = 0; i < calls; ++i) {
                LinkDockService::FailCall(static_cast<LinkDockService::BleCall>(kind), nth + i);
            }
        };
        // A call that fails does not reach the keyboard.
        one.reached = [kind](const FlowCounts& now, unsigned nth) {
            return now.client[kind] + 1 >= nth;
        };
        one.set = [fail](Desk&, const FaultCase& self) { fail(self.nth, 1); };
        AddNumbered(cases, kBleNames[kind], counts.client[kind], "", one);
        if (kind == kBleWrite) {
            one.set = [fail](Desk&, const FaultCase& self) { fail(self.nth, kWritesTried); };
            one.lasts = true;
            one.mustFail = true;
            AddNumbered(cases, kBleNames[kind], counts.client[kind], "+", one);
        }
    }
    if (counts.client[kBleConnect] > 0) {
        FaultCase one;
        one.name = "no Bluetooth client";
        one.reached = [](const FlowCounts& now, unsigned) { return now.client[kBleConnect] == 0; };
        one.set = [](Desk&, const FaultCase&) { LinkDockService::SetNoInstance(true); };
        one.maySilentlyFail = true;
        cases.push_back(one);
    }
}

// What a keyboard does that takes a request and does not answer it as it should.
void AddAnswers(std::vector<FaultCase>& cases, bool bluetooth) {
    FaultCase one;
    one.reached = [](const FlowCounts& now, unsigned) {
        return now.client[kBleConnect] + now.client[kBleWrite] + now.requests[kWrite] > 0;
    };
    one.lasts = true;
    const auto add = [&](const char* name, std::function<void(simulator::SimulatedPc&)> set) {
        one.name = name;
        one.set = [set = std::move(set)](Desk& desk, const FaultCase&) {
            const hosted::DeviceLock lock;
            set(desk.pc);
        };
        cases.push_back(one);
    };
    // One that comes too late for its request is taken for the next one's on Bluetooth.
    add("answer=late", [](auto& pc) { TagOf(pc)->SetAnswerLatency(kLateAnswer); });
    one.mustFail = true;
    add("answer=never", [](auto& pc) { TagOf(pc)->SetAnswers(false); });
    if (!bluetooth) {
        return;
    }
    add("answer=short", [](auto& pc) {
        pc.bluetooth()->SetAnswers(false);
        pc.bluetooth()->SendNumber(simulator::Bytes(simulator::kNumberSize - 1), kBehindRequest);
    });
    one.losesDevice = true;
    add("link=dropped", [](auto& pc) { pc.bluetooth()->DropLink(); });
    add("link=dropped later", [](auto& pc) {
        hosted::After(kBehindRequest, [keyboard = pc.bluetooth()] { keyboard->DropLink(); });
    });
}

// What the fault injection counts from its beginning on, as it stands by now.
FlowCounts CountsOf(Desk& desk) {
    FlowCounts counts;
    if (simulator::BluetoothKeyboard* const keyboard = desk.pc.bluetooth()) {
        const simulator::LinkCounters& link = keyboard->Counters();
        counts.client = {link.connects, link.disconnects, link.subscribes, link.unsubscribes,
                         link.writes};
    }
    if (simulator::FaultyDriver* const driver = desk.pc.faulty()) {
        counts.spoiled = driver->FaultsHit();
    }
    return counts;
}

}  // namespace

std::vector<FaultCase> CasesFor(const FlowCounts& counts, simulator::PcRoute route) {
    std::vector<FaultCase> cases;
    AddRefused(cases, counts);
    const bool hid = route == simulator::PcRoute::kHid;
    AddSpoiled(cases, counts, hid);
    FaultCase one;
    one.set = [](Desk&, const FaultCase& self) { FailAllocation(self.nth); };
    one.reached = [](const FlowCounts& now, unsigned nth) { return now.allocations >= nth; };
    AddNumbered(cases, "new", counts.allocations, "", one);
    if (route == simulator::PcRoute::kBle) {
        AddClient(cases, counts);
    }
    if (counts.client[kBleWrite] > 0 || (hid && counts.requests[kWrite] > 0)) {
        AddAnswers(cases, !hid);
    }
    return cases;
}

FaultInjection::FaultInjection(Desk& desk, const FaultCase& fault) : m_desk(desk) {
    FailAllocation(0);
    {
        const hosted::DeviceLock lock;
        m_before = CountsOf(desk);
    }
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
    if (simulator::KeyboardTag* const keyboard = TagOf(m_desk.pc)) {
        const hosted::DeviceLock lock;
        keyboard->SetAnswers(true);
        keyboard->SetAnswerLatency(simulator::kDefaultAnswerLatency);
    }
}

FlowCounts FaultInjection::Counts() const {
    const hosted::DeviceLock lock;
    FlowCounts counts = m_counts;
    counts.allocations = g_allocations;
    const FlowCounts now = CountsOf(m_desk);
    for (std::size_t kind = 0; kind < kClientCalls; ++kind) {
        counts.client[kind] = now.client[kind] - m_before.client[kind];
    }
    counts.spoiled = now.spoiled - m_before.spoiled;
    return counts;
}

}  // namespace testing_support
