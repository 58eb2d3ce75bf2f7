// Plays a script, command by command.
#include "lab/Player.h"

#include <algorithm>
#include <array>
#include <utility>

#include "lab/Failure.h"

namespace lab {

namespace {

constexpr int kPhoneLeft = 1;
constexpr int kPhoneEntered = 3;
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
    m_watch({m_start, true, {}});
    m_host.Start(pcType);
    m_watch({m_start, false, m_results.LastSucceeded()});
}

void Player::ExpectEvent(const Command& command) {
    const int event = static_cast<int>(*command.number);
    ReceivedEvents& events = m_host.Events();
    m_pc.WaitFor([&] { return events.IsPending(event); }, command.within, "an expected event");
    const bool came = events.TakeOldest(event);
    m_results.RecordExpectedEvent(event, came);
    if (!came) {
        m_results.RecordFailedExpectation(m_file, command.line, command.text, "none came");
    }
}

void Player::ExpectResult(const Command& command) {
    const std::string problem = m_results.CheckLast(command.on);
    if (!problem.empty()) {
        m_results.RecordFailedExpectation(m_file, command.line, command.text, problem);
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
    m_pc.Tap(in, stay, command.argument);
    if (!command.in) {
        Pause(stay);
        WaitForLeave();
    }
}

void Player::WaitForLeave() {
    if (!m_host.Listening()) {
        return;
    }
    if (m_pc.WaitFor([this] { return m_host.Events().IsPending(kPhoneEntered); }, kEnterBound,
                     "the event of a phone")) {
        m_pc.WaitFor([this] { return m_host.Events().IsPending(kPhoneLeft); }, kLeaveBound,
                     "the event of a leave");
    }
}

bool Player::Applies(const Command& command) const {
    const auto named = [&](const std::string& name) {
        return std::find(command.only.begin(), command.only.end(), name) != command.only.end();
    };
    return command.only.empty() || named(m_pc.Chip()) ||
           std::any_of(command.only.begin(), command.only.end(),
                       [&](const std::string& name) { return m_pc.HasRoute(name); });
}

void Player::Execute(const Command& command) {
    if (command.at) {
        const double due = m_begin + static_cast<double>(*command.at);
        Pause(static_cast<std::int64_t>(due - m_pc.Now()));
    }
    if (command.host == 0) {
        ExecuteNow(command);
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
        m_pc.StartThread(command.host, [this, host = command.host] { RunHost(host); });
    }
}

void Player::RunHost(unsigned host) {
    m_recorder.NameThread(m_pc.Thread(), kHostNames[host - 1]);
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
            ExecuteNow(*command);
        } catch (const WrongCall& problem) {
            // Another host may have let the manager go; this one goes on.
            m_results.RecordFailedExpectation(m_file, command->line, command->text, problem.what());
        }
    }
    --m_runningHosts;
    m_pc.RecheckWaits();
}

void Player::Join() {
    m_pc.WaitFor([this] { return m_runningHosts == 0; }, kJoinBound, "the hosts");
}

void Player::ExecuteNow(const Command& command) {
    const unsigned before = m_results.Count();
    m_watch({command, true, {}});
    try {
        Perform(command);
    } catch (const WrongCall&) {
        m_watch({command, false, {}});
        throw;
    }
    const bool hasResult = m_results.Count() != before;
    m_watch({command, false,
             hasResult ? std::optional<bool>(m_results.LastSucceeded()) : std::nullopt});
}

void Player::Perform(const Command& command) {
    const std::int64_t in = command.in.value_or(0);
    switch (command.verb) {
        case Verb::kWait:
            Pause(*command.number);
            break;
        case Verb::kTap:
            Tap(command);
            break;
        case Verb::kEnter:
            m_host.Events().BeginVisit();
            m_pc.Enter(in);
            break;
        case Verb::kLeave:
            m_pc.Leave(in);
            break;
        case Verb::kChipStatus:
            m_pc.ChipStatus(in, static_cast<std::uint8_t>(*command.number));
            break;
        case Verb::kChipBits: {
            const std::string& bits = command.argument;
            const auto byte = [&](std::size_t at) { return static_cast<std::uint8_t>(bits[at]); };
            m_pc.ChipBits(byte(0) * 256U + byte(1), byte(2), byte(3));
            break;
        }
        case Verb::kBleClient:
            m_pc.BleClient(command.fields);
            break;
        case Verb::kUnplug:
            m_pc.Unplug();
            break;
        case Verb::kPlug:
            m_pc.Plug();
            break;
        case Verb::kFault:
            m_pc.Fault(command.argument, true);
            break;
        case Verb::kRepeat:
            for (std::int64_t turn = 0; turn < *command.number; ++turn) {
                PlayAll(command.body);
            }
            break;
        case Verb::kJoin:
            Join();
            break;
        case Verb::kExpectEvent:
            ExpectEvent(command);
            break;
        case Verb::kExpectResult:
            ExpectResult(command);
            break;
        default:
            ExecuteOperation(command);
            break;
    }
}

void Player::ExecuteOperation(const Command& command) {
    const unsigned manager = command.manager;
    switch (command.verb) {
        case Verb::kRenew:
            m_host.Renew(manager, command.argument);
            break;
        case Verb::kReadNumber:
            m_host.ReadNumber(manager);
            break;
        case Verb::kReadMessage:
            m_host.ReadMessage(manager, command.on);
            break;
        case Verb::kWrite:
            m_host.Write(manager, command.fields);
            break;
        case Verb::kUpdate:
            m_host.Update(manager, command.fields);
            break;
        case Verb::kInit:
            m_host.DeviceInit(manager);
            break;
        case Verb::kConnect:
        case Verb::kDisconnect:
            m_host.Connect(manager, command.verb == Verb::kConnect);
            break;
        case Verb::kOpen:
            m_host.Open(manager);
            break;
        case Verb::kListener:
            m_host.Listen(manager, command.on, command.fields);
            break;
        case Verb::kStop:
            m_host.Stop(manager);
            break;
        case Verb::kRestart:
            m_host.Stop(manager);
            m_host.StartManager(manager, command.fields);
            break;
        case Verb::kStart:
            m_host.StartManager(manager, command.fields);
            break;
        case Verb::kCreate:
            m_host.Create(manager, command.fields);
            break;
        default:
            break;
    }
}

void Player::PlayAll(const std::vector<Command>& commands) {
    for (const Command& command : commands) {
        if (!Applies(command)) {
            continue;
        }
        try {
            Execute(command);
        } catch (const WrongCall& problem) {
            const std::string text = problem.what();
            if (text.rfind(m_file + ":", 0) == 0) {
                throw;  // a command inside a "repeat" has named its own line
            }
            throw WrongCall(m_file + ":" + std::to_string(command.line) + ": " + command.text +
                            ": " + text);
        }
    }
}

void Player::Check(const Script& script) {
    const std::function<void(const std::vector<Command>&)> check =
        [&](const std::vector<Command>& commands) {
            for (const Command& command : commands) {
                check(command.body);
                if (command.verb != Verb::kFault || !Applies(command)) {
                    continue;
                }
                try {
                    m_pc.Fault(command.argument, false);
                } catch (const WrongCall& problem) {
                    throw WrongCall(script.file + ":" + std::to_string(command.line) +
                                    ": fault: " + problem.what());
                }
            }
        };
    check(script.commands);
}

void Player::Play(const Script& script) {
    m_file = script.file;
    m_begin = m_pc.Now();
    PlayAll(script.commands);
    Join();
}

void Player::End() {
    Pause(static_cast<std::int64_t>(m_lastPhoneEnd - m_pc.Now()));
    if (m_host.Listening() &&
        m_host.Events().Count(kPhoneEntered) > m_host.Events().Count(kPhoneLeft)) {
        m_pc.Leave(0);
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
