#include <CLI/CLI.hpp>

#include "lab/help/Commands.h"
#include "lab/help/Help.h"

namespace lab {

namespace {

std::string Joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

/// A text in single quotes, for all three shells.
std::string Quoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

std::string OptionNames(const CommandInfo& command) {
    std::string names;
    for (const CommandOption& option : command.options) {
        if (!option.isPositional) {
            names += (names.empty() ? "" : " ") + option.name;
            names += option.shortName.empty() ? "" : " " + option.shortName;
        }
    }
    return names;
}

bool TakesFile(const CommandOption& option) {
    return option.value.rfind("FILE", 0) == 0 || option.value == "LOG" || option.name == "FILE" ||
           option.name == "LOG";
}

// The command is found from the words that are no options; then the word before the cursor says
// whether a value is wanted.
std::string Bash(const std::vector<CommandInfo>& commands) {
    std::string script =
        "# bash completion of tagport-lab, made by: tagport-lab completion bash\n"
        "_tagport_lab() {\n"
        "    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]}\n"
        "    local path= word i\n"
        "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
        "        word=${COMP_WORDS[i]}\n"
        "        case \"$path $word\" in\n";
    for (const CommandInfo& command : commands) {
        if (!command.path.empty()) {
            const std::string path = "' " + command.path + "'";
            script += "            ";
            script += path + ") path=" + path + " ;;\n";
        }
    }
    script +=
        "        esac\n"
        "    done\n"
        "    local options= words= files=\n"
        "    case \"$path:$prev\" in\n";
    for (const CommandInfo& command : commands) {
        const std::string path = command.path.empty() ? "" : " " + command.path;
        for (const CommandOption& option : command.options) {
            if (option.isPositional || option.value.empty()) {
                continue;
            }
            script += "        '" + path + ":" + option.name + "'";
            script += option.shortName.empty() ? "" : " | '" + path + ":" + option.shortName + "'";
            script += ") ";
            script += !option.values.empty()  ? "words='" + Joined(option.values) + "'"
                      : option.value == "DIR" ? "files=-d"
                      : TakesFile(option)     ? "files=-f"
                                              : "return";
            script += " ;;\n";
        }
        script += "        '" + path + ":'*) options='" + OptionNames(command) + "' words='" +
                  Joined(command.subcommands);
        for (const CommandOption& option : command.options) {
            script += option.isPositional ? Joined(option.values) : "";
        }
        script += "'";
        for (const CommandOption& option : command.options) {
            script += option.isPositional && TakesFile(option) ? " files=-f" : "";
        }
        script += " ;;\n";
    }
    return script +
           "    esac\n"
           "    [[ $cur != -* ]] || words=$options\n"
           "    [[ $cur != -* ]] || files=\n"
           "    mapfile -t COMPREPLY < <(compgen ${files:+\"$files\"} -W \"$words\" -- \"$cur\")\n"
           "}\n"
           "complete -o filenames -F _tagport_lab tagport-lab\n";
}

std::string Zsh(const std::vector<CommandInfo>& commands) {
    std::string script =
        "#compdef tagport-lab\n"
        "# zsh completion of tagport-lab, made by: tagport-lab completion zsh\n"
        "local path_= word\n"
        "for word in ${words[2,CURRENT-1]}; do\n"
        "    case \"$path_ $word\" in\n";
    for (const CommandInfo& command : commands) {
        if (!command.path.empty()) {
            script += "        ' " + command.path + "') path_=' " + command.path + "' ;;\n";
        }
    }
    script += "    esac\ndone\ncase \"$path_:${words[CURRENT-1]}\" in\n";
    for (const CommandInfo& command : commands) {
        const std::string path = command.path.empty() ? "" : " " + command.path;
        for (const CommandOption& option : command.options) {
            if (option.isPositional || option.value.empty()) {
                continue;
            }
            script += "    '" + path + ":" + option.name + "'";
            script += option.shortName.empty() ? "" : "|'" + path + ":" + option.shortName + "'";
            script += !option.values.empty()  ? ") compadd -- " + Joined(option.values) + "; return"
                      : option.value == "DIR" ? ") _files -/; return"
                      : TakesFile(option)     ? ") _files; return"
                                              : ") return";
            script += " ;;\n";
        }
    }
    script += "esac\ncase \"$path_\" in\n";
    for (const CommandInfo& command : commands) {
        script += "    '" + (command.path.empty() ? "" : " " + command.path) + "')\n";
        if (!command.subcommands.empty()) {
            script += "        compadd -- " + Joined(command.subcommands) + "\n";
        }
        for (const CommandOption& option : command.options) {
            if (option.isPositional && !option.values.empty()) {
                script += "        compadd -- " + Joined(option.values) + "\n";
            } else if (option.isPositional && TakesFile(option)) {
                script += "        [[ $PREFIX == -* ]] || _files\n";
            }
        }
        script +=
            "        [[ $PREFIX != -* ]] || compadd -- " + OptionNames(command) + "\n        ;;\n";
    }
    return script + "esac\n";
}

std::string Fish(const std::vector<CommandInfo>& commands) {
    std::string script =
        "# fish completion of tagport-lab, made by: tagport-lab completion fish\n"
        "complete -c tagport-lab -f\n";
    for (const CommandInfo& command : commands) {
        // The last word of a path is enough: no two commands share it.
        const std::string last = command.path.substr(command.path.rfind(' ') + 1);
        const std::string others =
            command.subcommands.empty()
                ? ""
                : "not __fish_seen_subcommand_from " + Joined(command.subcommands);
        const std::string seen = last.empty() ? "" : "__fish_seen_subcommand_from " + last;
        std::string condition = seen;
        condition += seen.empty() || others.empty() ? "" : "; and ";
        condition += others;
        const std::string when = " -n " + Quoted(condition);
        const std::string head = "complete -c tagport-lab" + when;
        for (const CommandInfo& sub : commands) {
            const std::size_t blank = sub.path.rfind(' ');
            const std::string parent = blank == std::string::npos ? "" : sub.path.substr(0, blank);
            if (!sub.path.empty() && parent == command.path) {
                script += head + " -a " + sub.path.substr(blank + 1) + " -d " +
                          Quoted(sub.description) + "\n";
            }
        }
        for (const CommandOption& option : command.options) {
            script += head;
            script += option.isPositional ? "" : " -l " + option.name.substr(2);
            script += option.shortName.empty() ? "" : " -s " + option.shortName.substr(1);
            script += !option.values.empty()  ? " -x -a " + Quoted(Joined(option.values))
                      : option.value == "DIR" ? " -x -a '(__fish_complete_directories)'"
                      : TakesFile(option)     ? " -F"
                      : option.value.empty()  ? ""
                                              : " -x";
            script += " -d " + Quoted(option.description) + "\n";
        }
    }
    return script;
}

}  // namespace

std::string CompletionScript(const CLI::App& app, const std::string& shell) {
    const std::vector<CommandInfo> commands = Commands(app);
    return shell == "bash" ? Bash(commands) : shell == "zsh" ? Zsh(commands) : Fish(commands);
}

}  // namespace lab
