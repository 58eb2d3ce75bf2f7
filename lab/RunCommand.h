// tagport-lab run: plays a script on a PC and shows what happens.
#pragma once

#include <optional>
#include <string>

#include "lab/Pc.h"
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

/// The options of a run, with what the script's "pc" says where the options say nothing.
PcOptions MergedOptions(PcOptions options, const Script& script);

/// Returns the exit status. Throws WrongCall.
int Run(const RunOptions& options);

}  // namespace lab
