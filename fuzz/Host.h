// A host that runs on the scheduled clock, for fuzzers of what devices report. The clock can be
// started once in a process, so one host serves all inputs; each input begins and ends with the
// host at rest.
#pragma once

#include <limits>
#include <tuple>

#include "fuzz/Check.h"
#include "tests/support/PcWithHost.h"

namespace fuzz {

using testing_support::PcWithHost;

/// One call of the listener: event, route, number.
using Event = std::tuple<int, int, testing_support::Number>;

/// Starts the clock, with the layer's limit on steps out of the way, and the host, where the PC has
/// a route. From here on a failed check of the setup ends the process. Called once.
inline std::unique_ptr<PcWithHost> MakeDesk(const std::vector<simulator::PcRoute>& routes) {
    GTEST_FLAG_SET(break_on_failure, true);
    emulation::ScheduledOptions options;
    options.maxStepsPerInstant = std::numeric_limits<std::uint64_t>::max();
    options.maxSilence = 0;  // the fuzzer may be busy with itself
    emulation::UseScheduledClock(options);
    // By itself the layer would end the process in a way that keeps no input.
    emulation::SetStallHandler([](const std::string& report) { Check(false, report.c_str()); });
    auto setup = std::make_unique<PcWithHost>(routes);
    if (!routes.empty()) {
        setup->Start();
        PcWithHost::Pass(emulation::kSecond);
    }
    return setup;
}

/// What the listener heard since the last call. Forgets the setup's log as well, which would grow.
inline std::vector<Event> TakeEvents(PcWithHost& setup) {
    setup.log.TakeMarked();
    std::vector<Event> events;
    for (const testing_support::ReceivedEvent& heard : testing_support::TakeEvents()) {
        events.emplace_back(heard.event, heard.route, heard.number);
    }
    return events;
}

}  // namespace fuzz
