// Passes what happens on to the rules, and judges operations, handles, threads and requests.
#include "lab/Judge.h"

#include <algorithm>
#include <utility>

#include "lab/Failure.h"
#include "lab/Words.h"

namespace lab {

namespace {

constexpr double kLongestOperation = 400'000;  // milliseconds
constexpr std::int64_t kMostLate = 20;         // milliseconds, that the judged times allow
constexpr std::size_t kMostHandles = 60;
constexpr std::size_t kMostRequests = 3;

const Script& Judgeable(const Script& script, const PcOptions& options) {
    RefuseIf(!options.seed, "--check judges times of the scheduled clock: it needs --seed N");
    if (options.late > kMostLate) {
        throw WrongCall(script.PcPlace() + "late=" + std::to_string(options.late) +
                        ": --check needs threads that are at most " + std::to_string(kMostLate) +
                        " ms late");
    }
    return script;
}

}  // namespace

Judge::Judge(const Script& script, const PcOptions& options, Pc& pc, Recorder& recorder)
    : m_pc(pc),
      m_recorder(recorder),
      m_findings(Judgeable(script, options).file),
      m_history(!pc.Parts().FirstRoute().IsDevice()),
      m_tag(m_history, m_findings),
      m_visits(m_history, m_tag, pc, m_findings) {
    if (options.fault) {
        m_firstFault.verb = Verb::kFault;
        m_firstFault.argument = *options.fault;
        m_firstFault.text = "--fault";
        m_history.Begin(m_firstFault, 0);
        m_history.End({m_firstFault, false, {}, pc}, 0);
    }
}

void Judge::Take(const Json& object) {
    const std::string kind = object["kind"];
    m_history.Take(object);
    if (kind == "event") {
        TakeEvent(object);
    } else if (kind == "phone") {
        m_visits.TakeReading(object);
    }
}

void Judge::TakeEvent(const Json& object) {
    const int number = object["route"];
    const simulator::RouteKind* const route = simulator::RouteByNumber(number);
    const Command& command = m_history.Latest();
    const bool isOfPc = route != nullptr && m_pc.Parts().HasRoute(route->name);
    m_findings.Expect(isOfPc, command, "events from routes that the PC has",
                      "route " + std::to_string(number));
    if (!isOfPc) {
        return;
    }
    m_findings.Expect(route->IsDevice() || m_connected, command,
                      "no event of a Bluetooth keyboard after its disconnection",
                      "event " + object["event"].dump());
    m_visits.TakeEvent(object, *route);
    m_tag.JudgeShown(object, *route);
}

void Judge::Watch(const Player::Step& step) {
    const Command& command = step.command;
    const double now = m_pc.Now();
    if (step.begins) {
        ExpectFailure(command);
        JudgeState();
        m_history.Begin(command, now);
        m_visits.Begin(command, now);
        if (StartsManager(command.verb) || IsOneOf(command.verb, {Verb::kOpen, Verb::kConnect})) {
            m_connected = true;
            m_connectBegin = now;
        }
    } else {
        const Done* done = m_history.End(step, now);
        if (command.verb == Verb::kListener) {
            m_visits.EndListener(command, now);
        }
        if (done != nullptr) {
            m_connected = m_connected && (command.verb != Verb::kDisconnect || !done->worked ||
                                          m_connectBegin > done->begin);
            JudgeOperation(*done);
        }
        JudgeLive(command);
    }
    Flush();
}

// A failure needs a reason: a fault, a device or manager that another takes away, a keyboard that
// has no content to read and whose answer can be missed or kept from a listener.
void Judge::JudgeOperation(const Done& done) {
    const Command& command = *done.command;
    m_findings.Expect(done.end - done.begin < kLongestOperation, command,
                      "an operation of at most 400 s", Milliseconds(done.end - done.begin));
    const bool opens = StartsManager(done.verb()) || OpensDevice(done.verb());
    const bool reads = IsOneOf(done.verb(), {Verb::kReadMessage, Verb::kReadNumber});
    if (done.worked || done.overlapsRelease || m_visits.ListenerWaits() ||
        done.verb() == Verb::kDisconnect || !m_history.IsFaultless(done.begin) ||
        (reads && m_pc.Parts().Chip() == nullptr) ||
        (!opens && !m_history.ServiceAt(done.begin).started)) {
        return;
    }
    const bool isDisturbed = Any(m_history.All(), [&](const Done* other) {
        // Two operations of one moment may have run in each other, unless one host did both.
        return other->command->host != command.host && other->begin <= done.end &&
               other->end >= done.begin &&
               (done.replaces || StartsManager(other->verb()) || OpensDevice(other->verb()) ||
                IsOneOf(other->verb(), {Verb::kStop, Verb::kCreate, Verb::kDisconnect}));
    });
    m_failed[command.host] = isDisturbed ? nullptr : &done;
}

void Judge::ExpectFailure(const Command& command) {
    const Done* const failed = std::exchange(m_failed[command.host], nullptr);
    if (failed != nullptr && (command.verb != Verb::kExpectResult || command.on)) {
        m_findings.Expect(false, *failed->command, "success, because no fault was in force",
                          "a failure at " + Milliseconds(failed->end));
    }
}

void Judge::ExpectAtMost(std::size_t most, const char* unit, std::size_t seen,
                         const Command& command, const char* when) {
    m_findings.Expect(seen <= most, command, "at most " + Counted(most, unit) + when,
                      std::to_string(seen));
}

void Judge::JudgeLive(const Command& command) {
    const emulation::LiveCounts live = m_pc.Live();
    ExpectAtMost(kMostRequests, "request", live.requests, command, "");
    ExpectAtMost(kMostHandles, "handle", live.handles, command, "");
}

void Judge::PassMinute() {
    m_pc.WaitFor([] { return false; }, static_cast<std::int64_t>(kRenewalTime),
                 "the end of what is under way");
    JudgeState();
}

// What can be judged at any time.
void Judge::JudgeState() {
    const double now = m_pc.Now();
    m_visits.JudgePhones(now);
    m_visits.JudgeRest(now);
    m_tag.JudgeTag(m_pc.TagMemory(), now);
}

// What a stop leaves: the device, the keyboard's event, and the deferred call thread, which ends by
// itself where the stop fell into a visit.
void Judge::JudgeLeftovers() {
    if (m_history.IsFaulting() || m_history.HasSwallowed()) {
        return;
    }
    const Command& last = m_history.Latest();
    const emulation::LiveCounts live = m_pc.Live();
    // A connection, and one that could not be made, has its event until BtDisconnect.
    const PcParts& parts = m_pc.Parts();
    const std::size_t ofLink = parts.HasRoute("ble") && m_connected ? 1 : 0;
    const bool hasKeyboard = Any(parts.Routes(), [](simulator::PcRoute route) {
        return simulator::KindOf(route).IsDevice() && simulator::KindOf(route).IsKeyboard();
    });
    const std::size_t kept = ofLink + (hasKeyboard ? 2 : parts.FirstRoute().IsDevice() ? 1 : 0);
    ExpectAtMost(1, "thread", live.threads, last, " after the end");
    m_findings.Expect(live.requests == 0, last, "no request after the end",
                      std::to_string(live.requests));
    ExpectAtMost(kept + live.threads, "handle", live.handles, last, " after the end");
}

void Judge::EndScript() {
    for (unsigned host = 0; host <= kMostHosts; ++host) {
        Command end;
        end.host = host;
        ExpectFailure(end);
    }
    PassMinute();
    Flush();
}

void Judge::Finish() {
    PassMinute();
    JudgeLeftovers();
    const JudgedFigures& judged = m_findings.judged;
    m_findings.Expect(judged != JudgedFigures{}, m_history.Latest(), "something that can be judged",
                      "nothing");
    Flush();
    Json object{{"kind", "check"}};
    for (std::size_t kind = 0; kind < kJudgedKinds; ++kind) {
        object[kJudged[kind].name] = judged[kind];
    }
    object["violations"] = m_findings.Violations();
    m_recorder.AddNamed(kHostThread, m_pc.Now(), std::move(object));
}

// The recorder calls the rules under its lock, so what they find waits for the next step.
void Judge::Flush() {
    for (Json& violation : m_findings.Take()) {
        m_recorder.AddNamed(kHostThread, m_pc.Now(), std::move(violation));
    }
}

}  // namespace lab
