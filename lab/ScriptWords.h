// The commands of a script: what the parser accepts, and what the help says of it. One row of the
// table is one command.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "lab/Script.h"

namespace lab {

enum class Takes {
    kNothing,
    kOptionalMs,
    kMs,
    kBytes,
    kNumber,
    kPlan,
    kByte,
    kBits,
    kOwn,
    kSwitch,
    kExpect,
    kCount
};

// Flags of a command: the prefixes that it may have, and what may follow it.
constexpr unsigned kIn = 1;
constexpr unsigned kManager = 2;
constexpr unsigned kScriptOnly = 4;  // no "host"
constexpr unsigned kFields = 8;      // those in brackets in its form

struct Word {
    Verb verb;
    Takes takes;
    unsigned flags;
    const char* usage;           ///< its form
    const char* meaning;         ///< what happens, without a full stop at the end
    std::string_view name = {};  ///< the first word of the form
};

const std::vector<Word>& ScriptWords();

struct HelpEntry {
    std::string form;
    std::string meaning;
};

const std::vector<HelpEntry>& ScriptPrefixes();

}  // namespace lab
