// Watches a run on the scheduled clock and finds what must never be, whatever the script does. What
// it expects follows from the script, the results and the PC.
#pragma once

#include <array>
#include <string>

#include "lab/Pc.h"
#include "lab/Player.h"
#include "lab/Recorder.h"
#include "lab/RunHistory.h"
#include "lab/Script.h"
#include "lab/TagRules.h"
#include "lab/Violations.h"
#include "lab/VisitRules.h"

namespace lab {

/// One per process. Never destroyed where the library's threads can still call the recorder.
class Judge {
  public:
    /// Throws WrongCall for a run that cannot be judged: on the real clock, or with threads later
    /// than the judged times allow. `options` are those of the call and of the script.
    Judge(const Script& script, const PcOptions& options, Pc& pc, Recorder& recorder);

    /// Every object of the recorder, before or after it is shown.
    void Take(const Json& object);
    /// Every step of the player.
    void Watch(const Player::Step& step);
    /// After the script, before the player's end. Lets a minute pass.
    void EndScript();
    /// After the player's end. Lets another minute pass, judges what is left, and records one
    /// object of kind "check" with what was judged.
    void Finish();

    bool IsGood() const { return m_findings.Violations() == 0; }
    const JudgedFigures& Judged() const { return m_findings.judged; }

  private:
    void TakeEvent(const Json& object);
    void JudgeOperation(const Done& done);
    void ExpectFailure(const Command& command);
    void ExpectAtMost(std::size_t most, const char* unit, std::size_t seen, const Command& command,
                      const char* when);
    void JudgeLive(const Command& command);
    void JudgeLeftovers();
    void JudgeState();
    void PassMinute();
    void Flush();

    Pc& m_pc;
    Recorder& m_recorder;
    Findings m_findings;
    RunHistory m_history;
    TagRules m_tag;
    VisitRules m_visits;
    Command m_firstFault;      // of the call
    bool m_connected = false;  // the Bluetooth keyboard, or it was tried to
    double m_connectBegin = 0;
    // By host: an operation that failed without a reason. "expect result FAIL" is one.
    std::array<const Done*, kMostHosts + 1> m_failed{};
};

}  // namespace lab
