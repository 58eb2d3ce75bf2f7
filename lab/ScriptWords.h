// The commands of a script: what the parser accepts, and what the help says of it. One row of the
// table is one command.
#pragma once

#include <string_view>
#include <vector>

#include "lab/Script.h"

namespace lab {

enum class Takes {
    kNothing,
    kOptionalMs,
    kMs,
    kNumber,
    kPlan,
    kByte,
    kBits,
    kOwn,
    kSwitch,
    kExpect,
    kCount
};

// Prefixes that a command may have.
constexpr unsigned kIn = 1;
constexpr unsigned kManager = 2;
constexpr unsigned kScriptOnly = 4;  // no "host"

struct Word {
    const char* name;
    Verb verb;
    Takes takes;
    unsigned prefixes;
    const char* usage;        ///< its form
    const char* meaning;      ///< what happens, without a full stop at the end
    std::string_view fields;  ///< names that may follow, each with a blank; '=' needs a value
};

const std::vector<Word>& ScriptWords();

struct Prefix {
    const char* usage;
    const char* meaning;
};

const std::vector<Prefix>& ScriptPrefixes();

}  // namespace lab
