#include "fuzz/Host.h"

#include <gtest/gtest.h>

#include <limits>

#include "fuzz/Check.h"

namespace fuzz {

std::unique_ptr<PcWithHost> MakeDesk(const std::vector<simulator::PcRoute>& routes) {
    GTEST_FLAG_SET(break_on_failure, true);
    hosted::ScheduledOptions options;
    options.maxStepsPerInstant = std::numeric_limits<std::uint64_t>::max();
    options.maxSilence = 0;  // the fuzzer may be busy with itself
    hosted::UseScheduledClock(options);
    // By itself the layer would end the process in a way that keeps no input.
    hosted::SetStallHandler([](const std::string& report) { Check(false, report.c_str()); });
    return std::make_unique<PcWithHost>(routes);
}

std::vector<Event> TakeEvents(PcWithHost& setup) {
    setup.log.TakeUnannounced();
    setup.log.Clear();
    std::vector<Event> events;
    for (const testing_support::ReceivedEvent& heard : testing_support::TakeEvents()) {
        events.emplace_back(heard.event, heard.route, heard.number);
    }
    return events;
}

}  // namespace fuzz
