// Compares the listener's events with the phones of the script.
#include "lab/VisitRules.h"

#include <algorithm>

namespace lab {

namespace {

constexpr int kInterrupt = 4;
constexpr double kVisitEnd = 12'000;     // milliseconds, as all times here: later than every leave
constexpr double kBeforeVisit = 15'000;  // a visit before it has been closed
constexpr double kPrompt = 1000;         // two polls, and what a busy tag and lateness add
constexpr double kLeaveLeeway = 125;     // the last interrupt may be the check before the leave
constexpr std::int64_t kQuickListener = 50;  // a longer pause of it holds up the event threads
constexpr double kShortestStay = 250;        // in which a phone surely reads the tag
constexpr double kLongestWatch = 4000;       // a leave after a longer stay may be reported early

int VisitsOpenedBy(int event) {
    return event == kPhoneEntered ? 1 : event == kPhoneLeft ? -1 : 0;
}

}  // namespace

bool VisitRules::HasVisits(const simulator::RouteKind& route) const {
    return route.IsKeyboard() || m_pc.Parts().Chip()->reportsVisits;
}

// A visit that began or ended while nobody listened is not known.
bool VisitRules::IsDeaf(double time) const {
    return !m_listening || time < m_listeningSince + kVisitEnd;
}

void VisitRules::Begin(const Command& command, double now) {
    const double begin = now + static_cast<double>(command.in.value_or(0));
    if (command.verb == Verb::kTap) {
        Add(command, begin, begin + static_cast<double>(command.number.value_or(kDefaultStay)));
    } else if (command.verb == Verb::kEnter || command.verb == Verb::kLeave) {
        for (Phone& phone : m_phones) {
            phone.gone = phone.gone == kUnderWay ? begin : phone.gone;
        }
        if (command.verb == Verb::kEnter) {
            Add(command, begin, kUnderWay);
        }
    } else if (command.verb == Verb::kListener && !command.on) {
        m_listening = false;
    }
}

void VisitRules::EndListener(const Command& command, double now) {
    if (command.on && !m_listening) {
        m_listeningSince = now;
        m_open = 0;
    }
    m_listening = command.on;
    m_reads = command.fields.count("reads") > 0;
    m_pause = NumberOf(command.fields, "pause");
}

bool VisitRules::ListenerWaits() const {
    const auto& routes = m_pc.Parts().Routes();
    return m_reads && simulator::KindOf(routes.back()).IsKeyboard();
}

void VisitRules::Add(const Command& command, double begin, double gone) {
    Phone phone;
    phone.command = &command;
    phone.route = &simulator::KindOf(m_pc.Parts().RouteOf(command));
    phone.begin = begin;
    phone.gone = gone;
    m_firstPhone = std::min(m_firstPhone, begin);
    phone.isHeard = m_listening && !ListenerWaits();
    phone.isQuick = !m_reads && m_pause <= kQuickListener;
    for (Phone& other : m_phones) {
        if (other.begin <= gone && other.gone >= begin) {
            other.alone = phone.alone = false;
        }
    }
    m_phones.push_back(phone);
    std::sort(m_phones.begin(), m_phones.end(),
              [](const Phone& one, const Phone& two) { return one.begin < two.begin; });
}

void VisitRules::TakeEvent(const Json& object, const simulator::RouteKind& route) {
    const double time = object["t"];
    const int event = object["event"];
    const std::string name(route.name);
    m_events.push_back({time, event, &route});
    const Command& command = m_history.Latest();
    m_findings.Expect(event == kInterrupt ||
                          (HasVisits(route) && (event == kPhoneLeft || event == kPhoneEntered)),
                      command, "an event that the " + name + " route can have",
                      "event " + std::to_string(event));
    // The keyboards report both ends themselves; either may be lost with its read.
    if (route.reportsBothEnds) {
        return;
    }
    m_open += VisitsOpenedBy(event);
    m_openedBy = event == kPhoneEntered ? &command : m_openedBy;
    m_findings.Expect(m_open >= 0 || IsDeaf(time), command, "event 3 before event 1",
                      "event 1 on the " + name + " route at " + Milliseconds(time));
    m_open = std::max(m_open, 0);
}

void VisitRules::TakeReading(const Json& object) {
    const double time = object["t"];
    for (Phone& phone : m_phones) {
        if (phone.alone && phone.begin <= time && time <= phone.gone) {
            phone.readings.push_back(object);
            if (phone.route == &m_pc.Parts().FirstRoute() &&
                phone.gone - phone.begin >= kShortestStay) {
                m_tag.JudgeReading(object, *phone.command, phone.begin);
            }
            return;
        }
    }
}

void VisitRules::JudgeRest(double now) const {
    const bool isNear =
        Any(m_phones, [&](const Phone& phone) { return phone.gone + kRenewalTime > now; });
    if (!isNear && m_lastGone + kRenewalTime <= now && m_history.IsAtRest(now) &&
        !m_history.IsFaulting() && !IsDeaf(now)) {
        m_findings.Expect(m_open == 0, *m_openedBy, "every visit closed after a minute's rest",
                          std::to_string(m_open) + " open");
    }
}

void VisitRules::JudgePhones(double now) {
    for (const Phone& first : m_phones) {
        std::vector<Phone*> group;
        for (Phone& next : m_phones) {
            if (next.route == first.route &&
                (group.empty() ? &next == &first
                               : next.begin - group.back()->gone < kBeforeVisit)) {
                group.push_back(&next);
            }
        }
        if (first.route == nullptr || group.back()->gone + kBeforeVisit >= now) {
            continue;
        }
        Phones phones;
        for (Phone* const one : group) {
            phones.push_back(*one);
            one->route = nullptr;
        }
        m_lastGone = std::max(m_lastGone, phones.back().gone);
        JudgeGroup(phones);
    }
    m_phones.erase(std::remove_if(m_phones.begin(), m_phones.end(),
                                  [](const Phone& one) { return one.route == nullptr; }),
                   m_phones.end());
}

VisitRules::Surroundings VisitRules::Surrounding(const Phones& phones) const {
    Surroundings around;
    const double begin = phones.front().begin;
    const double to = phones.back().gone + kVisitEnd;
    const RunHistory::Service service = m_history.ServiceAt(begin);
    const double from = std::max(begin - kBeforeVisit, service.ready);
    around.since = service.since;
    // Soon after a start only the first phone of the run is certain: the chip keeps what it has
    // seen while nobody waited, and a visit of before may still be watched.
    if (service.ready > begin - kBeforeVisit &&
        (m_firstPhone < begin || (!m_events.empty() && m_events.front().time < begin))) {
        return around;
    }
    std::vector<const Done*> beside = m_history.All();
    bool isCalm = !Any(phones, [](const Phone& phone) { return !phone.isQuick; });
    double busy = from;
    std::sort(beside.begin(), beside.end(),
              [](const Done* one, const Done* two) { return one->begin < two->begin; });
    for (const Done* done : beside) {
        const Verb verb = done->verb();
        if (!done->Overlaps(from, to) || IsOneOf(verb, {Verb::kTap, Verb::kEnter, Verb::kLeave})) {
            continue;
        }
        const bool opens = verb == Verb::kWrite || (verb == Verb::kCreate && !done->replaces);
        if (done->overlapsRelease ||
            (!opens && !IsOneOf(verb, {Verb::kReadMessage, Verb::kReadNumber, Verb::kRenew,
                                       Verb::kUpdate})) ||
            (opens && done->begin < begin + kShortestStay)) {
            return around;
        }
        around.openers += opens ? 1 : 0;
        isCalm = isCalm && verb != Verb::kUpdate && done->begin >= busy;
        busy = std::max(busy, done->end);
    }
    around.judged = service.written && (around.openers == 0 || isCalm);
    around.isTimed = isCalm;
    return around;
}

void VisitRules::JudgeGroup(const Phones& phones) {
    for (std::size_t i = 0; i < phones.size(); ++i) {
        if (!phones[i].isHeard || phones[i].gone - phones[i].begin < kShortestStay ||
            (i > 0 && phones[i].begin < phones[i - 1].gone)) {
            return;
        }
    }
    const Surroundings around = Surrounding(phones);
    if (!around.judged) {
        return;
    }
    m_findings.judged[kVisits] += phones.size();
    m_findings.judged[kTimedVisits] += around.isTimed ? phones.size() : 0;
    JudgeEvents(phones, around);
    for (const Phone& phone : phones) {
        if (around.isTimed && around.openers == 0 && phone.alone) {
            const bool isRead = !phone.readings.empty() && phone.readings[0]["read"].get<bool>();
            m_findings.Expect(isRead, *phone.command, "a phone that reads the tag",
                              phone.readings.empty() || isRead
                                  ? "nothing"
                                  : phone.readings[0]["problem"].get<std::string>());
        }
    }
}

void VisitRules::JudgeEvents(const Phones& phones, const Surroundings& around) {
    const simulator::RouteKind& route = *phones.front().route;
    const double begin = phones.front().begin;
    const double gone = phones.back().gone;
    const bool visits = HasVisits(route);
    const bool chipReportsEnds = !route.IsKeyboard() && m_pc.Parts().Chip()->reportsBothEnds;
    std::vector<Event> events;  // since the first of the phones came
    int open = 0;               // a visit of before, which a write beside it may have left open
    for (const Event& one : m_events) {
        const bool isOfRoute = one.route == &route && one.time >= around.since;
        if (isOfRoute && one.time < begin) {
            open = std::max(open + VisitsOpenedBy(one.event), 0);
        } else if (isOfRoute && one.time <= gone + kVisitEnd) {
            events.push_back(one);
        }
    }
    std::string seen;
    std::size_t enters = 0;
    bool isRight = !events.empty();
    for (std::size_t i = 0; i < events.size(); ++i) {
        const int event = events[i].event;
        seen += (i == 0 ? "event " : ", ") + std::to_string(event) + " at " +
                Milliseconds(events[i].time);
        enters += event == kPhoneEntered ? 1 : 0;
        const int inTurn = i % 2 == 0 ? kPhoneEntered : kPhoneLeft;
        // Two visits that are open at once end in any order.
        isRight = isRight && (visits ? !around.isTimed || around.openers > 0 || event == inTurn
                                     : event == kInterrupt);
    }
    const std::size_t leaves = events.size() - enters;
    // A phone that comes before the leave of another has been reported belongs to that visit. A
    // chip that does not report leaves can give more visits than phones: the watch over a phone
    // that has caused few interrupts ends early, and the next interrupt opens another one.
    if (route.IsKeyboard() || !visits) {
        isRight = isRight && events.size() == 2 * phones.size();
    } else {
        isRight = isRight && (!around.isTimed || open == 0);
        if (chipReportsEnds || (around.isTimed && phones.size() == 1)) {
            isRight = isRight && enters <= phones.size() + around.openers;
        }
    }
    isRight = isRight && (!visits || enters == leaves ||
                          (!around.isTimed && enters + static_cast<std::size_t>(open) == leaves));
    std::string expected =
        visits ? "an event 3 and an event 1 for a phone" : "two events 4 for a phone";
    if (around.isTimed) {
        // A Fanli chip's last may have belonged to the visit before it.
        const double leeway = chipReportsEnds && phones.size() > 1 ? kBeforeVisit : kLeaveLeeway;
        const bool isShort = !Any(
            phones, [](const Phone& phone) { return phone.gone - phone.begin > kLongestWatch; });
        expected += ", the first before " + Milliseconds(begin + kPrompt);
        isRight = isRight && events.front().time <= begin + kPrompt;
        if (isShort && around.openers == 0) {
            expected += ", the last from " + Milliseconds(gone - leeway) + " to " +
                        Milliseconds(gone + kPrompt);
            isRight = isRight && events.back().time >= gone - leeway &&
                      events.back().time <= gone + kPrompt;
        }
    }
    m_findings.Expect(isRight, *phones.front().command, expected, seen.empty() ? "none" : seen);
}

}  // namespace lab
