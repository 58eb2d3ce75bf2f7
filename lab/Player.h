// Plays a script: the stage carries out what happens to the PC, the host calls the library, and the
// player checks the expected events and results.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "lab/Host.h"
#include "lab/RunResults.h"
#include "lab/Script.h"
#include "lab/Stage.h"

namespace lab {

/// One per process, like its host. Never destroyed.
class Player {
  public:
    /// Called with each line of the script before it is carried out.
    using ShowCommand = std::function<void(const std::string& text)>;

    Player(Stage& stage, Recorder& recorder, std::uint64_t seed, ShowCommand showCommand);

    /// Checks what can be checked before the script is played; throws WrongCall.
    void Check(const Script& script);

    /// Fills the message from the configuration, creates the manager, opens the tag and writes to
    /// it.
    void Start(int pcType);
    void Play(const Script& script);
    /// Waits for phones that are still at the tag, then releases the manager.
    void End();

    /// The number of operations and expectations that failed unexpectedly.
    unsigned Failures() const { return m_results.Failures(); }
    const ReceivedEvents& Events() const { return m_host.Events(); }

  private:
    void PlayAll(const std::vector<Command>& commands);
    void Execute(const Command& command);
    void ExecuteOperation(const Command& command);
    bool Applies(const Command& command) const;
    void Tap(const Command& command);
    void WaitForLeave();
    void ExpectEvent(const Command& command);
    void ExpectResult(const Command& command);
    void Pause(std::int64_t milliseconds);

    Stage& m_stage;
    RunResults m_results;
    Host m_host;
    ShowCommand m_showCommand;
    std::string m_file;
    double m_begin = 0;         // when the script began
    double m_lastPhoneEnd = 0;  // when the last phone of a "tap" leaves the tag
};

}  // namespace lab
