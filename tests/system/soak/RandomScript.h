// What one seed plays: a script of the lab.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace soak {

/// Entries of one line of the script or several, so that a failing one can be made shorter: each
/// can be left out. First an hour of operations, phones and faults of several hosts, until all have
/// ended. After it nothing is faulted any more: a start and a write, phones one after the other,
/// one that stays, and a stop that falls into a visit.
std::vector<std::string> Draw(std::uint64_t seed);

}  // namespace soak
