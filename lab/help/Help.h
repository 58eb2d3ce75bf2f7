// Everything that helps to call the program, made from its command line as the parser knows it: the
// examples in --help, completion for shells, and the words that a mistyped one may mean.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace lab {

/// What follows the options in the help of the command at `path` ("image show"; empty for the
/// program): grammar, examples and exit statuses.
std::string HelpFooter(const std::string& path);

/// In each shell a function (completion.bash and so on) passes the words up to the cursor to
/// "tagport-lab complete-words", and offers what is printed: what may stand at the last of these
/// words, which follow the program's name on a line. The first line is "files", "directories" or
/// "words": what may stand there besides the words of the other lines, each with a tabulator and
/// its description.
std::string CompletedWords(const CLI::App& program, std::vector<std::string> words);

/// The words that may stand where the parser stopped at `word`: options or commands.
std::vector<std::string> WordsLike(const CLI::App& command, const std::string& word);

}  // namespace lab
