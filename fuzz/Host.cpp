#include "fuzz/Host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "fuzz/Check.h"

namespace fuzz {

bool StartClock() {
    GTEST_FLAG_SET(break_on_failure, true);
    hosted::ScheduledOptions options;
    options.maxStepsPerInstant = std::numeric_limits<std::uint64_t>::max();
    options.maxSilence = 0;  // the fuzzer may be busy with itself
    hosted::UseScheduledClock(options);
    // By itself the layer would end the process in a way that keeps no input.
    hosted::SetStallHandler([](const std::string& report) { Check(false, report.c_str()); });
    return true;
}

std::vector<Event> TakeEvents(Desk& desk) {
    desk.log.TakeUnannounced();
    desk.log.Clear();
    std::vector<Event> events;
    for (const testing_support::Heard& heard : testing_support::TakeHeard()) {
        events.emplace_back(heard.event, heard.route, heard.number);
    }
    return events;
}

void Expected::Add(const std::vector<std::uint8_t>& frame) {
    if (frame[0] == 3 && frame.size() > m_number.size()) {
        std::copy_n(frame.begin() + 1, m_number.size(), m_number.begin());
    } else if (frame[0] == 2 && frame[1] == 0x6E && frame[2] == 0xE6) {
        m_events.emplace_back(3, m_route, m_number);
    } else if (frame[0] == 2 && frame[1] == 0xE6 && frame[2] == 0x6E) {
        m_events.emplace_back(1, m_route, m_number);
    }
}

}  // namespace fuzz
