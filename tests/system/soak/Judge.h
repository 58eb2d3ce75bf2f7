// Plays a story with the lab's player and looks at every step for what must never be.
#pragma once

#include <array>
#include <cstdint>

#include "tests/system/soak/Story.h"

namespace soak {

/// What happened, for the summary; from kHourVisits on what was judged.
enum Figure {
    kHours,
    kVisits,
    kNumbers,
    kFaults,
    kHourVisits,
    kTags,
    kUrls,
    kLaterVisits,
    kFigures
};
using Figures = std::array<double, kFigures>;

/// In this process, which must be fresh, as `tagport-lab run` does it. What is found wrong goes to
/// standard error and ends the process with status 1; TAGPORT_SOAK_LOG shows the end of the log
/// before it.
Figures Play(const Story& story, std::uint64_t seed);

}  // namespace soak
