// The program's exit statuses and the exceptions that end it early. Both exceptions carry one line
// without control characters.
#pragma once

#include <stdexcept>
#include <string>

#include "lab/Words.h"

namespace lab {

constexpr int kExitDone = 0;       ///< everything worked
constexpr int kExitFailed = 1;     ///< the system reported a failure
constexpr int kExitWrongCall = 2;  ///< an option, a file or a line of a file is wrong

/// The caller has to change an option, a file or a line. The text names the file, the line and the
/// value, as far as there are any.
class WrongCall : public std::runtime_error {
  public:
    explicit WrongCall(const std::string& text) : std::runtime_error(Printable(text)) {}
};

/// The call is right, but the operating system could not carry it out. The text names the file.
class SystemFailure : public std::runtime_error {
  public:
    explicit SystemFailure(const std::string& text) : std::runtime_error(Printable(text)) {}
};

/// Calls `action`; a WrongCall that it throws begins with `place` then.
template <class Action>
auto AtPlace(const std::string& place, Action action) {
    try {
        return action();
    } catch (const WrongCall& problem) {
        throw WrongCall(place + problem.what());
    }
}

inline void RefuseIf(bool wrong, const std::string& problem) {
    if (wrong) {
        throw WrongCall(problem);
    }
}
inline void FailIf(bool failed, const std::string& problem) {
    if (failed) {
        throw SystemFailure(problem);
    }
}

}  // namespace lab
