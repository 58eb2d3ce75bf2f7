#include "lab/help/ScriptHelp.h"

#include "lab/Words.h"

namespace lab {

namespace {

constexpr std::size_t kFormColumn = 2;
constexpr std::size_t kMeaningColumn = 30;
constexpr std::size_t kWidth = 100;

}  // namespace

std::vector<HelpSection> Grammar(const std::string& path) {
    if (path != "run") {
        return {};
    }
    HelpSection commands{"Scripts",
                         "One command a line. A # at the beginning of a word starts a comment. An "
                         "operation that fails makes the exit status 1, unless \"expect result "
                         "FAIL\" follows it.",
                         {}};
    for (const Word& word : ScriptWords()) {
        commands.entries.push_back({std::string(word.form), word.meaning});
    }
    return {std::move(commands),
            {"Prefixes of a command in a script", "", ScriptPrefixes()},
            {"Faults",
             "PLAN is a list of entries, separated by commas, as in write#3=refuse:1117, "
             "interrupt#1=never. Where several name one request, the first one holds.",
             {{"KIND#WHICH=ACTION", "on i2c, usb and hid: these requests of the driver fail"},
              {"KIND", "open, read, write, control, interrupt or any (each but open)"},
              {"WHICH", "N (the N-th one from now on), N-M or N+, with numbers from 1"},
              {"refuse:CODE", "fails at once with this last-error code"},
              {"fail:CODE", "is pending first, then fails with this code"},
              {"short:BYTES", "succeeds, that many bytes short"},
              {"late:MS", "ends that many milliseconds later"},
              {"never", "stays pending until it is cancelled"},
              {"gone", "the device is gone, from this request on"},
              {"CALL#N",
               "on ble: the N-th call of the Bluetooth client from now on fails; CALL is connect, "
               "disconnect, subscribe, unsubscribe or write"}}}};
}

std::string AsText(const HelpSection& section) {
    std::string text = section.title + ":\n";
    if (!section.introduction.empty()) {
        text += Wrapped(section.introduction, kWidth, 0, 0) + "\n";
    }
    for (const HelpEntry& entry : section.entries) {
        std::string line = std::string(kFormColumn, ' ') + entry.form;
        if (line.size() + 1 >= kMeaningColumn) {
            text += line + "\n";
            line.clear();
        }
        text += line + std::string(kMeaningColumn - line.size(), ' ') +
                Wrapped(entry.meaning, kWidth, kMeaningColumn, kMeaningColumn) + "\n";
    }
    return text;
}

}  // namespace lab
