#include <algorithm>

#include "lab/help/Help.h"
#include "lab/help/ScriptHelp.h"

namespace lab {

namespace {

constexpr char kName[] = "tagport-lab";

/// Text as troff prints it unchanged.
std::string Escaped(const std::string& text) {
    std::string out;
    bool beginsLine = true;
    for (const char c : text) {
        if (beginsLine && (c == '.' || c == '\'')) {
            out += "\\&";
        }
        switch (c) {
            case '\\':
                out += "\\e";
                break;
            case '-':
                out += "\\-";
                break;
            case '\'':
                out += "\\(aq";
                break;
            case '^':
                out += "\\(ha";
                break;
            case '~':
                out += "\\(ti";
                break;
            default:
                out += c;
        }
        beginsLine = c == '\n';
    }
    return out;
}

std::string Bold(const std::string& text) {
    return "\\fB" + Escaped(text) + "\\fR";
}

std::string OptionText(const CommandOption& option) {
    std::string text = ".TP\n";
    text += option.shortName.empty() ? "" : Bold(option.shortName) + ", ";
    text += option.isPositional ? "\\fI" + Escaped(option.name) + "\\fR" : Bold(option.name);
    if (!option.isPositional && !option.values.empty()) {
        std::string values;
        for (const std::string& value : option.values) {
            values += (values.empty() ? " " : " | ") + Bold(value);
        }
        text += values;
    } else if (!option.isPositional && !option.value.empty()) {
        text += " \\fI" + Escaped(option.value) + "\\fR";
    }
    return text + "\n" + Escaped(option.description) + ".\n";
}

/// Calls as items, and other paragraphs as they are.
std::string ExamplesText(const std::string& examples) {
    std::string text;
    std::size_t at = 0;
    while (at < examples.size()) {
        const std::size_t end = std::min(examples.find('\n', at), examples.size());
        const std::string line = examples.substr(at, end - at);
        at = end + 1;
        const std::size_t indent = std::min(line.find_first_not_of(' '), line.size());
        if (line.empty()) {
            text += ".PP\n";
        } else if (indent == 2) {
            text += ".TP\n" + Bold(line.substr(indent)) + "\n";
        } else {
            text += Escaped(line.substr(indent)) + "\n";
        }
    }
    return text;
}

std::string SectionText(const HelpSection& section) {
    std::string text = ".SS " + Escaped(section.title) + "\n" + Escaped(section.introduction);
    text += section.introduction.empty() ? "" : "\n";
    for (const HelpEntry& entry : section.entries) {
        text += ".TP\n" + Bold(entry.form) + "\n" + Escaped(entry.meaning) + ".\n";
    }
    return text;
}

}  // namespace

std::string ManPage(const std::vector<CommandInfo>& commands) {
    std::string page = ".TH TAGPORT\\-LAB 1\n.SH NAME\ntagport\\-lab \\- " +
                       Escaped(commands.front().description) + "\n.SH SYNOPSIS\n";
    for (const CommandInfo& command : commands) {
        if (!command.subcommands.empty()) {
            continue;
        }
        page += Bold(std::string(kName) + " " + command.path) + " [\\fIOPTION\\fR]...";
        for (const CommandOption& option : command.options) {
            page += option.isPositional ? " \\fI" + Escaped(option.name) + "\\fR" : "";
        }
        page += "\n.br\n";
    }
    page += ".SH DESCRIPTION\n" + Escaped(commands.front().description) + "\n";
    page += ExamplesText(ExamplesOf("")) + ".SH COMMANDS\n";
    std::string grammar;
    for (const CommandInfo& command : commands) {
        if (command.path.empty() || !command.subcommands.empty()) {
            continue;
        }
        page += ".SS " + Escaped(command.path) + "\n" + Escaped(command.description) + ".\n";
        for (const CommandOption& option : command.options) {
            page += OptionText(option);
        }
        page += ".PP\n" + ExamplesText(ExamplesOf(command.path));
        for (const HelpSection& section : Grammar(command.path)) {
            grammar += SectionText(section);
        }
    }
    return page + ".SH SCRIPTS AND FAULTS\n" + grammar +
           ".SH EXIT STATUS\n.TP\n0\nEverything worked.\n.TP\n1\nThe system reported a failure, or "
           "output could not be written.\n.TP\n2\nA wrong call: an option, a file or a line of a "
           "file is wrong.\n.SH ENVIRONMENT\n.TP\nNO_COLOR\nIf set, no colours are used. Colours "
           "are used on a terminal only.\n.TP\nTERM\nIf it is \\(lqdumb\\(rq, neither colours nor "
           "a "
           "progress bar are used.\n";
}

}  // namespace lab
