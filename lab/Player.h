// Plays a script: the PC carries out what happens to the PC, the host calls the library, and the
// player checks the expected events and results.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "lab/Host.h"
#include "lab/Pc.h"
#include "lab/RunResults.h"
#include "lab/Script.h"

namespace lab {

/// One per process, like its host. Never destroyed.
class Player {
  public:
    struct Step {
        const Command& command;
        bool begins = true;             ///< false: it has ended
        std::optional<bool> succeeded;  ///< of its last operation, at its end if it has had one
        const Pc& pc;
    };
    /// Called on the thread of a command before and after it is carried out. The command of line 0
    /// is the start before the script.
    using Watch = std::function<void(const Step& step)>;

    Player(Pc& pc, Recorder& recorder, std::uint64_t seed, Watch watch);

    /// Checks what can be checked before the script is played; throws WrongCall.
    void Check(const Script& script) const { Check(script, script.commands); }

    /// Fills the message from the configuration, creates the manager, opens the tag and writes to
    /// it.
    void Start(int pcType);
    /// Ends when every host has done what the script gave to it.
    void Play(const Script& script);
    /// Waits for phones that are still at the tag, then releases the manager.
    void End();

    /// The number of operations and expectations that failed unexpectedly.
    unsigned Failures() const { return m_results.Failures(); }
    const ReceivedEvents& Events() const { return m_host.Events(); }

  private:
    // What a host has still to do. Its thread ends with the last command.
    struct HostQueue {
        std::deque<const Command*> commands;
        bool running = false;
    };

    void Check(const Script& script, const std::vector<Command>& commands) const;
    void PlayAll(const std::vector<Command>& commands);
    void Execute(const Command& command);
    /// Carries out a command in view of the watch.
    void Watched(const Command& command, const std::function<void()>& action);
    void Fail(const Command& command, const std::string& problem);
    void Perform(const Command& command);
    void RunHost(unsigned host);
    void Join();
    void Tap(const Command& command);
    void WaitForLeave(int route);
    void ExpectEvent(const Command& command);
    void ExpectResult(const Command& command);
    void Pause(std::int64_t milliseconds);

    Pc& m_pc;
    RunResults m_results;
    Recorder& m_recorder;
    Host m_host;
    Watch m_watch;
    Command m_start;
    const Script* m_script = nullptr;
    double m_begin = 0;  // when the script began
    std::mutex m_mutex;  // for the queues and m_lastPhoneEnd
    std::array<HostQueue, kMostHosts> m_queues;
    std::atomic<unsigned> m_runningHosts{0};
    double m_lastPhoneEnd = 0;  // when the last phone of a "tap" leaves the tag
};

}  // namespace lab
