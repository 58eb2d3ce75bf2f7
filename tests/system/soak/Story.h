// What one seed plays: a PC, its hosts, and an hour of operations. Plain data, so that a failing
// story can be made shorter.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/hosted/Kernel.h"
#include "simulator/SimulatedPc.h"

namespace soak {

enum class Act {
    kWrite,
    kRenew,
    kRead,
    kReadNumber,
    kUpdate,
    kStart,       // device start and, on Bluetooth, connect
    kRecover,     // the same, and a write
    kDisconnect,  // Bluetooth
    kTap,         // a phone comes, stays and goes
    kFault,       // a fault plan, for a while
    kReplug,      // the device goes and comes back
    kRestart,     // the manager goes, a new one is created, started and writes
};

struct Operation {
    Act act = Act::kWrite;
    hosted::Micros at = 0;
    unsigned host = 0;
    unsigned manager = 0;
    std::uint8_t fill = 0;       // content
    hosted::Micros lasting = 0;  // a phone's stay, the time between pulling out and putting back
    std::string plan;            // kFault
    simulator::PcRoute route{};  // of a phone; only rounds have others than the PC's first
};

struct Story {
    std::vector<simulator::PcRoute> routes;
    std::string chip;
    unsigned hosts = 1;
    unsigned managers = 1;
    hosted::ScheduledOptions options;
    std::vector<Operation> operations;  // by time

    // Behind the hour, when nothing is faulted any more: phones, renewals and reads of one host,
    // by the time since the rounds began. Two phones are never at one route together.
    std::vector<Operation> rounds;
    hosted::Micros renewalAfter = 0;  // from the last write's begin to a renewal
    hosted::Micros stopAfter = 0;     // from the coming of the very last phone to the stop
};

constexpr hosted::Micros kHour = 3600 * hosted::kSecond;

Story Draw(std::uint64_t seed);
std::string Describe(const Story& story);  ///< a line for the desk, one for each operation

/// What happened, for the summary.
struct Figures {
    hosted::Micros time = 0;
    std::size_t visits = 0;
    std::size_t writes = 0;
    std::size_t faults = 0;         // requests hit; those of the Bluetooth client are not told
    std::size_t judgedVisits = 0;   // phones of the hour
    std::size_t judgedTags = 0;     // times in the hour at which the tag's number was judged
    std::size_t settledVisits = 0;  // phones of the rounds, each of which is judged

    void operator+=(const Figures& more) {
        time += more.time;
        visits += more.visits;
        writes += more.writes;
        faults += more.faults;
        judgedVisits += more.judgedVisits;
        judgedTags += more.judgedTags;
        settledVisits += more.settledVisits;
    }
};

/// Plays it on the scheduled clock of this process, which must be fresh. What is found wrong goes
/// to standard error and ends the process with status 1.
Figures Play(const Story& story);

}  // namespace soak
