// Any text as a script of the lab, and its fault plans.
#include "fuzz/Check.h"
#include "lab/Failure.h"
#include "lab/Script.h"
#include "simulator/FaultPlan.h"

namespace {

void CheckCommands(const std::vector<lab::Command>& commands, std::size_t lines) {
    for (const lab::Command& command : commands) {
        Check(command.line >= 1 && command.line <= lines, "a command stands on a line");
        std::string error;
        Check(command.verb != lab::Verb::kFault ||
                  simulator::FaultPlan::Parse(command.argument, error) || !error.empty(),
              "a fault plan that is refused is told why");
        if (command.verb == lab::Verb::kRepeat) {
            CheckCommands(command.body, lines);
            continue;
        }
        const lab::Script again = lab::ParseScript("line", command.text);
        Check(again.commands.size() == 1 && again.commands[0].verb == command.verb &&
                  again.commands[0].number == command.number &&
                  again.commands[0].argument == command.argument &&
                  again.commands[0].fields == command.fields,
              "a command's text means the command");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string text = AsText(bytes, size);
    std::size_t lines = 1;
    for (const char character : text) {
        lines += character == '\n' ? 1 : 0;
    }
    try {
        CheckCommands(lab::ParseScript("file", text).commands, lines);
    } catch (const lab::WrongCall& refused) {
        const std::string problem = refused.what();
        Check(problem.substr(0, 5) == "file:", "a refusal names the file");
        const unsigned long line = std::strtoul(problem.c_str() + 5, nullptr, 10);
        Check(line >= 1 && line <= lines, "a refusal names a line of it");
    }
    return 0;
}
