// The commands of a script: what the parser accepts, and what the help says of it. One row of the
// table is one command.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "lab/Script.h"

namespace lab {

// Flags of a command: the prefixes that it may have, and what may follow it.
constexpr unsigned kIn = 1;
constexpr unsigned kManager = 2;
constexpr unsigned kScriptOnly = 4;  // no "host"
constexpr unsigned kFields = 8;      // those in brackets in its form

struct Word {
    Verb verb;
    unsigned flags;
    std::string_view form;
    const char* meaning;  ///< what happens, without a full stop at the end

    std::string Name() const { return std::string(form.substr(0, form.find(' '))); }
};

const std::vector<Word>& ScriptWords();

struct HelpEntry {
    std::string form;
    std::string meaning;
};

const std::vector<HelpEntry>& ScriptPrefixes();

}  // namespace lab
