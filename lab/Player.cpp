// Plays a script, command by command.
#include "lab/Player.h"

#include <algorithm>
#include <array>
#include <map>
#include <utility>

#include "lab/Failure.h"

namespace lab {

namespace {

constexpr std::int64_t kEnterBound = 1'000;  ///< for the event of a phone that entered
constexpr std::int64_t kLeaveBound = 8'500;  ///< above the longest watch of the library
constexpr std::int64_t kJoinBound = 24LL * 3'600'000;
constexpr std::array<const char*, kMostHosts> kHostNames{"host 1", "host 2", "host 3", "host 4"};

}  // namespace

Player::Player(Pc& pc, Recorder& recorder, std::uint64_t seed, Watch watch)
    : m_pc(pc),
      m_results(pc, recorder),
      m_recorder(recorder),
      m_host(pc, recorder, m_results, seed),
      m_watch(std::move(watch)) {}

void Player::Start(int pcType) {
    m_start.verb = Verb::kStart;
    m_start.text = "the start of the run";
    Watched(m_start, [&] { m_host.Start(pcType); });
}

void Player::Fail(const Command& command, const std::string& problem) {
    m_results.FailExpectation(m_script->PlaceOf(command) + problem);
}

void Player::ExpectEvent(const Command& command) {
    const int event = static_cast<int>(*command.number);
    ReceivedEvents& events = m_host.Events();
    m_pc.WaitFor([&] { return events.IsPending(event); }, command.within, "an expected event");
    const bool came = events.TakeOldest(event);
    m_results.RecordOnly("expect event " + std::to_string(event), came);
    if (!came) {
        Fail(command, "none came");
    }
}

void Player::ExpectResult(const Command& command) {
    const std::string problem = m_results.CheckLast(command.on);
    if (!problem.empty()) {
        Fail(command, problem);
    }
}

void Player::Pause(std::int64_t milliseconds) {
    if (milliseconds > 0) {
        m_pc.WaitFor([] { return false; }, milliseconds, "the script's next line");
    }
}

void Player::Tap(const Command& command) {
    const std::int64_t stay = command.number.value_or(kDefaultStay);
    const std::int64_t in = command.in.value_or(0);
    m_host.Events().BeginVisit();
    {
        const double end = m_pc.Now() + static_cast<double>(in) + static_cast<double>(stay);
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_lastPhoneEnd = std::max(m_lastPhoneEnd, end);
    }
    m_pc.Act(command);
    if (!command.in) {
        Pause(stay);
        WaitForLeave(simulator::KindOf(m_pc.Parts().RouteOf(command)).number);
    }
}

// The phone may have come into a visit that was open: there is no event 3 of its own then. An event
// 1 of the visit before it may come after its event 3.
void Player::WaitForLeave(int route) {
    const ReceivedEvents& events = m_host.Events();
    if (m_host.Listening()) {
        m_pc.WaitFor([&] { return events.HasCome(kPhoneEntered, route); }, kEnterBound,
                     "the event of a phone");
        m_pc.WaitFor([&] { return !events.IsOpen(route); }, kLeaveBound, "the event of a leave");
    }
}

void Player::Execute(const Command& command) {
    if (command.at) {
        const double due = m_begin + static_cast<double>(*command.at);
        Pause(static_cast<std::int64_t>(due - m_pc.Now()));
    }
    if (command.host == 0) {
        Watched(command, [&] { Perform(command); });
        return;
    }
    HostQueue& queue = m_queues[command.host - 1];
    bool starts = false;
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        queue.commands.push_back(&command);
        starts = !std::exchange(queue.running, true);
    }
    if (starts) {
        ++m_runningHosts;
        m_pc.StartThread([this, host = command.host] { RunHost(host); });
    }
}

void Player::RunHost(unsigned host) {
    m_recorder.NameThread(m_pc.Thread(), kHostNames[host - 1], true);
    RunResults::UseHost(host);
    HostQueue& queue = m_queues[host - 1];
    while (true) {
        const Command* command = nullptr;
        {
            const std::lock_guard<std::mutex> guard(m_mutex);
            if (queue.commands.empty()) {
                queue.running = false;
                break;
            }
            command = queue.commands.front();
            queue.commands.pop_front();
        }
        try {
            Watched(*command, [&] { Perform(*command); });
        } catch (const WrongCall& problem) {
            // Another host may have let the manager go; this one goes on.
            Fail(*command, problem.what());
        }
    }
    --m_runningHosts;
    m_pc.RecheckWaits();
}

void Player::Join() {
    m_pc.WaitFor([this] { return m_runningHosts == 0; }, kJoinBound, "the hosts");
}

void Player::Watched(const Command& command, const std::function<void()>& action) {
    const unsigned before = m_results.Count();
    m_watch({command, true, {}, m_pc});
    try {
        action();
    } catch (const WrongCall&) {
        m_watch({command, false, {}, m_pc});
        throw;
    }
    const bool hasResult = m_results.Count() != before;
    m_watch({command, false,
             hasResult ? std::optional<bool>(m_results.LastSucceeded()) : std::nullopt, m_pc});
}

void Player::Perform(const Command& command) {
    using C = const Command&;
    static const std::map<Verb, void (*)(Player & p, C c)> actions{
        {Verb::kTap, [](Player& p, C c) { p.Tap(c); }},
        {Verb::kWait, [](Player& p, C c) { p.Pause(*c.number); }},
        {Verb::kJoin, [](Player& p, C) { p.Join(); }},
        {Verb::kExpectEvent, [](Player& p, C c) { p.ExpectEvent(c); }},
        {Verb::kExpectResult, [](Player& p, C c) { p.ExpectResult(c); }},
        {Verb::kRenew, [](Player& p, C c) { p.m_host.Renew(c.manager, c.argument); }},
        {Verb::kReadNumber, [](Player& p, C c) { p.m_host.ReadNumber(c.manager); }},
        {Verb::kReadMessage, [](Player& p, C c) { p.m_host.ReadMessage(c.manager, c.on); }},
        {Verb::kWrite, [](Player& p, C c) { p.m_host.Write(c.manager, c.fields); }},
        {Verb::kUpdate, [](Player& p, C c) { p.m_host.Update(c.manager, c.fields); }},
        {Verb::kInit, [](Player& p, C c) { p.m_host.DeviceInit(c.manager); }},
        {Verb::kConnect, [](Player& p, C c) { p.m_host.Connect(c.manager, true); }},
        {Verb::kDisconnect, [](Player& p, C c) { p.m_host.Connect(c.manager, false); }},
        {Verb::kOpen, [](Player& p, C c) { p.m_host.Open(c.manager); }},
        {Verb::kListener, [](Player& p, C c) { p.m_host.Listen(c.manager, c.on, c.fields); }},
        {Verb::kStop, [](Player& p, C c) { p.m_host.Stop(c.manager); }},
        {Verb::kStart, [](Player& p, C c) { p.m_host.StartManager(c.manager, c.fields); }},
        {Verb::kCreate, [](Player& p, C c) { p.m_host.Create(c.manager, c.fields); }},
    };
    const Verb verb = command.verb;
    const auto action = actions.find(verb == Verb::kRestart ? Verb::kStart : verb);
    if (verb == Verb::kRestart) {
        m_host.Stop(command.manager);
    } else if (verb == Verb::kEnter) {
        m_host.Events().BeginVisit();
    }
    if (action != actions.end()) {
        action->second(*this, command);
    } else if (IsDeviceVerb(verb)) {
        m_pc.Act(command);
    } else if (verb == Verb::kRepeat) {
        for (std::int64_t turn = 0; turn < *command.number; ++turn) {
            PlayAll(command.body);
        }
    }
}

void Player::PlayAll(const std::vector<Command>& commands) {
    for (const Command& command : commands) {
        if (!m_pc.Parts().Applies(command)) {
            continue;
        }
        try {
            Execute(command);
        } catch (const WrongCall& problem) {
            const std::string text = problem.what();
            if (text.rfind(m_script->file + ":", 0) == 0) {
                throw;  // a command inside a "repeat" has named its own line
            }
            throw WrongCall(m_script->PlaceOf(command) + text);
        }
    }
}

void Player::Check(const Script& script, const std::vector<Command>& commands) const {
    for (const Command& command : commands) {
        Check(script, command.body);
        if (m_pc.Parts().Applies(command)) {
            AtPlace(script.PlaceOf(command), [&] { m_pc.Parts().Check(command); });
        }
    }
}

void Player::Play(const Script& script) {
    m_script = &script;
    m_begin = m_pc.Now();
    PlayAll(script.commands);
    Join();
}

void Player::End() {
    Pause(static_cast<std::int64_t>(m_lastPhoneEnd - m_pc.Now()));
    if (m_host.Listening() &&
        m_host.Events().Count(kPhoneEntered) > m_host.Events().Count(kPhoneLeft)) {
        Command leave;
        leave.verb = Verb::kLeave;
        m_pc.Act(leave);
        m_pc.WaitFor(
            [this] {
                return m_host.Events().Count(kPhoneLeft) >= m_host.Events().Count(kPhoneEntered);
            },
            kLeaveBound, "the event of the last leave");
    }
    m_host.End();
    m_pc.WaitForThreads();
}

}  // namespace lab
