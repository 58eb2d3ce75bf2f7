#include "lab/Words.h"
#include "lab/help/Help.h"

namespace lab {

namespace {

/// A text in single quotes, for all three shells.
std::string InQuotes(const std::string& text) {
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

/// The path as the scripts keep it: each command with a blank before it.
std::string PathOf(const CommandInfo& command) {
    return command.path.empty() ? "" : " " + command.path;
}

/// How a shell writes a row of `case`, and what it does to complete a value.
struct Shell {
    const char* indent;
    const char* directories;
    const char* files;
    const char* nothing;
    std::string (*oneOf)(const std::string& words);
};

/// The rows of a `case` that finds a command's path from the path so far and a word.
std::string PathRows(const std::vector<CommandInfo>& commands, const std::string& variable) {
    std::string rows;
    for (const CommandInfo& command : commands) {
        if (!command.path.empty()) {
            rows += "            '" + PathOf(command) + "') " + variable + "='" + PathOf(command) +
                    "' ;;\n";
        }
    }
    return rows;
}

/// The rows of a `case` on PATH:OPTION, one for each option that takes a value.
std::string ValueRows(const std::vector<CommandInfo>& commands, const Shell& shell) {
    std::string rows;
    for (const CommandInfo& command : commands) {
        for (const CommandOption& option : command.options) {
            if (option.isPositional || option.value.empty()) {
                continue;
            }
            const std::string begin = "'" + PathOf(command) + ":";
            rows += shell.indent + begin + option.name + "'";
            rows += option.shortName.empty() ? "" : "|" + begin + option.shortName + "'";
            rows += ") ";
            rows += !option.values.empty()  ? shell.oneOf(Joined(option.values, " "))
                    : option.value == "DIR" ? shell.directories
                    : TakesFile(option)     ? shell.files
                                            : shell.nothing;
            rows += " ;;\n";
        }
    }
    return rows;
}

// The command is found from the words that are no options; then the word before the cursor says
// whether a value is wanted. Where "=" separates words, "--route=i" is three of them.
std::string Bash(const std::vector<CommandInfo>& commands) {
    const Shell shell{"        ", "files=-d", "files=-f", "return",
                      [](const std::string& words) { return "words='" + words + "'"; }};
    std::string script =
        "# bash completion of tagport-lab, made by: tagport-lab completion bash\n"
        "_tagport_lab() {\n"
        "    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]} before=\n"
        "    if [[ $cur == = ]]; then\n"
        "        cur=\n"
        "    elif [[ $prev == = ]]; then\n"
        "        prev=${COMP_WORDS[COMP_CWORD-2]}\n"
        "    elif [[ $cur == --*=* ]]; then\n"
        "        before=${cur%%=*}= prev=${cur%%=*} cur=${cur#*=}\n"
        "    fi\n"
        "    local path= word i\n"
        "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
        "        word=${COMP_WORDS[i]}\n"
        "        case \"$path $word\" in\n" +
        PathRows(commands, "path") +
        "        esac\n"
        "    done\n"
        "    local options= words= files=\n"
        "    case \"$path:$prev\" in\n" +
        ValueRows(commands, shell);
    for (const CommandInfo& command : commands) {
        script += "        '" + PathOf(command) + ":'*) options='" + OptionNames(command) +
                  "' words='" + Joined(command.subcommands, " ");
        for (const CommandOption& option : command.options) {
            script += option.isPositional ? Joined(option.values, " ") : "";
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
           "    COMPREPLY=(\"${COMPREPLY[@]/#/$before}\")\n"
           "    [[ -z $files ]] || compopt -o filenames\n"
           "}\n"
           "complete -F _tagport_lab tagport-lab\n";
}

// A file of a completion directory is the function's body at its first call; `source` of the same
// text registers the function.
std::string Zsh(const std::vector<CommandInfo>& commands) {
    const Shell shell{"        ", "_files -/; return", "_files; return", "return",
                      [](const std::string& words) { return "compadd -- " + words + "; return"; }};
    std::string script =
        "#compdef tagport-lab\n"
        "# zsh completion of tagport-lab, made by: tagport-lab completion zsh\n"
        "_tagport-lab() {\n"
        "    local path_= word prev=${words[CURRENT-1]}\n"
        "    for word in ${words[2,CURRENT-1]}; do\n"
        "        case \"$path_ $word\" in\n" +
        PathRows(commands, "path_") +
        "        esac\n"
        "    done\n"
        "    if [[ $PREFIX == --*=* ]]; then\n"
        "        prev=${PREFIX%%=*}\n"
        "        compset -P '*='\n"
        "    fi\n"
        "    case \"$path_:$prev\" in\n" +
        ValueRows(commands, shell) + "    esac\n    case \"$path_\" in\n";
    for (const CommandInfo& command : commands) {
        script += "        '" + PathOf(command) + "')\n";
        if (!command.subcommands.empty()) {
            script += "            compadd -- " + Joined(command.subcommands, " ") + "\n";
        }
        for (const CommandOption& option : command.options) {
            if (option.isPositional && !option.values.empty()) {
                script += "            compadd -- " + Joined(option.values, " ") + "\n";
            } else if (option.isPositional && TakesFile(option)) {
                script += "            [[ $PREFIX == -* ]] || _files\n";
            }
        }
        script += "            [[ $PREFIX != -* ]] || compadd -- " + OptionNames(command) +
                  "\n            ;;\n";
    }
    return script +
           "    esac\n"
           "}\n"
           "if [[ ${funcstack[1]} == _tagport-lab ]]; then\n"
           "    _tagport-lab \"$@\"\n"
           "else\n"
           "    (( ${+functions[compdef]} )) || { autoload -Uz compinit && compinit -i; }\n"
           "    compdef _tagport-lab tagport-lab\n"
           "fi\n";
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
                : "not __fish_seen_subcommand_from " + Joined(command.subcommands, " ");
        const std::string seen = last.empty() ? "" : "__fish_seen_subcommand_from " + last;
        std::string condition = seen;
        condition += seen.empty() || others.empty() ? "" : "; and ";
        condition += others;
        const std::string when = " -n " + InQuotes(condition);
        const std::string head = "complete -c tagport-lab" + when;
        for (const CommandInfo& sub : commands) {
            const std::size_t blank = sub.path.rfind(' ');
            const std::string parent = blank == std::string::npos ? "" : sub.path.substr(0, blank);
            if (!sub.path.empty() && parent == command.path) {
                script += head + " -a " + sub.path.substr(blank + 1) + " -d " +
                          InQuotes(sub.description) + "\n";
            }
        }
        for (const CommandOption& option : command.options) {
            script += head;
            script += option.isPositional ? "" : " -l " + option.name.substr(2);
            script += option.shortName.empty() ? "" : " -s " + option.shortName.substr(1);
            script += !option.values.empty()  ? " -x -a " + InQuotes(Joined(option.values, " "))
                      : option.value == "DIR" ? " -x -a '(__fish_complete_directories)'"
                      : TakesFile(option)     ? " -F"
                      : option.value.empty()  ? ""
                                              : " -x";
            script += " -d " + InQuotes(option.description) + "\n";
        }
    }
    return script;
}

}  // namespace

std::string CompletionScript(const std::vector<CommandInfo>& commands, const std::string& shell) {
    return shell == "bash" ? Bash(commands) : shell == "zsh" ? Zsh(commands) : Fish(commands);
}

}  // namespace lab
