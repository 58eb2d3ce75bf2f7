// tagport-lab run: plays a script on a PC and shows what happens.
#pragma once

#include <optional>
#include <string>

#include "lab/Stage.h"

namespace lab {

struct RunOptions {
    StageOptions stage;
    int pcType = 5;
    std::string configDirectory;
    std::optional<std::string> script;
    bool json = false;
    bool log = false;
};

/// Returns the exit status. Throws WrongCall.
int Run(const RunOptions& options);

}  // namespace lab
