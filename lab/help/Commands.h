// The commands of a command line, as plain values. Commands.cpp is the only file besides Main.cpp
// that includes the parser: its header is long, and each file that includes it compiles it again.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

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

/// The path of a command of the one at `path`.
std::string PathTo(const std::string& path, const std::string& name);

/// The program first, then each command before its own commands.
std::vector<CommandInfo> Commands(const CLI::App& app, const std::string& path = "");

/// The last command that the parser recognised; the program if it recognised none.
CommandInfo LastCommand(const CLI::App& app);

/// Puts a text after the help of each command; `footer` gets the command's path.
void SetFooters(CLI::App& app, std::string (*footer)(const std::string& path),
                const std::string& path = "");

}  // namespace lab
