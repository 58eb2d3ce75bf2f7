// What a story's events and its tag are judged by: what was done when, and what was heard.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tests/support/Desk.h"
#include "tests/system/soak/Story.h"

namespace soak {

constexpr hosted::Micros kVisitEnd = 12 * hosted::kSecond;     // later than every leave
constexpr hosted::Micros kBeforeVisit = 15 * hosted::kSecond;  // a visit before it has been closed

/// Ends the process with status 1. TAGPORT_SOAK_LOG shows the end of ShowLog's log before it.
[[noreturn]] void Fail(const std::string& what);
void Expect(bool condition, const char* what);
void ShowLog(const testing_support::LogRecorder& log);

struct Done {
    Operation operation;
    hosted::Micros begin = 0;
    hosted::Micros end = 0;      // when the call returned
    hosted::Micros settled = 0;  // when a renewal has come to the tag as well
    bool worked = true;
    std::size_t failedBefore = 0;  // renewals that had failed when it began
};
using History = std::vector<Done>;  // in the order of the ends

/// Whether an operation may put its manager's image onto the tag.
bool PutsImage(Act act);

/// Whether, at this time, a start and a write have worked since whatever may have taken the threads
/// or the device away, or left pieces of a number on the tag.
bool Serving(const History& history, hosted::Micros at);

/// Judges each phone of the hour that came to a library at rest and serving. Gives how many.
std::size_t JudgeVisits(const Story& story, const History& history,
                        const std::vector<testing_support::Heard>& heard);

/// Judges the number on the tag, while no image is on its way there. False when nothing can be
/// said, since something has failed since the last write that nothing has replaced.
bool JudgeTag(const Story& story, const History& history, std::size_t failed,
              const testing_support::Number& found);

/// Judges every phone of the rounds and gives how many there were. `heard` is all that was heard
/// since the rounds began, by the time since then.
std::size_t JudgeRounds(const Story& story, std::vector<testing_support::Heard> heard);

}  // namespace soak
