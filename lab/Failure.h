// How the program ends, and the exception that ends it early.
#pragma once

#include <stdexcept>
#include <string>

namespace lab {

constexpr int kExitDone = 0;       ///< what was asked worked
constexpr int kExitFailed = 1;     ///< the system reported failure
constexpr int kExitWrongCall = 2;  ///< an option, a file or a line of it is wrong

/// A call that cannot be served. The text names the file, the line and the value, where it has one.
class WrongCall : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace lab
