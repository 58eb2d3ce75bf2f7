// A plan of faults: which requests fail, and how. Built in code or parsed from a short text.
//
//     plan   = fault *( "," fault )            blanks around commas are ignored
//     fault  = kind "#" which "=" action
//     kind   = open | read | write | control | interrupt | any
//     which  = N                               the N-th request of that kind, from 1
//            | N "-" M                         from the N-th to the M-th
//            | N "+"                           from the N-th on
//     action = refuse:CODE                     fails at once with this last-error code
//            | fail:CODE                       is pending first, then fails with this code
//            | short:BYTES                     succeeds, that many bytes short
//            | late:MS                         ends MS milliseconds later than it would
//            | never                           stays pending until it is cancelled
//            | gone                            the device is gone, from this request on
//
// "write#3=refuse:1117, read#5=short:2, interrupt#1=never, write#9=gone". "open" is the opening of
// the path, "control" every control request but the interrupt wait, "any" every request but an
// opening. An opening can only be refused or find the device gone. Where several faults name one
// request, the first one holds. Requests are counted from the moment that the plan is set.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "simulator/Basics.h"

namespace simulator {

enum class FaultTarget { kOpen, kRead, kWrite, kControl, kInterrupt, kAny };
enum class FaultAction { kRefuse, kFail, kShort, kLate, kNever, kGone };

struct Fault {
    FaultTarget target = FaultTarget::kAny;
    std::uint32_t first = 1;
    std::uint32_t last = 1;
    FaultAction action = FaultAction::kRefuse;
    std::uint32_t value = 0;  ///< code, bytes or milliseconds, by the action
};

/// The entries between the commas, without the blanks around them; none in a text of blanks.
std::vector<std::string> FaultEntries(const std::string& text);
/// The whole number from 1 to 4294967295 that the text is; nothing for any other text.
std::optional<std::uint32_t> FaultNumber(const std::string& text);

struct FaultPlan {
    std::vector<Fault> faults;

    /// Nothing when the text is wrong, with the entry and the reason in `error`. An empty text
    /// is an empty plan.
    static std::optional<FaultPlan> Parse(const std::string& text, std::string& error);

    /// The fault of the `nth` request of a kind (which is the `nthAny` of all), or null.
    const Fault* Find(FaultTarget target, std::uint32_t nth, std::uint32_t nthAny) const;
};

}  // namespace simulator
