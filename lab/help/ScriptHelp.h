// What a command takes beside its options: the lines of a script and the entries of a fault plan.
// --help prints it; docs/lab.md has the same rows, which a test compares.
#pragma once

#include <string>
#include <vector>

#include "lab/ScriptWords.h"

namespace lab {

struct HelpSection {
    std::string title;
    std::string introduction;
    std::vector<HelpEntry> entries;
};

/// The sections of the command at `path` ("run"); most commands have none.
std::vector<HelpSection> Grammar(const std::string& path);

/// One section in two columns, as the options above it.
std::string AsText(const HelpSection& section);

}  // namespace lab
