// What a chain of failures means to a person: its likely cause, in words, and what to do about it.
// Plain functions.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lab/explain/Story.h"

namespace lab::explain {

/// The step that explains the others best; null without steps.
const Step* CauseOf(const std::vector<Step>& chain);

/// What a step means, with its error code in plain words.
std::string Explained(const Step& step);

/// What to do about a step. A device's error code says more than the line that it is in.
std::string_view RemedyOf(const Step& step);

/// Advice for the route of this name (empty: not known). Leaves out what is only for a keyboard,
/// between square brackets, or only for a chip on I2C, between braces.
std::string AdviceFor(std::string_view route, std::string_view advice);

}  // namespace lab::explain
