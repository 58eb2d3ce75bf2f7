// The commands of a command line, flattened. A copy of what the parser knows; no output.
#pragma once

#include <string>
#include <vector>

#include <CLI/App.hpp>

namespace lab {

struct CommandOption {
    std::string name;                 ///< with its dashes; of a positional the name as it is shown
    std::string shortName;            ///< with its dash, may be empty
    std::string value;                ///< FILE, DIR, N ...; empty for a flag
    std::vector<std::string> values;  ///< all that are allowed; empty when others are
    std::string description;
    bool isPositional = false;
};

struct CommandInfo {
    std::string path;  ///< without the program's name: "image show"; empty for the program
    std::string description;
    std::vector<CommandOption> options;
    std::vector<std::string> subcommands;
};

/// The program first, then each command before its own commands.
std::vector<CommandInfo> Commands(const CLI::App& app);

}  // namespace lab
