// The flows that a host can set off, each with what comes before it.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "platform/LinkDockBackDoor.h"
#include "tests/support/PcWithHost.h"

namespace testing_support {

// What stands on the tag before a flow, what the flow puts there, and what its repetition does.
constexpr std::uint8_t kOld = 0x11;
constexpr std::uint8_t kNew = 0x22;
constexpr std::uint8_t kNewer = 0x33;

struct Flow {
    std::string name;
    void (*prepare)(PcWithHost&);                    ///< must work
    bool (*act)(PcWithHost&, std::uint8_t content);  ///< to its end; whether it worked
    std::vector<std::string> success = {};           ///< lines that a success logs, and no failure
    hosted::Micros longest = 0;                      ///< under a fault that lasts
    bool startsDevice = false;  ///< what fails leaves no more than stood before it
    bool isRefused = false;     ///< nobody answers: it fails, with or without a fault
    simulator::PcRoute route = {};
    std::string chip = {};
    LinkDockService::DeliveryHabits habits = {};
};

/// For the test framework.
inline void PrintTo(const Flow& flow, std::ostream* out) {
    *out << flow.name;
}

const std::vector<Flow>& Flows();

}  // namespace testing_support
