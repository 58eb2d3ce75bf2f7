// What one seed plays: a script of the lab in sections, so that a failing one can be made shorter.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace soak {

/// In the order in which they are played. After the hour nothing is faulted any more.
enum Section {
    kBegin,
    kHour,    // operations, phones and faults of several hosts, until all have ended
    kSettle,  // a start and a write, and a number given while the write is under way
    kRounds,  // phones one after the other, with renewals and reads beside them
    kEnd,     // a phone that stays, the last number and its phone, a stop that falls into a visit
    kSections
};

/// Entries of one line of the script or several. Each but the last of hour and rounds can be left
/// out.
using Story = std::array<std::vector<std::string>, kSections>;

Story Draw(std::uint64_t seed);
std::string Text(const Story& story);

}  // namespace soak
