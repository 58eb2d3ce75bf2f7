// A host that runs on the scheduled clock, for fuzzers of what devices report. The clock can be
// started once in a process, so one host serves all inputs; each input begins and ends with the
// host at rest.
#pragma once

#include <memory>
#include <tuple>
#include <vector>

#include "tests/support/PcWithHost.h"

namespace fuzz {

using testing_support::PcWithHost;

/// One call of the listener: event, route, number.
using Event = std::tuple<int, int, testing_support::Number>;

/// Starts the clock, with the layer's limit on steps out of the way. From here on a failed check of
/// the setup ends the process. Called once.
std::unique_ptr<PcWithHost> MakeDesk(const std::vector<simulator::PcRoute>& routes);

/// What the listener heard since the last call. Forgets the setup's log as well, which would grow.
std::vector<Event> TakeEvents(PcWithHost& setup);

}  // namespace fuzz
