// tagport-lab run: plays a script on a PC and shows what happens.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "lab/Judge.h"
#include "lab/Pc.h"
#include "lab/Player.h"
#include "lab/Recorder.h"
#include "lab/Script.h"

namespace lab {

struct RunOptions {
    PcOptions pc;
    int pcType = 5;
    std::string configDirectory;
    std::optional<std::string> script;
    bool json = false;
    bool log = false;
    bool explain = false;               ///< say what the log means; not with json
    std::optional<std::string> report;  ///< the file of the page
};

/// What shows or keeps a run while it is played.
struct RunWatch {
    std::function<void(const Json& object)> object;  ///< under the recorder's lock
    Player::Watch step;
    std::function<void(const Pc& pc, const char* moment)> tag;  ///< a state of the tag
};

struct RunOutcome {
    Pc* pc = nullptr;
    const Player* player = nullptr;
    const Judge* judge = nullptr;  ///< null for a run that is not judged
    PcOptions options;             ///< those of the call and of the script

    bool IsGood() const { return player->Failures() == 0 && (judge == nullptr || judge->IsGood()); }
};

/// Plays a script, or without one what the PC's parts suggest, from the start of the host to its
/// end. Once in a process. Throws WrongCall.
RunOutcome PlayRun(const RunOptions& options, std::optional<Script> script, RunWatch watch);

/// Returns the exit status. Throws WrongCall.
int Run(const RunOptions& options);

}  // namespace lab
