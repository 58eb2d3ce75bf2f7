// Everything that helps to call the program, made from its command line as the parser knows it: the
// examples in --help, a man page, completion for shells, and a guess at a mistyped word.
#pragma once

#include <string>
#include <vector>

#include "lab/help/Commands.h"

namespace lab {

/// Lines of two kinds: a call, after two blanks, and what it does, after six. Empty where a command
/// has none.
std::string ExamplesOf(const std::string& path);

/// What follows the options in the help of a command: grammar, examples and exit statuses.
std::string HelpFooter(const std::string& path);

/// The man page of section 1, as troff.
std::string ManPage(const std::vector<CommandInfo>& commands);

/// A script for "bash", "zsh" or "fish".
std::string CompletionScript(const std::vector<CommandInfo>& commands, const std::string& shell);

/// "; did you mean ...?" when an option or a command of this command looks like `word`; empty
/// otherwise.
std::string Suggestion(const CommandInfo& command, const std::string& word);

}  // namespace lab
