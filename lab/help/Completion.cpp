#include <CLI/CLI.hpp>
#include <algorithm>

#include "lab/Words.h"
#include "lab/help/Help.h"

namespace lab {

namespace {

std::string Offered(const std::string& word, const std::string& description) {
    return word + "\t" + description + "\n";
}

/// What may stand in the place of a value or a positional: a first line, and the values.
std::string ValuesOffered(const CLI::Option& option) {
    const std::string type = option.get_type_name();  // as "FILE", or "TEXT:{hex,raw}"
    const std::string name = option.get_name(true);
    const bool isFile = type.rfind("FILE", 0) == 0 || name == "FILE" || name == "LOG";
    std::string lines = type == "DIR" ? "directories\n" : isFile ? "files\n" : "words\n";
    const std::size_t open = type.find('{');
    if (open != std::string::npos) {
        for (const std::string& value :
             Split(type.substr(open + 1, type.find('}') - open - 1), ',')) {
            lines += Offered(value, "");
        }
    }
    return lines;
}

std::vector<const CLI::App*> CommandsOf(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App* one) { return !one->get_name().empty(); });
}

/// The options that the help shows, those of groups too. A group is a command without a name.
std::vector<const CLI::Option*> OptionsOf(const CLI::App& app) {
    auto options =
        app.get_options([](const CLI::Option* one) { return !one->get_group().empty(); });
    for (const CLI::App* const group :
         app.get_subcommands([](const CLI::App* one) { return one->get_name().empty(); })) {
        const std::vector<const CLI::Option*> more = OptionsOf(*group);
        options.insert(options.end(), more.begin(), more.end());
    }
    return options;
}

}  // namespace

std::string CompletedWords(const CLI::App& program, std::vector<std::string> words) {
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
    const CLI::App* command = &program;
    for (std::size_t i = 0; i + 1 < words.size(); ++i) {
        const std::vector<const CLI::App*> all = CommandsOf(*command);
        const auto found = std::find_if(
            all.begin(), all.end(), [&](const auto* one) { return one->get_name() == words[i]; });
        command = found == all.end() ? command : *found;
    }
    const std::string before = words.size() > 1 ? words[words.size() - 2] : "";
    const bool isOption = words.back().rfind('-', 0) == 0;
    std::string first = "words\n";
    std::string lines;
    for (const CLI::Option* const option : OptionsOf(*command)) {
        const std::string& description = option->get_description();
        if (option->get_positional()) {
            first = isOption ? first : ValuesOffered(*option);
        } else if (option->get_expected_max() != 0 && option->check_name(before)) {
            return ValuesOffered(*option);
        } else if (isOption) {
            for (const std::string& name : option->get_lnames()) {
                lines += Offered("--" + name, description);
            }
            for (const std::string& name : option->get_snames()) {
                lines += Offered("-" + name, description);
            }
        }
    }
    for (const CLI::App* const one : CommandsOf(*command)) {
        lines += Offered(one->get_name(), one->get_description());
    }
    return first + lines;
}

std::vector<std::string> WordsLike(const CLI::App& command, const std::string& word) {
    std::vector<std::string> words;
    if (word.rfind('-', 0) == 0) {
        for (const CLI::Option* const option : OptionsOf(command)) {
            for (const std::string& name : option->get_lnames()) {
                words.push_back("--" + name);
            }
        }
    } else {
        for (const CLI::App* const one : CommandsOf(command)) {
            words.push_back(one->get_name());
        }
    }
    return words;
}

}  // namespace lab
