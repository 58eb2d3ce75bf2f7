// Keeps what was done, and derives the state of the library from it.
#include "lab/RunHistory.h"

#include <algorithm>

#include "lab/Hex.h"
#include "lab/Words.h"

namespace lab {

namespace {

constexpr double kLongestListener = 10'000;  // its pause and its calls of the manager
constexpr char kRenewalFailed[] = "LocalWriteRand failed";
constexpr char kWritten[] = " Chip Successful";  // the end of each flow's line after its write
constexpr char kNumber[] = "number";
constexpr char kNoFaults[] = "none";

bool IsFault(Verb verb) {
    return IsOneOf(verb, {Verb::kFault, Verb::kPlug, Verb::kUnplug});
}

// Waits, expectations and the like do nothing at the library or the device.
bool IsAct(const Command& command) {
    return !IsOneOf(command.verb, {Verb::kWait, Verb::kJoin, Verb::kPc, Verb::kRepeat,
                                   Verb::kExpectEvent, Verb::kExpectResult, Verb::kListener});
}

}  // namespace

bool StartsManager(Verb verb) {
    return IsOneOf(verb, {Verb::kStart, Verb::kRestart});
}

bool OpensDevice(Verb verb) {
    return IsOneOf(verb, {Verb::kOpen, Verb::kInit, Verb::kConnect});
}

bool MayPut(Verb verb) {
    return StartsManager(verb) || OpensDevice(verb) ||
           IsOneOf(verb, {Verb::kWrite, Verb::kRenew, Verb::kUpdate});
}

void RunHistory::Begin(const Command& command, double now) {
    m_latest = &command;
    if (command.verb == Verb::kListener) {
        m_listenersManager = command.manager;
    }
    if (!IsAct(command)) {
        return;
    }
    Fields& content = m_content[command.manager];
    Done& done = m_running[command.host];
    done = {&command, now + static_cast<double>(command.in.value_or(0))};
    done.failedBefore = m_failedWrites;
    const bool creates = StartsManager(command.verb) || command.verb == Verb::kCreate;
    done.replaces =
        (creates || command.verb == Verb::kStop) && m_present.count(command.manager) > 0;
    if (creates || IsOneOf(command.verb, {Verb::kWrite, Verb::kUpdate})) {
        for (const auto& [name, value] : command.fields) {
            content[name] = value;
        }
    }
    if (StartsManager(command.verb) || command.verb == Verb::kWrite) {
        done.puts = content;
    } else if (command.verb == Verb::kUpdate) {
        done.puts = command.fields;
    } else if (command.verb == Verb::kRenew && !command.argument.empty()) {
        done.puts[kNumber] = command.argument;
    }
    if (MayPut(command.verb)) {
        // Without a number of its own it writes the number of its manager.
        Give(done.Puts(kNumber) ? done.puts[kNumber] : content[kNumber], now);
    }
    if (creates) {
        m_present.insert(command.manager);
        m_managers.insert(command.manager);
    }
    if (command.verb == Verb::kFault) {
        m_planned = m_planned || command.argument != kNoFaults;
        m_swallowed = m_swallowed || command.argument.find("never") != std::string::npos;
    }
    m_unplugged = m_unplugged || command.verb == Verb::kUnplug;
}

const Done* RunHistory::End(const Player::Step& step, double now) {
    const Command& command = step.command;
    Done& running = m_running[command.host];
    if (!IsAct(command) || running.command != &command) {
        return nullptr;
    }
    Done done = running;
    running = {};
    if (command.verb == Verb::kStop) {
        m_present.erase(command.manager);
    }
    if (IsFault(command.verb)) {
        m_planned = m_planned && command.argument != kNoFaults;
        m_unplugged = m_unplugged && command.verb != Verb::kPlug;
        m_swallowed = m_swallowed && command.verb == Verb::kFault;
        m_faultEnd = now;
    }
    if (MayPut(command.verb) && !step.succeeded) {
        return nullptr;  // nobody was there who could do it
    }
    done.worked = step.succeeded.value_or(true);
    done.end = std::max(done.begin, now);
    if (done.worked && command.verb == Verb::kRenew) {
        m_content[command.manager][kNumber] = done.puts[kNumber];
    }
    NoteReleases(done);
    m_ended.push_back(std::move(done));
    return &m_ended.back();
}

// A host or a listener that still works with a manager which another releases ends it, and with it
// the threads of all, when it has done. The thread of a renewal holds no manager that could end
// them.
void RunHistory::NoteReleases(Done& done) {
    done.overlapsRelease = done.replaces && Any(m_events, [&](double event) {
                               return event >= done.begin - kLongestListener;
                           });
    for (Done& other : m_ended) {
        if (other.begin <= done.end && other.end >= done.begin) {
            done.overlapsRelease = done.overlapsRelease || other.replaces;
            other.overlapsRelease = other.overlapsRelease || done.replaces;
        }
    }
}

void RunHistory::Take(const Json& object) {
    const std::string kind = object["kind"];
    if (kind == "event") {
        m_events.push_back(object["t"]);
        m_failedAtEvent[object["thread"]] = m_failedWrites;
    } else if (kind == "log") {
        const auto& line = object["line"].get_ref<const std::string&>();
        const bool isPartial = m_hidLeftOut && line.find(kWritten) != std::string::npos;
        m_failedWrites += isPartial || line.rfind(kRenewalFailed, 0) == 0 ? 1 : 0;
    } else if (kind == "result") {
        TakeResult(object);
    }
}

Done* RunHistory::RunningOn(const std::string& thread) {
    for (std::size_t host = 0; host < m_running.size(); ++host) {
        const std::string suffix = host == 0 ? "" : " " + std::to_string(host);
        if (thread == kHostThread + suffix && m_running[host].command != nullptr) {
            return &m_running[host];
        }
    }
    return nullptr;
}

void RunHistory::TakeResult(const Json& object) {
    const std::string operation = object["operation"];
    const double now = object["t"];
    if (operation == "Init" && object.contains(kNumber)) {
        for (auto& content : m_content) {
            content["url"] = object["url"];
            for (const char* name : {"mac", kNumber, "model"}) {
                content[name] = FromHex(object[name].get<std::string>(), "Init");
            }
        }
        Done& done = m_running[0];
        if (done.command != nullptr && StartsManager(done.verb())) {
            done.puts = m_content[done.manager()];
            Give(done.puts[kNumber], now);
        }
    }
    if (operation == "SetMcuKbConnectStatus" && object["result"] == true) {
        const Done* const done = RunningOn(object["thread"]);
        m_hidLeftOut = done != nullptr && done->verb() == Verb::kDisconnect;
    }
    if (operation != "WriteRandNum") {
        return;
    }
    const std::string number = FromHex(object[kNumber].get<std::string>(), "WriteRandNum");
    if (!object.contains("listener")) {
        // A number that the host has drawn.
        Done* const done = RunningOn(object["thread"]);
        if (done != nullptr && done->verb() == Verb::kRenew && !done->Puts(kNumber)) {
            done->puts[kNumber] = number;
            Give(number, now);
        }
        return;
    }
    Command& renewal = m_listenersRenewals.emplace_back();
    renewal.line = m_latest->line;
    renewal.text = "a listener's renewal";
    renewal.verb = Verb::kRenew;
    renewal.manager = m_listenersManager;
    Done done{&renewal, now, now};
    done.worked = object["result"] == 0;
    done.failedBefore = m_failedAtEvent[object["thread"]];
    done.puts[kNumber] = number;
    Give(number, now);
    if (done.worked) {
        m_content[renewal.manager][kNumber] = number;
    }
    NoteReleases(done);
    m_ended.push_back(std::move(done));
}

RunHistory::Service RunHistory::ServiceAt(double time) const {
    Service service;
    double trouble = -1;
    bool planned = false;
    bool unplugged = false;
    for (const Done& done : m_ended) {
        if (done.end > time) {
            continue;  // "in MS": it ends after later entries
        }
        planned = done.verb() == Verb::kFault ? done.command->argument != kNoFaults : planned;
        unplugged = done.verb() == Verb::kUnplug || (unplugged && done.verb() != Verb::kPlug);
        const bool good = done.worked && done.begin > trouble && !planned && !unplugged;
        if (done.overlapsRelease || IsFault(done.verb()) ||
            IsOneOf(done.verb(), {Verb::kDisconnect, Verb::kStop, Verb::kChipBits, Verb::kSend}) ||
            (done.verb() == Verb::kCreate && done.replaces)) {
            service = {};
            trouble = done.end;
        } else if (StartsManager(done.verb())) {
            service = {good, good, done.begin, done.end};
        } else if (OpensDevice(done.verb()) && (done.verb() != Verb::kConnect || m_connectOpens)) {
            service = {good, false, done.begin, 0};
        } else if (done.verb() == Verb::kWrite) {
            service.written = good && service.started;
            service.ready = done.end;
        }
    }
    return service;
}

bool RunHistory::IsFaultless(double time) const {
    return !IsFaulting() && m_faultEnd + kRenewalTime <= time;
}

bool RunHistory::IsAtRest(double now) const {
    return !Any(All(), [&](const Done* done) { return done->end + kRenewalTime > now; });
}

std::vector<const Done*> RunHistory::Running() const {
    std::vector<const Done*> running;
    for (const Done& done : m_running) {
        if (done.command != nullptr) {
            running.push_back(&done);
        }
    }
    return running;
}

std::vector<const Done*> RunHistory::All() const {
    std::vector<const Done*> all = Running();
    for (const Done& done : m_ended) {
        all.push_back(&done);
    }
    return all;
}

bool RunHistory::IsPutting() const {
    return Any(Running(), [](const Done* done) { return MayPut(done->verb()); });
}

bool RunHistory::WasGiven(const std::string& number, double time) const {
    return Any(m_given, [&](auto& given) { return given.second == number && given.first >= time; });
}

}  // namespace lab
