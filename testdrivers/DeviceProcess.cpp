// tagport-devices: holds the simulated devices of a Windows PC for the test drivers. Commands come
// as lines on standard input, and each gets one line on standard output: "ok", maybe with a result,
// or "error" with the reason. Lines that begin with "phone" or "bus" come at any time.
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <deque>
#include <iostream>
#include <iterator>
#include <limits>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/emulation/Kernel.h"
#include "simulator/Pc.h"
#include "testdrivers/DeviceLines.h"
#include "testdrivers/DriverService.h"
#include "testdrivers/NtStatus.h"
#include "testdrivers/RelayDevices.h"
#include "testdrivers/hid/HidInstall.h"

namespace {

using simulator::FaultPlan;
using simulator::FaultTarget;
using simulator::Micros;
using simulator::Pc;

constexpr int kExitFailed = 1;
constexpr int kExitWrongCall = 2;
constexpr char kUsage[] =
    "usage: tagport-devices              take commands from standard input; \"help\" lists them\n"
    "       tagport-devices --load       register the test drivers beside this program and start\n"
    "                                    them\n"
    "       tagport-devices --unload     stop the test drivers and remove them\n"
    "Exit status: 0 done, 1 with the reason when not, 2 for a wrong call.\n";
constexpr wchar_t kRelayDriver[] = L"tagport-relay";  // service; the file is NAME.sys

void Say(const std::string& line) {
    static std::mutex& mutex = *new std::mutex;  // timers may still run when the process ends
    const std::lock_guard<std::mutex> guard(mutex);
    std::fputs((line + "\n").c_str(), stdout);
    std::fflush(stdout);
}

// A command and its arguments; each call takes the next one. Throws std::invalid_argument for one
// that is wrong.
class Words {
  public:
    explicit Words(const std::string& line) {
        std::istringstream in(line);
        m_words.assign(std::istream_iterator<std::string>(in), {});
    }

    std::ptrdiff_t Left() const { return static_cast<std::ptrdiff_t>(m_words.size()); }
    std::string Text(const char* otherwise = "") {
        if (m_words.empty()) {
            return otherwise;
        }
        const std::string word = m_words.front();
        m_words.pop_front();
        return word;
    }
    unsigned long Number(const char* what, unsigned long most, int base = 10) {
        const std::string word = Text();
        const char* const end = word.data() + word.size();
        unsigned long number = 0;
        const auto [last, error] = std::from_chars(word.data(), end, number, base);
        if (error != std::errc() || last != end || number > most) {
            throw std::invalid_argument(std::string(what) + " \"" + word + "\": a number up to " +
                                        std::to_string(most) + " is needed");
        }
        return number;
    }
    Micros Milliseconds(const char* what) {
        constexpr unsigned long kLongest = 1'000'000'000;
        return static_cast<Micros>(Number(what, kLongest)) * emulation::kMillisecond;
    }

  private:
    std::deque<std::string> m_words;
};

void Report(const simulator::PhoneReport& report) {
    Say(simulator::LineOf(report));
}

simulator::PcRoute RouteOf(const std::string& name) {
    const auto* const kind = simulator::FindKind(simulator::kRouteKinds, name);
    // The Bluetooth client is a part of the host's process: its keyboard cannot be here.
    if (kind == nullptr || !kind->IsDevice()) {
        throw std::invalid_argument("route \"" + name + "\": i2c, usb or hid is needed");
    }
    return kind->route;
}

// The requests of a chip's route that end in the host's call: those that the plan refuses, the
// first such entry of each kind; and on the USB route what the plan leaves alone of those that take
// no time at the chip, the opening of the peripheral and the two bytes of an address.
RelayRules RulesOf(simulator::PcRoute route, const FaultPlan& plan) {
    constexpr std::uint32_t kAddressSize = 2;
    constexpr std::uint32_t kAlways = std::numeric_limits<std::uint32_t>::max();
    constexpr std::pair<FaultTarget, RelayRule> kUsbRules[TAGPORT_RELAY_MOST_RULES] = {
        {FaultTarget::kRead, {kRelayRead, 0, 0, 0, 0, 0}},
        {FaultTarget::kWrite, {kRelayWrite, 0, kAddressSize, 0, kAlways, 0}},
        {FaultTarget::kControl, {kRelayControl, simulator::kControlOpen, 0, 0, kAlways, 0}},
        {FaultTarget::kInterrupt, {kRelayControl, simulator::kControlInterrupt, 0, 0, 0, 0}}};
    const bool isUsb = route == simulator::PcRoute::kUsb;
    RelayRules rules = {};
    rules.device = isUsb ? kRelayUsb : kRelayI2c;
    RelayRule* rule = rules.rules;
    for (const auto& [target, usbRule] : kUsbRules) {
        const auto fault = std::find_if(
            plan.faults.begin(), plan.faults.end(), [wanted = target](const simulator::Fault& one) {
                return one.target == wanted || one.target == FaultTarget::kAny;
            });
        if (fault == plan.faults.end()) {
            *rule = isUsb ? usbRule : RelayRule{};
        } else if (fault->target == target && fault->action == simulator::FaultAction::kRefuse) {
            const std::uint32_t before = fault->first - 1;
            *rule = {usbRule.kind, usbRule.controlCode,  0,
                     before,       fault->last - before, simulator::StatusOf(fault->value)};
        }
        ++rule;
    }
    return rules;
}

class BackDoor {
  public:
    /// The result of a command, for the line after "ok".
    std::string Do(const std::string& line) {
        Words words(line);
        const std::string name = words.Text();
        const auto command =
            std::find_if(kCommands.begin(), kCommands.end(),
                         [&](const Command& one) { return name == Words(one.form).Text(); });
        if (command == kCommands.end()) {
            throw std::invalid_argument("there is no command \"" + name +
                                        "\"; \"help\" lists them");
        }
        if (m_pc == nullptr && command->needsPc) {
            throw std::invalid_argument("there is no PC: \"pc ROUTES [CHIP]\" is needed before");
        }
        const std::string form = command->form;
        const auto most = Words(form).Left() - 1;
        const auto least = most - std::count(form.begin(), form.end(), '[');
        if (words.Left() < least || (words.Left() > most && form.find("...") == form.npos)) {
            throw std::invalid_argument("the command is: " + form);
        }
        m_result.clear();
        (this->*command->run)(words);
        return m_result;
    }

    bool IsClosed() const { return m_closed; }

  private:
    struct Command {
        const char* form;  // a word for each argument; "[" begins one that can be left out
        bool needsPc;
        void (BackDoor::*run)(Words& words);
    };
    static const std::vector<Command> kCommands;

    void Help(Words& /*words*/) {
        std::string text;
        for (const Command& command : kCommands) {
            text += (text.empty() ? "" : " | ") + std::string(command.form);
        }
        m_result = text;
    }
    void CreatePc(Words& words) {
        if (m_pc != nullptr) {
            throw std::invalid_argument("there is a PC already");
        }
        std::vector<simulator::PcRoute> routes;
        std::istringstream list(words.Text());
        for (std::string name; std::getline(list, name, ',');) {
            routes.push_back(RouteOf(name));
        }
        m_pc = new Pc(routes, words.Text("fm11nt081"));
        m_routes = routes;
        SendRules();
    }
    void Tap(Words& words) {
        const Micros in = words.Milliseconds("time");
        const Micros stay = words.Milliseconds("stay");
        const std::string name = words.Text();
        if (m_pc->TapPhone(name.empty() ? m_routes.front() : RouteOf(name), in, stay, Report) ==
            nullptr) {
            throw std::invalid_argument("the PC has no tag on the " + name + " route");
        }
    }
    void Enter(Words& words) { m_pc->HoldPhone(words.Milliseconds("time"), Report); }
    void Leave(Words& words) { m_pc->TakePhone(words.Milliseconds("time")); }
    void Send(Words& words) {
        const Micros in = words.Milliseconds("time");
        if (m_pc->keyboard() == nullptr) {
            throw std::invalid_argument("the PC has no keyboard");
        }
        m_pc->SendFromKeyboard(simulator::PcRoute::kHid, in, simulator::BytesOf(words.Text()));
    }
    simulator::ChipBackDoor& Chip() {
        if (m_pc->chip() == nullptr) {
            throw std::invalid_argument("the PC has no chip");
        }
        return m_pc->chip()->BackDoor();
    }
    void ChipStatus(Words& words) {
        const Micros in = words.Milliseconds("time");
        const auto status = static_cast<std::uint8_t>(words.Number("status", 0xFF));
        emulation::After(in, [&chip = Chip(), status] {
            if (!chip.RaiseStatus(emulation::Now(), status, 0)) {
                Say("note this chip has no status");
            }
        });
    }
    void ChipBits(Words& words) {
        constexpr unsigned long kLastRegister = 0xFFFF;
        const auto reg = static_cast<unsigned>(words.Number("register", kLastRegister, 16));
        const auto mask = static_cast<std::uint8_t>(words.Number("mask", 0xFF, 16));
        const auto value = static_cast<std::uint8_t>(words.Number("value", 0xFF, 16));
        const emulation::DeviceLock lock;
        if (!Chip().StickBits(reg, mask, value)) {
            throw std::invalid_argument("only FM11N chips have such bits");
        }
    }
    void Fault(Words& words) {
        std::string text = words.Text();
        while (words.Left() > 0) {
            text += " " + words.Text();
        }
        std::string error;
        const auto plan = FaultPlan::Parse(text == "none" ? "" : text, error);
        if (!plan) {
            throw std::invalid_argument("\"" + text + "\": " + error);
        }
        m_pc->Faults(*plan);
        m_plan = *plan;
        SendRules();
    }
    void SendRules() {
        for (const simulator::PcRoute route : m_routes) {
            if (!simulator::KindOf(route).IsKeyboard()) {
                emulation::SetRules(RulesOf(route, m_plan));
            }
        }
    }
    void Cancel(Words& /*words*/) {
        Chip();
        const emulation::DeviceLock lock;
        m_pc->faulty()->Close();
    }
    void Unplug(Words& /*words*/) { m_pc->Unplug(); }
    void Plug(Words& /*words*/) {
        m_pc->Plug();
        SendRules();
    }
    void Memory(Words& /*words*/) {
        const emulation::DeviceLock lock;
        m_result = simulator::HexOf(m_pc->TagMemory());
    }
    void Status(Words& /*words*/) {
        const emulation::DeviceLock lock;
        std::ostringstream text;
        text << "faults=" << (m_pc->faulty() == nullptr ? 0 : m_pc->faulty()->FaultsHit());
        if (m_pc->spb() != nullptr) {
            const simulator::ChipCounters& counters = m_pc->chip()->BackDoor().Counters();
            text << " waits=" << m_pc->spb()->WaitsPending()
                 << " violations=" << m_pc->spb()->Violations() << " writes=" << counters.writes
                 << " reads=" << counters.reads << " early=" << counters.earlyReads
                 << " lost=" << counters.lostWrites << " malformed=" << counters.malformed;
        }
        m_result = text.str();
    }
    void Bus(Words& words) {
        const std::string state = words.Text();
        if (state != "on" && state != "off") {
            throw std::invalid_argument("\"" + state + "\": on or off is needed");
        }
        emulation::SetTracer(state == "off" ? emulation::Tracer()
                                            : [](const emulation::TraceEvent& event) {
                                                  Say(simulator::LineOf(event));
                                              });
    }

    void Quit(Words& /*words*/) { m_closed = true; }

    std::string m_result;
    bool m_closed = false;
    Pc* m_pc = nullptr;  // never destroyed: the end of the process takes the devices away
    std::vector<simulator::PcRoute> m_routes;
    FaultPlan m_plan;
};

const std::vector<BackDoor::Command> BackDoor::kCommands{
    {"pc ROUTES [CHIP]", false, &BackDoor::CreatePc},
    {"tap IN STAY [ROUTE]", true, &BackDoor::Tap},
    {"enter IN", true, &BackDoor::Enter},
    {"leave IN", true, &BackDoor::Leave},
    {"send IN HEX", true, &BackDoor::Send},
    {"chip-status IN STATUS", true, &BackDoor::ChipStatus},
    {"chip-bits REGISTER MASK VALUE", true, &BackDoor::ChipBits},
    {"fault PLAN...|none", true, &BackDoor::Fault},
    {"cancel", true, &BackDoor::Cancel},
    {"unplug", true, &BackDoor::Unplug},
    {"plug", true, &BackDoor::Plug},
    {"memory", true, &BackDoor::Memory},
    {"status", true, &BackDoor::Status},
    {"bus on|off", false, &BackDoor::Bus},
    {"help", false, &BackDoor::Help},
    {"quit", false, &BackDoor::Quit},
};

void Serve() {
    BackDoor& door = *new BackDoor;
    for (std::string line; !door.IsClosed() && std::getline(std::cin, line);) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        try {
            const std::string result = door.Do(line);
            Say(result.empty() ? "ok" : "ok " + result);
        } catch (const std::exception& problem) {
            Say(std::string("error ") + problem.what());
        }
    }
}

int Load(bool on) {
    try {
        if (on) {
            simulator::LoadDriver(kRelayDriver);
            simulator::InstallHid();
        } else {
            simulator::UnloadDriver(kRelayDriver);
            simulator::RemoveHid();
        }
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "tagport-devices: %s\n", problem.what());
        return kExitFailed;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string option = argc > 1 ? argv[1] : "";
    if (argc > 2 || (argc == 2 && option != "--load" && option != "--unload")) {
        std::fputs(kUsage, stderr);
        return kExitWrongCall;
    }
    if (argc == 2) {
        return Load(option == "--load");
    }
    Serve();
    constexpr Micros kNoticeable = 50 * emulation::kMillisecond;
    if (emulation::LongestLateness() >= kNoticeable) {
        std::fprintf(
            stderr, "tagport-devices: the machine stood still for %lld ms\n",
            static_cast<long long>(emulation::LongestLateness() / emulation::kMillisecond));
    }
    std::fflush(nullptr);
    TerminateProcess(GetCurrentProcess(), 0);  // its threads wait in the drivers
}
