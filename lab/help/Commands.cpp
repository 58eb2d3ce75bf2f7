#include "lab/help/Commands.h"

#include <CLI/CLI.hpp>

#include "lab/Words.h"
#include "lab/help/Help.h"

namespace lab {

namespace {

// Of "TEXT:{a,b}", as the parser describes an option with fixed values.
std::vector<std::string> ValuesOf(const std::string& type) {
    const std::size_t open = type.find('{');
    const std::size_t close = type.find('}');
    return open == std::string::npos || close == std::string::npos
               ? std::vector<std::string>()
               : Split(type.substr(open + 1, close - open - 1), ',');
}

CommandOption OptionOf(const CLI::Option& option) {
    CommandOption info;
    info.isPositional = option.get_positional();
    if (!option.get_lnames().empty()) {
        info.name = "--" + option.get_lnames().front();
    }
    if (!option.get_snames().empty()) {
        info.shortName = "-" + option.get_snames().front();
    }
    if (info.isPositional) {
        info.name = option.get_name(true);
    }
    info.description = option.get_description();
    if (option.get_type_size() != 0) {
        const std::string type = option.get_type_name();
        info.values = ValuesOf(type);
        info.value = type.substr(0, type.find(':'));
    }
    return info;
}

void AddOptions(CommandInfo& info, const CLI::App& app) {
    for (const CLI::Option* const option : app.get_options()) {
        if (!option->get_group().empty()) {  // without a group it is hidden
            info.options.push_back(OptionOf(*option));
        }
    }
    for (const CLI::App* const sub : app.get_subcommands([](const CLI::App*) { return true; })) {
        if (sub->get_name().empty()) {
            AddOptions(info, *sub);  // a group of options
        }
    }
}

bool IsCommand(const CLI::App* app) {
    return !app->get_name().empty();  // the others are groups of options
}

CommandInfo InfoOf(const CLI::App& app, const std::string& path) {
    CommandInfo info;
    info.path = path;
    info.description = app.get_description();
    AddOptions(info, app);
    for (const CLI::App* const sub : app.get_subcommands(IsCommand)) {
        info.subcommands.push_back(sub->get_name());
    }
    return info;
}

}  // namespace

std::string PathTo(const std::string& path, const std::string& name) {
    return path.empty() ? name : path + " " + name;
}

std::vector<CommandInfo> Commands(const CLI::App& app, const std::string& path) {
    std::vector<CommandInfo> all{InfoOf(app, path)};
    for (const CLI::App* const sub : app.get_subcommands(IsCommand)) {
        const std::vector<CommandInfo> of = Commands(*sub, PathTo(path, sub->get_name()));
        all.insert(all.end(), of.begin(), of.end());
    }
    return all;
}

CommandInfo LastCommand(const CLI::App& app) {
    const CLI::App* last = &app;
    std::string path;
    while (!last->get_subcommands().empty()) {
        last = last->get_subcommands().front();
        path = PathTo(path, last->get_name());
    }
    return InfoOf(*last, path);
}

std::vector<std::string> WordsLike(const CommandInfo& command, const std::string& word) {
    if (word.substr(0, 1) != "-") {
        return command.subcommands;
    }
    std::vector<std::string> options;
    for (const CommandOption& option : command.options) {
        if (!option.isPositional) {
            options.push_back(option.name);
        }
    }
    return options;
}

void SetFooters(CLI::App& app, std::string (*footer)(const std::string& path),
                const std::string& path) {
    app.footer(footer(path));
    for (CLI::App* const sub : app.get_subcommands([](CLI::App* one) { return IsCommand(one); })) {
        SetFooters(*sub, footer, PathTo(path, sub->get_name()));
    }
}

}  // namespace lab
