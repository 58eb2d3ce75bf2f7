// Plays a script: has the stage do what happens to the PC and the host what is asked of the
// library, and looks whether what is expected came.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "lab/Host.h"
#include "lab/Outcomes.h"
#include "lab/Script.h"
#include "lab/Stage.h"

namespace lab {

/// One to a process, like its host. Never destroyed.
class Player {
  public:
    using Remark = std::function<void(const std::string& text)>;

    Player(Stage& stage, Recorder& recorder, std::uint64_t seed, Remark remark);

    /// Everything that can be said about the script before it is played.
    void Check(const Script& script);

    /// Fills the message from the configuration, makes the manager, opens the tag and writes to it.
    void Start(int pcType);
    void Play(const Script& script);
    /// Waits for phones that are still there, then lets the manager go.
    void End();

    /// Results and expectations that failed and were not expected to.
    unsigned Failures() const { return m_outcomes.Failures(); }
    const EventBook& Events() const { return m_host.Events(); }

  private:
    void PlayAll(const std::vector<Command>& commands);
    void Do(const Command& command);
    void Operate(const Command& command);
    bool Applies(const Command& command) const;
    void Tap(const Command& command);
    void AwaitLeave();
    void ExpectEvent(const Command& command);
    void ExpectResult(const Command& command);
    void Pause(std::int64_t milliseconds);

    Stage& m_stage;
    Outcomes m_outcomes;
    Host m_host;
    Remark m_remark;
    std::string m_file;
    double m_begin = 0;         // of the script
    double m_lastPhoneEnd = 0;  // when the last phone that was sent will have gone
};

}  // namespace lab
