// The flows that a host can set off, each with what comes before it and how it is done again.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/Desk.h"

namespace testing_support {

struct Flow {
    std::string name;
    std::function<void(Desk&)> prepare;     ///< must work
    std::function<bool(Desk&)> act;         ///< the flow to its end; whether it worked
    std::function<bool(Desk&)> again;       ///< the same once more, with other content
    std::vector<std::string> success = {};  ///< lines that a success logs, and no failure
    hosted::Micros longest = 0;             ///< under a fault that lasts
    bool startsDevice = false;              ///< what fails leaves no more than stood before it
    bool isRefused = false;                 ///< nobody answers: it fails, with or without a fault
    simulator::PcRoute route = {};
    std::string chip = {};
};

/// For the test framework.
inline void PrintTo(const Flow& flow, std::ostream* out) {
    *out << flow.name;
}

const std::vector<Flow>& Flows();

}  // namespace testing_support
