#include <algorithm>

#include "lab/help/Help.h"

namespace lab {

namespace {

// In each shell a function passes the words up to the cursor to "tagport-lab complete-words", whose
// first line says what else may stand there, and offers the words of the other lines.
constexpr char kBash[] =
    R"(# bash completion of tagport-lab, made by: tagport-lab completion bash
_tagport_lab() {
    local cur=${COMP_WORDS[COMP_CWORD]} before= files= lines
    if [[ $cur == = ]]; then
        cur=
    elif [[ $cur == --*=* ]]; then
        before=${cur%%=*}= cur=${cur#*=}
    fi
    mapfile -t lines < <("${COMP_WORDS[0]}" complete-words "${COMP_WORDS[@]:1:COMP_CWORD}" | cut -f1)
    case ${lines[0]} in
        files) files=-f ;;
        directories) files=-d ;;
    esac
    mapfile -t COMPREPLY < <(compgen ${files:+"$files"} -W "${lines[*]:1}" -- "$cur")
    COMPREPLY=("${COMPREPLY[@]/#/$before}")
    [[ -z $files ]] || compopt -o filenames
}
complete -F _tagport_lab tagport-lab
)";

// A file of a completion directory is the function's body at its first call; `source` of the same
// text registers the function.
constexpr char kZsh[] = R"(#compdef tagport-lab
# zsh completion of tagport-lab, made by: tagport-lab completion zsh
_tagport-lab() {
    local -a lines
    lines=("${(@f)$("${words[1]}" complete-words "${(@)words[2,CURRENT]}" | cut -f1)}")
    [[ $PREFIX != --*=* ]] || compset -P '*='
    case ${lines[1]} in
        files) _files ;;
        directories) _files -/ ;;
    esac
    (( ${#lines} < 2 )) || compadd -- "${(@)lines[2,-1]}"
}
if [[ ${funcstack[1]} == _tagport-lab ]]; then
    _tagport-lab "$@"
else
    (( ${+functions[compdef]} )) || { autoload -Uz compinit && compinit -i; }
    compdef _tagport-lab tagport-lab
fi
)";

constexpr char kFish[] = R"(# fish completion of tagport-lab, made by: tagport-lab completion fish
function __tagport_lab
    set -l before (commandline -opc)
    set -l token (commandline -ct)
    set -l head (string match -r -- '^--[^=]*=' $token)
    set -l lines ($before[1] complete-words $before[2..-1] $token)
    if contains -- $lines[1] files directories
        for path in (__fish_complete_path (string replace -r -- '^--[^=]*=' '' $token))
            echo "$head$path"
        end
    end
    for word in $lines[2..-1]
        echo "$head$word"
    end
end
complete -c tagport-lab -f -a '(__tagport_lab)'
)";

std::string Offered(const std::string& word, const std::string& description) {
    return word + "\t" + description + "\n";
}

/// What may stand in the place of a value or a positional: a first line, and the values.
std::string ValuesOffered(const CommandOption& option) {
    const bool isFile =
        option.value.rfind("FILE", 0) == 0 || option.name == "FILE" || option.name == "LOG";
    std::string lines = option.value == "DIR" ? "directories\n" : isFile ? "files\n" : "words\n";
    for (const std::string& value : option.values) {
        lines += Offered(value, "");
    }
    return lines;
}

}  // namespace

std::string CompletionScript(const std::string& shell) {
    return shell == "bash" ? kBash : shell == "zsh" ? kZsh : kFish;
}

std::string CompletedWords(const std::vector<CommandInfo>& commands,
                           std::vector<std::string> words) {
    // Bash makes three words of "--route=i", the other shells one.
    const bool isAfterSign = words.empty() || words.back() == "=";
    words.erase(std::remove(words.begin(), words.end(), "="), words.end());
    if (isAfterSign) {
        words.emplace_back();
    }
    const std::size_t equals = words.back().find('=');
    if (words.back().rfind("--", 0) == 0 && equals != std::string::npos) {
        words.back().erase(equals);
        words.emplace_back();
    }
    const CommandInfo* command = &commands.front();
    for (std::size_t i = 0; i + 1 < words.size(); ++i) {
        const auto found = std::find_if(
            commands.begin(), commands.end(),
            [&](const CommandInfo& one) { return one.path == PathTo(command->path, words[i]); });
        command = found == commands.end() ? command : &*found;
    }
    const std::string before = words.size() > 1 ? words[words.size() - 2] : "";
    std::string first = "words\n";
    std::string lines;
    for (const CommandOption& option : command->options) {
        const bool isBefore = option.name == before || option.shortName == before;
        if (!option.isPositional && isBefore && !before.empty() && !option.value.empty()) {
            return ValuesOffered(option);
        }
        if (option.isPositional && words.back().rfind('-', 0) != 0) {
            first = ValuesOffered(option);
        } else if (!option.isPositional && words.back().rfind('-', 0) == 0) {
            lines += Offered(option.name, option.description);
            lines += option.shortName.empty() ? "" : Offered(option.shortName, option.description);
        }
    }
    for (const CommandInfo& one : commands) {
        const std::string name = one.path.substr(one.path.rfind(' ') + 1);
        const bool isOf = !name.empty() && one.path == PathTo(command->path, name);
        lines += isOf ? Offered(name, one.description) : "";
    }
    return first + lines;
}

}  // namespace lab
