#include "tests/system/soak/Judge.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>

using hosted::Micros;
using simulator::PcRoute;
using testing_support::Heard;
using testing_support::Number;
using testing_support::NumberOf;

namespace soak {

namespace {

constexpr std::size_t kLinesShown = 300;
constexpr Micros kPrompt = hosted::kSecond;  // two polls, and what a busy tag and lateness add

// A phone's last interrupt may be the check before its leave.
constexpr Micros kLeaveLeeway = simulator::kPhoneCheckInterval;

// What the library logged in this process. Set by the player, before anything can fail.
const testing_support::LogRecorder* g_log = nullptr;

int RouteNumber(PcRoute route) {
    return static_cast<int>(route) + 1;
}

bool GivesNumber(Act act) {
    return act == Act::kWrite || act == Act::kRestart || act == Act::kRenew || act == Act::kRecover;
}

// A host that still works with a manager that another replaces ends it, and with it the threads
// of all, when it has done. The thread of a renewal holds no manager that could end them.
bool MayHoldLastPointer(const History& history, const Done& done) {
    return std::any_of(history.begin(), history.end(), [&](const Done& other) {
        return other.operation.at != done.operation.at && other.operation.act == Act::kRestart &&
               other.begin <= done.end && other.end >= done.begin;
    });
}

// Nothing but what a visit survives may fall between the two times: reads, and writes that leave
// the threads alone.
bool Quiet(const History& history, const Done& tap, Micros from, Micros to) {
    return std::none_of(history.begin(), history.end(), [&](const Done& done) {
        const Act act = done.operation.act;
        const bool harmless = act == Act::kRead || act == Act::kReadNumber || act == Act::kRenew ||
                              act == Act::kUpdate;
        return &done != &tap && done.begin < to && done.end > from &&
               (!harmless || MayHoldLastPointer(history, done));
    });
}

// Replaced by a whole image of later. A renewal is taken over at once; only its way to the tag
// takes time, which another manager does not know of.
bool Replaced(const History& history, const Done& done) {
    return std::any_of(history.begin(), history.end(), [&](const Done& later) {
        const Act act = later.operation.act;
        const bool another =
            act == Act::kRestart || later.operation.manager != done.operation.manager;
        return GivesNumber(act) && later.worked &&
               later.begin > (another ? done.settled : done.end);
    });
}

// All the phones of the rounds that came to one route, and all that was heard of it.
void JudgeRoute(const std::string& chip, PcRoute route, const std::vector<Operation>& phones,
                const std::vector<Heard>& events) {
    const bool isKeyboard = route == PcRoute::kHid || route == PcRoute::kBle;
    const bool withoutVisits = !isKeyboard && chip == "like-fanli";
    const bool tellsLeave = !isKeyboard && chip == "fanli";
    bool right = events.size() % 2 == 0;
    std::string told;
    for (std::size_t i = 0; i < events.size(); ++i) {
        right = right && events[i].event == (withoutVisits ? 4 : i % 2 == 0 ? 3 : 1);
        told += " " + std::to_string(events[i].event) + " at " + std::to_string(events[i].time);
    }
    // A phone that comes before the leave of another has been reported belongs to that visit. A
    // chip that does not tell leaves can also give more visits than phones: the watch over a phone
    // that has caused few interrupts ends early, and the next interrupt opens another one.
    if (isKeyboard || withoutVisits) {
        right = right && events.size() == 2 * phones.size();
    } else if (tellsLeave) {
        right = right && events.size() <= 2 * phones.size();
    }
    const auto count = [&](Micros from, Micros to) {
        return std::count_if(events.begin(), events.end(),
                             [&](const Heard& one) { return one.time >= from && one.time <= to; });
    };
    Micros gone = -kPrompt;  // the phone before
    for (std::size_t i = 0; i < phones.size(); ++i) {
        // The first of those that come within the watch of each other, and the last.
        const bool isFirst = i == 0 || phones[i].at - gone >= kBeforeVisit;
        if (isFirst) {
            right = right && count(gone + kPrompt, phones[i].at - 1) == 0 &&
                    count(0, phones[i].at - 1) % 2 == 0 &&
                    count(phones[i].at, phones[i].at + kPrompt) > 0;
        }
        gone = phones[i].at + phones[i].lasting;
        const bool isLast = i + 1 == phones.size() || phones[i + 1].at - gone >= kBeforeVisit;
        // A Fanli chip's last may have belonged to the visit before it.
        const Micros leeway = tellsLeave && !isFirst ? kBeforeVisit : kLeaveLeeway;
        right = right && (!isLast || count(gone - leeway, gone + kPrompt) > 0);
    }
    if (!right || count(gone + kPrompt, hosted::Now()) > 0) {
        Fail("the phones on route " + std::to_string(RouteNumber(route)) + " gave" + told);
    }
}

}  // namespace

void Fail(const std::string& what) {
    const std::vector<std::string> lines = g_log->Texts();
    const std::size_t shown = std::getenv("TAGPORT_SOAK_LOG") == nullptr ? 0 : kLinesShown;
    for (std::size_t i = lines.size() - std::min(lines.size(), shown); i < lines.size(); ++i) {
        std::fprintf(stderr, "    %s\n", lines[i].c_str());
    }
    std::fprintf(stderr, "at %lld us: %s\n%s", static_cast<long long>(hosted::Now()), what.c_str(),
                 hosted::DescribeThreads().c_str());
    std::_Exit(1);
}

void Expect(bool condition, const char* what) {
    if (!condition) {
        Fail(what);
    }
}

void ShowLog(const testing_support::LogRecorder& log) {
    g_log = &log;
}

bool PutsImage(Act act) {
    return GivesNumber(act) || act == Act::kUpdate || act == Act::kStart;
}

bool Serving(const History& history, Micros at) {
    bool started = false;
    bool written = false;
    Micros trouble = -1;
    for (const Done& done : history) {
        const Act act = done.operation.act;
        const bool good = done.worked && done.begin > trouble;
        if (done.end >= at) {
            break;
        }
        if (act == Act::kFault || act == Act::kReplug || act == Act::kDisconnect ||
            MayHoldLastPointer(history, done)) {
            started = written = false;
            trouble = done.end;
        } else if (act == Act::kStart || act == Act::kRestart || act == Act::kRecover) {
            started = good;
            written = good && act != Act::kStart;
        } else if (act == Act::kWrite) {
            written = good && started;
        }
    }
    return started && written;
}

std::size_t JudgeVisits(const Story& story, const History& history,
                        const std::vector<Heard>& heard) {
    std::size_t judged = 0;
    if (story.chip == "like-fanli") {
        return judged;
    }
    for (const Done& done : history) {
        const Micros over = done.begin + done.operation.lasting + kVisitEnd;
        if (done.operation.act != Act::kTap ||
            !Quiet(history, done, done.begin - kBeforeVisit, over) ||
            !Serving(history, done.begin - kBeforeVisit)) {
            continue;
        }
        ++judged;
        const auto count = [&](int event, Micros from, Micros to) {
            return std::count_if(heard.begin(), heard.end(), [&](const Heard& one) {
                return one.event == event && one.time >= from && one.time <= to &&
                       one.route == RouteNumber(story.routes[0]);
            });
        };
        const auto enters = count(3, done.begin, over);
        const auto leaves = count(1, done.begin, over);
        // A write in the middle of a visit opens another one behind it, and each of a chain of
        // them can be watched until the next phone is there.
        const auto owed = count(3, 0, done.begin) - count(1, 0, done.begin);
        if (enters == 0 || (leaves != enters && leaves != enters + owed)) {
            Fail("the visit at " + std::to_string(done.begin) + " us gave " +
                 std::to_string(enters) + " enters and " + std::to_string(leaves) + " leaves");
        }
    }
    return judged;
}

bool JudgeTag(const Story& story, const History& history, std::size_t failed, const Number& found) {
    std::vector<Number> possible;
    for (const Done& done : history) {
        const Act act = done.operation.act;
        if (!PutsImage(act) || Replaced(history, done)) {
            continue;
        }
        if (!GivesNumber(act)) {
            // Brings the image of its manager back, which is the one that stands there already
            // unless there is or has been another manager.
            if (story.managers > 1 || MayHoldLastPointer(history, done)) {
                return false;
            }
        } else if (!done.worked || done.failedBefore != failed) {
            return false;  // a failed write leaves the tag as far as it got
        } else {
            possible.push_back(NumberOf(done.operation.fill));
        }
    }
    if (std::find(possible.begin(), possible.end(), found) == possible.end()) {
        Fail("the tag has a number that begins with " + std::to_string(found[0]));
    }
    return true;
}

std::size_t JudgeRounds(const Story& story, std::vector<Heard> heard) {
    std::size_t judged = 0;
    for (const PcRoute route : story.routes) {
        std::vector<Operation> phones;
        std::copy_if(story.rounds.begin(), story.rounds.end(), std::back_inserter(phones),
                     [&](const auto& one) { return one.act == Act::kTap && one.route == route; });
        const auto others = std::stable_partition(
            heard.begin(), heard.end(),
            [&](const Heard& one) { return one.route == RouteNumber(route); });
        JudgeRoute(story.chip, route, phones, {heard.begin(), others});
        heard.erase(heard.begin(), others);
        judged += phones.size();
    }
    return judged;
}

}  // namespace soak
