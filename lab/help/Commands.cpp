#include "lab/help/Commands.h"

#include <CLI/CLI.hpp>

namespace lab {

namespace {

// "TEXT:{a,b}", as the parser describes an option with fixed values.
std::vector<std::string> ValuesOf(const std::string& type) {
    std::vector<std::string> values;
    const std::size_t open = type.find('{');
    const std::size_t close = type.find('}');
    if (open == std::string::npos || close == std::string::npos) {
        return values;
    }
    for (std::size_t at = open + 1; at < close;) {
        const std::size_t end = std::min(type.find(',', at), close);
        values.push_back(type.substr(at, end - at));
        at = end + 1;
    }
    return values;
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

void Collect(std::vector<CommandInfo>& all, const CLI::App& app, const std::string& path) {
    CommandInfo info;
    info.path = path;
    info.description = app.get_description();
    AddOptions(info, app);
    const auto subcommands = app.get_subcommands([](const CLI::App*) { return true; });
    for (const CLI::App* const sub : subcommands) {
        if (!sub->get_name().empty()) {
            info.subcommands.push_back(sub->get_name());
        }
    }
    all.push_back(std::move(info));
    for (const CLI::App* const sub : subcommands) {
        if (!sub->get_name().empty()) {
            Collect(all, *sub, path.empty() ? sub->get_name() : path + " " + sub->get_name());
        }
    }
}

}  // namespace

std::vector<CommandInfo> Commands(const CLI::App& app) {
    std::vector<CommandInfo> all;
    Collect(all, app, "");
    return all;
}

}  // namespace lab
