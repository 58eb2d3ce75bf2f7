// Any text as a script of the lab, and its fault plans.
#include <algorithm>

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
              "a fault plan that is refused has a reason");
        if (command.verb == lab::Verb::kRepeat) {
            CheckCommands(command.body, lines);
            continue;
        }
        const std::vector<lab::Command> again = lab::ParseScript("line", command.text).commands;
        Check(again.size() == 1 && again[0].verb == command.verb &&
                  again[0].number == command.number && again[0].argument == command.argument &&
                  again[0].fields == command.fields,
              "a command's text means the command");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string text = AsText(bytes, size);
    const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
    try {
        CheckCommands(lab::ParseScript("file", text).commands, lines);
    } catch (const lab::WrongCall& refused) {
        unsigned long line = 0;
        Check(std::sscanf(refused.what(), "file:%lu", &line) == 1 && line >= 1 && line <= lines,
              "a refusal names the file and a line of it");
    }
    return 0;
}
