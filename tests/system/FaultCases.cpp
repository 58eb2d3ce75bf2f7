#include "tests/system/FaultCases.h"

#include <atomic>
#include <new>
#include <set>

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

// Sleep cannot fail, and no flow of these reads the configuration.
const std::pair<Call, std::vector<DWORD>> kRefusedCalls[] = {
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

// What can become of a request that is pending.
struct Ending {
    std::string action;
    bool alsoAll = true;         // also of all requests from the first or the middle one on
    bool transfersOnly = false;  // of reads and writes
};
const Ending kEndings[] = {
    {"fail:1117"}, {"short:1", true, true}, {"late:100", false}, {"never"}, {"gone", false}};

// By simulator::LinkCall, which has the order of LinkDockService::BleCall.
constexpr const char* kBleNames[] = {"BleClientConnect", "BleClientDisConnect",
                                     "BleClientSubscribeNotify", "BleClientUnsubscribeNotify",
                                     "BleClientWrite"};
constexpr unsigned kWritesTried = 9;  // what three times three tries make of one

// Beyond the 3 s that the library waits for an answer.
constexpr hosted::Micros kLateAnswer = 3500 * hosted::kMillisecond;
// Between a request that has been sent and its answer.
constexpr hosted::Micros kAfterRequest = 1 * hosted::kMillisecond;

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
    for (const auto& [call, codes] : kRefusedCalls) {
        const auto kind = static_cast<std::size_t>(call);
        FaultCase one;
        one.refused = call;
        one.reached = [kind](const FlowCounts& now, unsigned nth) {
            return now.calls[kind] >= nth;
        };
        for (const DWORD code : codes) {
            one.code = code;
            AddNumbered(cases, hosted::Name(call), counts.calls[kind],
                        "=refuse:" + std::to_string(code), one);
        }
    }
}

void AddSpoiled(std::vector<FaultCase>& cases, std::size_t kind, unsigned count, bool isReport) {
    for (const auto& [action, alsoAll, transfersOnly] : kEndings) {
        if (transfersOnly && kind != kRead && kind != kWrite) {
            continue;
        }
        FaultCase one;
        one.set = [](PcWithHost& setup, const FaultCase& self) { setup.SetFaults(self.name); };
        one.reached = [](const FlowCounts& now, unsigned) { return now.spoiled > 0; };
        // Everywhere else the time-out is reported, and the device works on.
        one.maySilentlyFail = action == "never" && (kind == kInterrupt || isReport);
        one.losesDevice = one.maySilentlyFail || action == "gone";
        AddNumbered(cases, kRequestNames[kind], count, "=" + action, one);
        one.lasts = true;
        // Nobody looks how much of a write was taken; reports and interrupts are asked for in
        // advance, so the first ones still come.
        one.mustFail = kind != kInterrupt && !isReport && (action != "short:1" || kind != kWrite);
        for (const unsigned first : std::set<unsigned>{1U, count / 2 + 1}) {
            if (alsoAll && first <= count) {
                one.nth = first;
                one.name = kRequestNames[kind] + ("#" + std::to_string(first) + "+=" + action);
                cases.push_back(one);
            }
        }
    }
}

void AddClient(std::vector<FaultCase>& cases, const FlowCounts& counts) {
    for (std::size_t kind = 0; kind < std::size(kBleNames); ++kind) {
        for (const unsigned failures : {1U, kWritesTried}) {
            FaultCase one;
            one.set = [kind, failures](PcWithHost&, const FaultCase& self) {
                for (unsigned i = 0; i < failures; ++i) {
                    LinkDockService::FailCall(static_cast<LinkDockService::BleCall>(kind),
                                              self.nth + i);
                }
            };
            // A call that fails does not reach the keyboard.
            one.reached = [kind](const FlowCounts& now, unsigned nth) {
                return now.client[kind] + 1 >= nth;
            };
            one.lasts = one.mustFail = failures > 1;
            if (failures == 1 || kind == simulator::kLinkWrite) {
                AddNumbered(cases, kBleNames[kind], counts.client[kind], one.lasts ? "+" : "", one);
            }
        }
    }
    if (counts.client[simulator::kLinkConnect] > 0) {
        FaultCase one;
        one.name = "no Bluetooth client";
        one.set = [](PcWithHost&, const FaultCase&) { LinkDockService::SetNoInstance(true); };
        one.maySilentlyFail = true;
        cases.push_back(one);
    }
}

// A keyboard that does not answer as it should (where the flow `asks`), or goes out of range.
void AddKeyboard(std::vector<FaultCase>& cases, bool bluetooth, bool asks) {
    FaultCase one;
    one.lasts = true;
    const auto add = [&](const char* name, std::function<void(simulator::SimulatedPc&)> set) {
        one.name = name;
        one.set = [set = std::move(set)](PcWithHost& setup, const FaultCase&) {
            const hosted::DeviceLock lock;
            set(setup.pc);
        };
        cases.push_back(one);
    };
    if (asks) {
        // One that comes too late for its request is taken for the next one's on Bluetooth.
        add("answer=late", [](auto& pc) { TagOf(pc)->SetAnswerLatency(kLateAnswer); });
        one.mustFail = true;
        add("answer=never", [](auto& pc) { TagOf(pc)->SetAnswers(false); });
    }
    if (asks && bluetooth) {
        add("answer=short", [](auto& pc) {
            pc.bluetooth()->SetAnswers(false);
            pc.bluetooth()->SendNumber(simulator::Bytes(simulator::kNumberSize - 1), kAfterRequest);
        });
    }
    if (bluetooth) {
        one.losesDevice = one.mustFail = true;
        one.maySilentlyFail = !asks;  // a phone that nobody hears of any more
        add("link=dropped", [](auto& pc) { pc.bluetooth()->DropLink(); });
        add("link=dropped later", [](auto& pc) {
            hosted::After(kAfterRequest, [keyboard = pc.bluetooth()] { keyboard->DropLink(); });
        });
    }
}

}  // namespace

std::vector<FaultCase> CasesFor(const FlowCounts& counts, simulator::PcRoute route) {
    std::vector<FaultCase> cases;
    AddRefused(cases, counts);
    const bool hid = route == simulator::PcRoute::kHid;
    for (std::size_t kind = 0; kind < kRequestKinds; ++kind) {
        AddSpoiled(cases, kind, counts.requests[kind], hid && kind == kRead);
    }
    FaultCase one;
    one.set = [](PcWithHost&, const FaultCase& self) { FailAllocation(self.nth); };
    one.reached = [](const FlowCounts& now, unsigned nth) { return now.allocations >= nth; };
    AddNumbered(cases, "new", counts.allocations, "", one);
    const bool bluetooth = route == simulator::PcRoute::kBle;
    if (bluetooth) {
        AddClient(cases, counts);
    }
    const bool asks =
        counts.client[simulator::kLinkWrite] > 0 || (hid && counts.requests[kWrite] > 0);
    if (asks || (bluetooth && counts.client == simulator::LinkCalls{})) {
        AddKeyboard(cases, bluetooth, asks);
    }
    return cases;
}

FlowCounts RunUnder(PcWithHost& setup, const FaultCase& fault, const std::function<void()>& act) {
    FlowCounts counts;
    FailAllocation(0);
    const simulator::BluetoothKeyboard* const bluetooth = setup.pc.bluetooth();
    const auto before = bluetooth == nullptr ? simulator::LinkCalls{} : bluetooth->Calls();
    if (fault.set) {
        fault.set(setup, fault);
    }
    hosted::SetCallHook([&](Call call, hosted::ThreadId) -> DWORD {
        const unsigned seen = ++counts.calls[static_cast<std::size_t>(call)];
        return fault.Refuses(call) && seen == fault.nth ? fault.code : 0;
    });
    hosted::SetTracer([&](const hosted::TraceEvent& event) {
        if (event.kind == hosted::TraceEvent::Kind::kStart) {
            const hosted::Request& request = *event.request;
            ++counts.requests[request.controlCode() == simulator::kControlInterrupt
                                  ? kInterrupt
                                  : static_cast<std::size_t>(request.kind())];
        }
    });
    act();
    FlowCounts ofAct;
    {
        const hosted::DeviceLock lock;
        ofAct = counts;
        ofAct.allocations = g_allocations;
        ofAct.spoiled = setup.pc.faulty() == nullptr ? 0 : setup.pc.faulty()->FaultsHit();
        for (std::size_t kind = 0; bluetooth != nullptr && kind < before.size(); ++kind) {
            ofAct.client[kind] = bluetooth->Calls()[kind] - before[kind];
        }
    }
    PcWithHost::Pass(kSettle);
    FailAllocation(0);
    hosted::SetTracer({});
    hosted::SetCallHook({});
    LinkDockService::SetNoInstance(false);
    LinkDockService::ClearFaults();
    if (simulator::KeyboardTag* const keyboard = TagOf(setup.pc)) {
        const hosted::DeviceLock lock;
        keyboard->SetAnswers(true);
        keyboard->SetAnswerLatency(simulator::kDefaultAnswerLatency);
    }
    return ofAct;
}

}  // namespace testing_support
