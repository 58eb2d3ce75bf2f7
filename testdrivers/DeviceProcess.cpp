// tagport-devices: holds the simulated devices of a Windows PC for the test drivers. Commands come
// as lines on standard input, and each gets one line on standard output: "ok", maybe with a result,
// or "error" with the reason. Lines that begin with "phone" or "bus" come at any time.
#include <algorithm>
#include <cstdio>
#include <iostream>
#include <map>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/emulation/Kernel.h"
#include "simulator/Pc.h"
#include "testdrivers/DeviceClock.h"
#include "testdrivers/DeviceLines.h"
#include "testdrivers/DriverService.h"
#include "testdrivers/hid/HidInstall.h"

namespace {

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
constexpr char kHelp[] =
    "pc ROUTES [CHIP] | tap IN STAY [ROUTE] | enter IN | leave IN | send IN HEX | chip-status IN "
    "STATUS | "
    "chip-bits REGISTER MASK VALUE | fault PLAN|none | unplug | plug | memory | status | "
    "bus on|off | quit";

constexpr wchar_t kRelayDriver[] = L"tagport-relay";  // service; the file is NAME.sys

void Say(const std::string& line) {
    static std::mutex& mutex = *new std::mutex;  // timers may still run when the process ends
    const std::lock_guard<std::mutex> guard(mutex);
    std::fputs((line + "\n").c_str(), stdout);
    std::fflush(stdout);
}

// The words of a command after the first; throws std::invalid_argument for what is wrong.
class Words {
  public:
    explicit Words(const std::string& line) : m_in(line) { m_in >> m_command; }

    const std::string& command() const { return m_command; }
    std::string Word(const char* what, const char* otherwise = nullptr) {
        std::string word;
        if (m_in >> word) {
            return word;
        }
        if (otherwise == nullptr) {
            throw std::invalid_argument(std::string("the ") + what + " is missing");
        }
        return otherwise;
    }
    unsigned long Number(const char* what, unsigned long most, int base = 10) {
        const std::string word = Word(what);
        std::size_t used = 0;
        unsigned long number = 0;
        try {
            number = std::stoul(word, &used, base);
        } catch (const std::exception&) {
            used = 0;
        }
        if (used != word.size() || word[0] == '-' || number > most) {
            throw std::invalid_argument(std::string(what) + " \"" + word + "\": a number up to " +
                                        std::to_string(most) + " is needed");
        }
        return number;
    }
    Micros Milliseconds(const char* what) {
        constexpr unsigned long kLongest = 1'000'000'000;
        return static_cast<Micros>(Number(what, kLongest)) * emulation::kMillisecond;
    }
    std::string Rest() {
        std::string rest;
        std::getline(m_in >> std::ws, rest);
        return rest;
    }
    void End() {
        std::string word;
        if (m_in >> word) {
            throw std::invalid_argument("\"" + word + "\" is too much");
        }
    }

  private:
    std::istringstream m_in;
    std::string m_command;
};

class BackDoor {
  public:
    /// The result of a command, for the line after "ok".
    std::string Do(const std::string& line) {
        Words words(line);
        const auto found = kCommands.find(words.command());
        if (found == kCommands.end()) {
            throw std::invalid_argument("there is no command \"" + words.command() +
                                        "\"; \"help\" " + "lists them");
        }
        if (m_pc == nullptr && found->second.needsPc) {
            throw std::invalid_argument("there is no PC: \"pc ROUTES [CHIP]\" is needed before");
        }
        return (this->*found->second.run)(words);
    }

  private:
    struct Entry {
        std::string (BackDoor::*run)(Words& words);
        bool needsPc;
    };
    static const std::map<std::string, Entry> kCommands;

    static simulator::PcRoute RouteOf(const std::string& name) {
        const auto* const kind = simulator::FindKind(simulator::kRouteKinds, name);
        // The Bluetooth client is a part of the host's process: its keyboard cannot be here.
        if (kind == nullptr || !kind->IsDevice()) {
            throw std::invalid_argument("route \"" + name + "\": i2c, usb or hid is needed");
        }
        return kind->route;
    }
    static simulator::Phone::Reporter Reporter() {
        return [](const simulator::PhoneReport& report) { Say(simulator::LineOf(report)); };
    }

    std::string Help(Words& /*words*/) { return kHelp; }
    std::string CreatePc(Words& words) {
        if (m_pc != nullptr) {
            throw std::invalid_argument("there is a PC already");
        }
        std::vector<simulator::PcRoute> routes;
        std::istringstream list(words.Word("list of routes"));
        for (std::string name; std::getline(list, name, ',');) {
            routes.push_back(RouteOf(name));
        }
        const std::string chip = words.Word("chip", "fm11nt081");
        words.End();
        m_pc = new Pc(routes, chip);
        m_routes = routes;
        return {};
    }
    std::string Tap(Words& words) {
        const Micros in = words.Milliseconds("time");
        const Micros stay = words.Milliseconds("stay");
        const std::string name = words.Word("route", "");
        words.End();
        const simulator::PcRoute route = name.empty() ? m_routes.front() : RouteOf(name);
        if (std::find(m_routes.begin(), m_routes.end(), route) == m_routes.end()) {
            throw std::invalid_argument("the PC has no tag on the " + name + " route");
        }
        m_pc->TapPhone(route, in, stay, Reporter());
        return {};
    }
    std::string Enter(Words& words) {
        const Micros in = words.Milliseconds("time");
        words.End();
        m_pc->HoldPhone(in, Reporter());
        return {};
    }
    std::string Send(Words& words) {
        const Micros in = words.Milliseconds("time");
        const simulator::Bytes bytes = simulator::BytesOf(words.Word("bytes"));
        words.End();
        if (m_pc->keyboard() == nullptr) {
            throw std::invalid_argument("the PC has no keyboard");
        }
        m_pc->SendFromKeyboard(simulator::PcRoute::kHid, in, bytes);
        return {};
    }
    std::string Leave(Words& words) {
        const Micros in = words.Milliseconds("time");
        words.End();
        m_pc->TakePhone(in);
        return {};
    }
    simulator::ChipBackDoor& Chip() {
        if (m_pc->chip() == nullptr) {
            throw std::invalid_argument("the PC has no chip");
        }
        return m_pc->chip()->BackDoor();
    }
    std::string ChipStatus(Words& words) {
        const Micros in = words.Milliseconds("time");
        const auto status = static_cast<std::uint8_t>(words.Number("status", 0xFF));
        words.End();
        simulator::ChipBackDoor& chip = Chip();
        emulation::After(in, [&chip, status] {
            if (!chip.RaiseStatus(emulation::Now(), status, 0)) {
                Say("note this chip has no status");
            }
        });
        return {};
    }
    std::string ChipBits(Words& words) {
        constexpr unsigned long kLastRegister = 0xFFFF;
        const auto reg = static_cast<unsigned>(words.Number("register", kLastRegister, 16));
        const auto mask = static_cast<std::uint8_t>(words.Number("mask", 0xFF, 16));
        const auto value = static_cast<std::uint8_t>(words.Number("value", 0xFF, 16));
        words.End();
        const emulation::DeviceLock lock;
        if (!Chip().StickBits(reg, mask, value)) {
            throw std::invalid_argument("only FM11N chips have such bits");
        }
        return {};
    }
    std::string Fault(Words& words) {
        const std::string text = words.Rest();
        std::string error;
        const auto plan = simulator::FaultPlan::Parse(text == "none" ? "" : text, error);
        if (!plan) {
            throw std::invalid_argument("\"" + text + "\": " + error);
        }
        m_pc->Faults(*plan);
        return {};
    }
    std::string Unplug(Words& words) {
        words.End();
        m_pc->Unplug();
        return {};
    }
    std::string Plug(Words& words) {
        words.End();
        m_pc->Plug();
        return {};
    }
    std::string Memory(Words& words) {
        words.End();
        const emulation::DeviceLock lock;
        return simulator::HexOf(m_pc->TagMemory());
    }
    std::string Status(Words& words) {
        words.End();
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
        return text.str();
    }
    std::string Bus(Words& words) {
        const std::string state = words.Word("state");
        words.End();
        if (state != "on" && state != "off") {
            throw std::invalid_argument("\"" + state + "\": on or off is needed");
        }
        emulation::SetTracer(state == "off" ? emulation::Tracer()
                                            : [](const emulation::TraceEvent& event) {
                                                  Say(simulator::LineOf(event));
                                              });
        return {};
    }

    Pc* m_pc = nullptr;  // never destroyed: the end of the process takes the devices away
    std::vector<simulator::PcRoute> m_routes;
};

const std::map<std::string, BackDoor::Entry> BackDoor::kCommands{
    {"help", {&BackDoor::Help, false}},         {"pc", {&BackDoor::CreatePc, false}},
    {"bus", {&BackDoor::Bus, false}},           {"tap", {&BackDoor::Tap, true}},
    {"enter", {&BackDoor::Enter, true}},        {"leave", {&BackDoor::Leave, true}},
    {"send", {&BackDoor::Send, true}},          {"chip-status", {&BackDoor::ChipStatus, true}},
    {"chip-bits", {&BackDoor::ChipBits, true}}, {"fault", {&BackDoor::Fault, true}},
    {"unplug", {&BackDoor::Unplug, true}},      {"plug", {&BackDoor::Plug, true}},
    {"memory", {&BackDoor::Memory, true}},      {"status", {&BackDoor::Status, true}},
};

void Serve() {
    BackDoor& door = *new BackDoor;
    for (std::string line; std::getline(std::cin, line);) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line == "quit") {
            Say("ok");
            return;
        }
        try {
            const std::string result = door.Do(line);
            Say(result.empty() ? "ok" : "ok " + result);
        } catch (const std::exception& problem) {
            Say(std::string("error ") + problem.what());
        }
    }
}

std::wstring OwnDirectory() {
    constexpr std::size_t kLongestPath = 32'768;
    std::wstring path(kLongestPath, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), kLongestPath));
    return path.substr(0, path.rfind(L'\\') + 1);
}

int Load(bool on) {
    try {
        if (on) {
            simulator::LoadDriver(kRelayDriver, OwnDirectory() + kRelayDriver + L".sys");
            simulator::InstallHid(OwnDirectory());
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
