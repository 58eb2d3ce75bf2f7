// Lists the ways in which a flow can fail, and causes them.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <map>
#include <new>
#include <set>

#include "platform/BoundedMemory.h"
#include "tests/system/FaultSweep.h"

using emulation::Call;

namespace {

// What the program has of its own in place of the ordinary: one of many fails on demand.
struct Failing {
    std::atomic<unsigned> seen{0};  // since the last Fail
    std::atomic<unsigned> due{0};   // the one that fails, from 1; 0 for none

    void Fail(unsigned nth) {
        due = nth;
        seen = 0;
    }
    bool IsDue() { return ++seen == due; }
};
Failing g_allocations;  // operator new(std::nothrow); the throwing one stays as it is
Failing g_copies;       // memcpy_s and memset_s

void* AllocateUnlessDue(void* (*ordinary)(std::size_t), std::size_t size) noexcept {
    try {
        return g_allocations.IsDue() ? nullptr : ordinary(size);
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

namespace platform {

int memcpy_s(void* destination, std::size_t size, const void* source, std::size_t count) {
    // Nobody asks whether a frame has its head, or a message its fields.
    const bool isField = count <= 6 || count == 32;
    if (destination == nullptr || source == nullptr || count > size ||
        (!isField && g_copies.IsDue())) {
        return EINVAL;
    }
    std::memcpy(destination, source, count);
    return 0;
}

int memset_s(void* destination, std::size_t size, int value, std::size_t count) {
    if (g_copies.IsDue() || count > size) {
        return EINVAL;
    }
    std::memset(destination, value, count);
    return 0;
}

}  // namespace platform

namespace testing_support {

namespace {

// Sleep cannot fail, and no flow of these reads the configuration.
const std::map<DWORD, std::vector<Call>> kRefusals{
    {1, {Call::kDeviceIoControl}},
    {2, {Call::kCreateFile}},
    {5, {Call::kCreateFile, Call::kCloseHandle}},
    {6, {Call::kSetEvent, Call::kResetEvent, Call::kWait}},
    {8, {Call::kCreateEvent, Call::kCreateThread}},
    {31, {Call::kEnumerate, Call::kHid}},
    {32, {Call::kCreateFile}},
    {259, {Call::kEnumerate}},
    {996, {Call::kGetOverlappedResult}},
    {1117, {Call::kReadFile, Call::kWriteFile, Call::kGetOverlappedResult}},
    {1167, {Call::kReadFile, Call::kWriteFile, Call::kDeviceIoControl}},
    {1168, {Call::kCancelIoEx}}};

// Memory, threads and devices that do not come back while the flow lasts.
const std::set<DWORD> kLastingRefusals{1, 8, 1167};

constexpr const char* kRequests[] = {"read", "write", "control", "interrupt"};

// What can become of a request that is pending, and whether also of all from the first or the
// middle one on.
const std::pair<std::string, bool> kEndings[] = {
    {"fail:1117", true}, {"short:1", true}, {"late:100", false}, {"never", true}, {"gone", false}};

constexpr const char* kClientCalls[] = {"BleClientConnect", "BleClientDisConnect",
                                        "BleClientSubscribeNotify", "BleClientUnsubscribeNotify",
                                        "BleClientWrite"};
constexpr unsigned kWritesTried = 9;  // what three times three tries make of one

// Beyond the 3 s that the library waits for an answer.
constexpr emulation::Micros kLateAnswer = 3500 * emulation::kMillisecond;
// Between a request that has been sent and its answer.
constexpr emulation::Micros kAfterRequest = 1 * emulation::kMillisecond;

simulator::KeyboardTag* TagOf(simulator::Pc& pc) {
    return pc.bluetooth() != nullptr ? static_cast<simulator::KeyboardTag*>(pc.bluetooth())
                                     : pc.keyboard();
}

// Takes cases made from `one`.
struct Cases {
    const FlowCounts& counts;
    std::vector<FaultCase> all = {};
    FaultCase one = {};

    void Add(const std::string& name) {
        one.name = name;
        all.push_back(one);
    }
    // One for each time that the flow does it.
    void AddEach(std::size_t counter, const std::string& name, const std::string& fault) {
        one.counter = counter;
        for (one.nth = 1; one.nth <= counts[counter]; ++one.nth) {
            Add(name + "#" + std::to_string(one.nth) + fault);
        }
    }
};

void AddRequests(Cases& cases, std::size_t kind, bool isHid) {
    FaultCase& one = cases.one;
    const std::string name = kRequests[kind - kRead];
    const unsigned count = cases.counts[kind];
    // Reports and interrupts are asked for in advance.
    const bool isAhead = kind == kInterrupt || (kind == kRead && isHid);
    for (const auto& [action, alsoAll] : kEndings) {
        if (action == "short:1" && kind != kRead && kind != kWrite) {
            continue;
        }
        one = {};
        one.set = [](PcWithHost& setup, const FaultCase& self) { setup.SetFaults(self.name); };
        // Everywhere else the time-out is reported, and the device works on.
        one.maySilentlyFail = action == "never" && isAhead;
        one.losesDevice = one.maySilentlyFail || action == "gone";
        cases.AddEach(kind, name, "=" + action);
        one.lasts = true;
        // Nobody looks how much of a write was taken.
        one.mustFail = !isAhead && (action != "short:1" || kind != kWrite);
        for (const unsigned first : std::set<unsigned>{1U, count / 2 + 1}) {
            if (alsoAll && first <= count) {
                one.nth = first;
                cases.Add(name + "#" + std::to_string(first) + "+=" + action);
            }
        }
    }
}

void AddClient(Cases& cases) {
    FaultCase& one = cases.one = {};
    for (std::size_t call = 0; call < std::size(kClientCalls); ++call) {
        for (const unsigned failures : {1U, kWritesTried}) {
            one.set = [call, failures](PcWithHost&, const FaultCase& self) {
                for (unsigned i = 0; i < failures; ++i) {
                    LinkDockService::FailCall(static_cast<LinkDockService::BleCall>(call),
                                              self.nth + i);
                }
            };
            one.lasts = one.mustFail = failures > 1;
            if (failures == 1 || call == simulator::kLinkWrite) {
                cases.AddEach(kClient + call, kClientCalls[call], one.lasts ? "+" : "");
            }
        }
    }
    if (cases.counts[std::size_t{kClient} + simulator::kLinkConnect] > 0) {
        one = {};
        one.set = [](PcWithHost&, const FaultCase&) { LinkDockService::SetNoInstance(true); };
        one.maySilentlyFail = true;
        cases.Add("no Bluetooth client");
    }
}

// A keyboard that does not answer as it should (where the flow `asks`), or goes out of range.
void AddKeyboard(Cases& cases, bool isBle, bool asks) {
    FaultCase& one = cases.one = {};
    one.lasts = true;
    const auto add = [&](const char* name, void (*set)(simulator::Pc&)) {
        one.set = [set](PcWithHost& setup, const FaultCase&) {
            const emulation::DeviceLock lock;
            set(setup.pc);
        };
        cases.Add(name);
    };
    if (asks) {
        // One that comes too late for its request is taken for the next one's on Bluetooth.
        add("answer=late", [](auto& pc) { TagOf(pc)->SetAnswerLatency(kLateAnswer); });
        one.mustFail = true;
        add("answer=never", [](auto& pc) { TagOf(pc)->SetAnswers(false); });
    }
    if (asks && isBle) {
        add("answer=short", [](auto& pc) {
            pc.bluetooth()->SetAnswers(false);
            pc.bluetooth()->SendNumber(simulator::Bytes(simulator::kNumberSize - 1), kAfterRequest);
        });
    }
    if (isBle) {
        one.losesDevice = one.mustFail = true;
        one.maySilentlyFail = !asks;  // a phone that nobody hears of any more
        add("link=dropped", [](auto& pc) { pc.bluetooth()->DropLink(); });
        add("link=dropped later", [](auto& pc) {
            emulation::After(kAfterRequest, [keyboard = pc.bluetooth()] { keyboard->DropLink(); });
        });
    }
}

}  // namespace

std::vector<FaultCase> CasesFor(const FlowCounts& counts, const Peripheral& on) {
    Cases cases{counts};
    for (const auto& [code, calls] : kRefusals) {
        cases.one.code = code;
        for (const Call call : calls) {
            for (const bool lasts : {false, true}) {
                cases.one.lasts = lasts;
                if (!lasts || kLastingRefusals.count(code) > 0) {
                    cases.AddEach(static_cast<std::size_t>(call), emulation::Name(call),
                                  (lasts ? "+=refuse:" : "=refuse:") + std::to_string(code));
                }
            }
        }
    }
    for (const std::size_t kind : {kRead, kWrite, kControl, kInterrupt}) {
        AddRequests(cases, kind, on.IsHid());
    }
    cases.one = {};
    cases.one.set = [](PcWithHost&, const FaultCase& self) { g_allocations.Fail(self.nth); };
    cases.AddEach(kMemory, "new", "");
    cases.one.set = [](PcWithHost&, const FaultCase& self) { g_copies.Fail(self.nth); };
    cases.AddEach(kCopy, "copy", "");
    if (on.IsBle()) {
        AddClient(cases);
    }
    const bool asks =
        counts[on.IsHid() ? std::size_t{kWrite} : std::size_t{kClient} + simulator::kLinkWrite] > 0;
    const bool isSilent =
        std::all_of(&counts[kClient], &counts[kMemory], [](unsigned count) { return count == 0; });
    if (asks || (on.IsBle() && isSilent)) {
        AddKeyboard(cases, on.IsBle(), asks);
    }
    return cases.all;
}

FlowCounts RunUnder(PcWithHost& setup, const FaultCase& fault, const std::function<void()>& act) {
    FlowCounts counts{};
    const simulator::BluetoothKeyboard* const bluetooth = setup.pc.bluetooth();
    const auto before = bluetooth == nullptr ? simulator::LinkCalls{} : bluetooth->Calls();
    g_allocations.Fail(0);
    g_copies.Fail(0);
    if (fault.set) {
        fault.set(setup, fault);
    }
    emulation::SetCallHook([&](Call call, emulation::ThreadId) -> DWORD {
        const unsigned seen = ++counts[static_cast<std::size_t>(call)];
        return fault.Refuses(call) && (fault.lasts ? seen >= fault.nth : seen == fault.nth)
                   ? fault.code
                   : 0;
    });
    emulation::SetTracer([&](const emulation::TraceEvent& event) {
        if (event.kind == emulation::TraceEvent::Kind::kStart) {
            const emulation::Request& request = *event.request;
            ++counts[request.controlCode() == simulator::kControlInterrupt
                         ? std::size_t{kInterrupt}
                         : kRead + static_cast<std::size_t>(request.kind())];
        }
    });
    act();
    FlowCounts ofAct;
    {
        const emulation::DeviceLock lock;
        ofAct = counts;
        ofAct[kMemory] = g_allocations.seen;
        ofAct[kCopy] = g_copies.seen;
        for (std::size_t call = 0; bluetooth != nullptr && call < before.size(); ++call) {
            ofAct[kClient + call] = bluetooth->Calls()[call] - before[call];
        }
    }
    PcWithHost::Pass(kSettle);
    g_allocations.Fail(0);
    g_copies.Fail(0);
    emulation::SetTracer({});
    emulation::SetCallHook({});
    LinkDockService::SetNoInstance(false);
    LinkDockService::ClearFaults();
    if (simulator::KeyboardTag* const keyboard = TagOf(setup.pc)) {
        const emulation::DeviceLock lock;
        keyboard->SetAnswers(true);
        keyboard->SetAnswerLatency(simulator::kDefaultAnswerLatency);
    }
    return ofAct;
}

}  // namespace testing_support
