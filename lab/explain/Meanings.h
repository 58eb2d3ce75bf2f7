// What each line of the library's log means: the tables that scripts/log-reference makes of
// meanings.txt when the project is built, and the recognition of a line. Constant; any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "lab/explain/Names.h"  // made as well: the enumerations, and the sizes of the tables

namespace lab::explain {

/// What to do, by where the tag is: not known, a chip that is in no keyboard, a keyboard.
using Advice = std::array<std::string_view, 3>;

struct Meaning {
    std::string_view format;  ///< without the blanks at its end
    Role role;
    ThreadKind thread;    ///< the only kind that writes it; kAny for lines of several
    unsigned traits;      ///< of a route or a chip
    unsigned code;        ///< the argument that is a system error code, from 1; 0: none
    bool isDevice;        ///< the code is a device's: the code's own advice comes first
    Condition condition;  ///< when it holds
    std::uint32_t operand;
    unsigned variants;  ///< meanings in front of this one that hold under a condition
    std::string_view says;
    std::string_view means;
    Advice advice;
};
extern const std::array<Meaning, kMeaningCount> kMeanings;

/// An error code of the system.
struct SystemCode {
    std::uint32_t code;
    std::string_view text;
    Advice advice;  ///< for a device that reports it; empty: that depends on the line
};
extern const std::array<SystemCode, kSystemCodeCount> kSystemCodes;

/// A line of the library inside a line of a log.
struct Match {
    const Meaning* meaning = nullptr;  ///< the one without a condition
    std::size_t begin = 0;             ///< where the library's text begins
    std::string text;
    std::optional<std::uint32_t> code;  ///< the system error code
};

/// Recognises the library's text at the end of `part`, which may have anything before it and blanks
/// after it. The earliest place counts: one text can be the end of another.
std::optional<Match> FindMeaning(std::string_view part);

/// Null when the table does not have the code.
const SystemCode* FindCode(std::optional<std::uint32_t> code);

}  // namespace lab::explain
