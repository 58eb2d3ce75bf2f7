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
    kHeld,    // a phone that stays, with a write or a creation beside it
    kLast,    // the last number and its phone
    kStop,    // a stop that falls into a visit, or into two
    kSections
};

struct Story {
    std::vector<std::string> routes;
    std::string chip;
    unsigned hosts = 1;
    unsigned managers = 1;
    bool missesReports = false;  // a listener waits for a keyboard that only its thread could hear

    /// Entries of one line of the script or several. Each but the last of hour and rounds can be
    /// left out.
    std::array<std::vector<std::string>, kSections> sections;

    bool Has(const std::string& route) const;
    bool IsWired() const { return routes[0] == "i2c" || routes[0] == "usb"; }
    std::string Text() const;
    Section SectionOf(std::size_t line) const;  ///< of a line of the text, from 1
};

Story Draw(std::uint64_t seed);

constexpr char kFirstSettled = '\xE1';  // the byte of the number given during the last write
constexpr char kLastNumber = '\xE2';
constexpr char kLastLetter = 'z';  // of the last write's URL, address and model

}  // namespace soak
