// tagport-lab run: a PC, a host, a script, and what happens.
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

/// The exit status. Throws WrongCall.
int Run(const RunOptions& options);

}  // namespace lab
