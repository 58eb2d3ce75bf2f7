// Everything that helps to call the program, made from its command line as the parser knows it: the
// examples in --help, a man page, completion for shells, and a guess at a mistyped word.
#pragma once

#include <string>

#include <CLI/App.hpp>

namespace lab {

/// Lines of two kinds: a call, after two blanks, and what it does, after six. Empty where a command
/// has none.
std::string ExamplesOf(const std::string& path);

/// Adds the grammar, examples and exit statuses to the help of each command.
void AddExamples(CLI::App& app);

/// The man page of section 1, as troff.
std::string ManPage(const CLI::App& app);

/// A script for "bash", "zsh" or "fish".
std::string CompletionScript(const CLI::App& app, const std::string& shell);

/// "; did you mean ...?" when a command or an option that is allowed where parsing stopped looks
/// like `word`; empty otherwise.
std::string Suggestion(const CLI::App& app, const std::string& word);

}  // namespace lab
