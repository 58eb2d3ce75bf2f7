#include "tests/system/soak/Judge.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "lab/Hex.h"
#include "platform/LinkDockBackDoor.h"
#include "platform/hosted/Kernel.h"

using lab::Verb;

namespace soak {

namespace {

constexpr double kRenewalTime = 60'000;  // until a renewal has surely ended
constexpr double kLongestOperation = 400'000;
constexpr double kVisitEnd = 12'000;     // later than every leave
constexpr double kBeforeVisit = 15'000;  // a visit before it has been closed
constexpr double kPrompt = 1000;         // two polls, and what a busy tag and lateness add
constexpr double kLeaveLeeway = 125;  // a phone's last interrupt may be the check before its leave
constexpr double kSurelyLater = 50;   // than the begin of a write on another thread
constexpr std::size_t kMostHandles = 60;
constexpr std::size_t kMostRequests = 3;
constexpr std::size_t kLinesShown = 300;
constexpr std::size_t kUrlAt = 7;  // in the image
constexpr std::size_t kUrlSize = 50;
constexpr std::size_t kNumberAt = 106;
constexpr std::size_t kNumberSize = 32;
constexpr const char* kRoutes[] = {"i2c", "usb", "hid", "ble"};

int RouteNumber(const std::string& name) {
    return 1 + static_cast<int>(std::find(std::begin(kRoutes), std::end(kRoutes), name) - kRoutes);
}

bool IsOneOf(Verb verb, std::initializer_list<Verb> verbs) {
    return std::find(verbs.begin(), verbs.end(), verb) != verbs.end();
}

bool Starts(Verb verb) {
    return IsOneOf(verb, {Verb::kStart, Verb::kRestart});
}

bool Arms(Verb verb) {
    return Starts(verb) || IsOneOf(verb, {Verb::kWrite, Verb::kCreate});
}

// May put its manager's image onto the tag.
bool Puts(Verb verb) {
    return Starts(verb) || IsOneOf(verb, {Verb::kWrite, Verb::kRenew, Verb::kUpdate, Verb::kOpen});
}

// 32 bytes, or empty for an operation that gives none.
std::string GivenNumber(const lab::Command& command) {
    const auto field = command.fields.find("number");
    return command.verb == Verb::kRenew    ? command.argument
           : field == command.fields.end() ? std::string()
                                           : field->second;
}

bool IsWhole(const std::string& number) {
    return number == std::string(number.size(), number[0]);
}

}  // namespace

void Figures::operator+=(const Figures& more) {
    hours += more.hours;
    visits += more.visits;
    writes += more.writes;
    faults += more.faults;
    hourVisits += more.hourVisits;
    tags += more.tags;
    contents += more.contents;
    roundsVisits += more.roundsVisits;
}

void Judge::Fail(const std::string& what) const {
    const std::size_t shown = std::getenv("TAGPORT_SOAK_LOG") == nullptr ? 0 : kLinesShown;
    for (std::size_t i = m_log.size() - std::min(m_log.size(), shown); i < m_log.size(); ++i) {
        std::fprintf(stderr, "    %s\n", m_log[i].c_str());
    }
    std::fprintf(stderr, "at %.3f ms: %s\n", m_stage.Now(), what.c_str());
    std::_Exit(1);
}

void Judge::Expect(bool condition, const char* what) const {
    if (!condition) {
        Fail(what);
    }
}

double Judge::Done::Gone() const {
    return begin + static_cast<double>(*command->number);
}

int Judge::FirstRoute() const {
    return RouteNumber(m_story.routes[0]);
}

std::size_t Judge::Count(int event, double from, double to, int route) const {
    return static_cast<std::size_t>(
        std::count_if(m_events.begin(), m_events.end(), [&](const Event& one) {
            return (event == 0 || one.event == event) && one.time >= from && one.time <= to &&
                   (route == 0 || one.route == route);
        }));
}

void Judge::Take(const lab::Json& object) {
    const std::string& kind = object["kind"].get_ref<const std::string&>();
    if (kind == "event") {
        TakeEvent(object);
    } else if (kind == "phone") {
        m_phones.push_back(object);
    } else if (kind == "log") {
        m_log.push_back(object["line"]);
        m_failedRenewals += m_log.back().rfind("LocalWriteRand failed", 0) == 0 ? 1 : 0;
    } else if (kind == "result" && object["operation"] == "WriteRandNum" &&
               object.contains("listener")) {
        TakeListenersRenewal(object);
    }
}

void Judge::TakeEvent(const lab::Json& object) {
    const int event = object["event"];
    const int route = object["route"];
    m_events.push_back({object["t"], event, route});
    m_failedAtEvent[object["thread"]] = m_failedRenewals;
    Expect(route >= 1 && route <= 4 && m_story.Has(kRoutes[route - 1]),
           "an event from a route that the PC doesn't have");
    Expect(route != 4 || m_connected, "an event of a Bluetooth keyboard after its disconnection");
    if (m_story.chip == "like-fanli" && route == FirstRoute()) {
        Expect(event == 4, "a chip without visits reported one");
    } else {
        Expect(event == 1 || event == 3 || event == 4, "an unknown event");
        m_figures.visits += event == 3 ? 1 : 0;
        // The keyboards report both ends themselves; either may be lost with its read.
        if (route <= 2) {
            m_open += event == 3 ? 1 : event == 1 ? -1 : 0;
            Expect(m_open >= 0, "a leave without an enter");
        }
    }
    // A number is never shown in pieces, as long as nothing can have left pieces on the tag. After
    // the hour it is one that was given there.
    const std::string number = lab::FromHex(object["number"].get<std::string>(), "event");
    if (m_section >= kRounds) {
        Expect(m_given.count(number) > 0, "a number was shown that was not given");
    } else {
        Expect(IsWhole(number) || m_faulting > 0 || !IsServing(object["t"]),
               "a number was shown in pieces");
    }
}

void Judge::TakeListenersRenewal(const lab::Json& object) {
    const double now = object["t"];
    lab::Command& renewal = m_listenersRenewals.emplace_back();
    renewal.verb = Verb::kRenew;
    renewal.argument = lab::FromHex(object["number"].get<std::string>(), "result");
    m_given.insert(renewal.argument);
    m_done.push_back(
        {&renewal, now, now, object["result"] == 0, m_failedAtEvent[object["thread"]]});
}

void Judge::Watch(const lab::Player::Step& step) {
    const lab::Command& command = step.command;
    Running& running = m_running[command.host];
    if (step.begins) {
        Begin(command);
        return;
    }
    const double now = m_stage.Now();
    const double begin = running.begin + static_cast<double>(command.in.value_or(0));
    const Done done{&command, begin, std::max(begin, now), step.succeeded.value_or(true),
                    running.failedBefore};
    running.puts = false;
    if (IsOneOf(command.verb, {Verb::kWait, Verb::kJoin, Verb::kListener, Verb::kExpectResult}) ||
        (Puts(command.verb) && !step.succeeded)) {
        return;  // nothing, or nobody was there who could do it
    }
    Expect(now - done.begin < kLongestOperation, "an operation took too long");
    m_done.push_back(done);
    m_figures.writes += GivenNumber(command).empty() ? 0 : 1;
    if (command.fields.count("url") > 0) {
        m_urls[command.manager] = command.fields.at("url");
    }
    if (command.verb == Verb::kDisconnect && done.worked && m_connectBegin < done.begin) {
        m_connected = false;
    } else if (command.verb == Verb::kPlug || command.argument == "none") {
        --m_faulting;
    }
    // The keyboards have no content to read, and a number's answer can be missed.
    Expect(
        (m_section > kBegin && m_section < kSettle) || done.worked ||
            command.verb == Verb::kDisconnect ||
            (!m_story.IsWired() && IsOneOf(command.verb, {Verb::kReadMessage, Verb::kReadNumber})),
        "an operation failed without a fault");
    const hosted::LiveCounts live = hosted::Live();
    Expect(live.requests <= kMostRequests, "more requests than there can be");
    Expect(live.handles <= kMostHandles, "handles pile up");
}

void Judge::Begin(const lab::Command& command) {
    const Section section = m_story.SectionOf(command.line);
    // What the script's own thread does comes after what the hosts have been given before.
    if (section > m_section) {
        EnterSection(section);
    }
    CheckTag();
    m_running[command.host] = {m_stage.Now(), m_failedRenewals, Puts(command.verb)};
    if (section >= kSettle && !GivenNumber(command).empty()) {
        m_given.insert(GivenNumber(command));
    }
    if (Starts(command.verb) || IsOneOf(command.verb, {Verb::kOpen, Verb::kConnect})) {
        m_connected = true;
        m_connectBegin = m_stage.Now();
    } else if (command.verb == Verb::kUnplug ||
               (command.verb == Verb::kFault && command.argument != "none")) {
        ++m_faulting;
        m_figures.faults += command.verb == Verb::kFault ? 1 : 0;
    }
}

// Judges the section before it.
void Judge::EnterSection(Section section) {
    if (m_section == kHourEnd) {
        Expect(m_open == 0, "a visit was never closed");
        JudgeVisits();
    } else if (m_section == kSettle) {
        const std::string number(kNumberSize, kFirstSettled);
        const auto began = [&](Verb verb) {
            return std::find_if(m_done.rbegin(), m_done.rend(),
                                [&](const Done& done) { return done.command->verb == verb; })
                ->begin;
        };
        Expect(m_stage.TagMemory().substr(kNumberAt, kNumberSize) == number ||
                   began(Verb::kRenew) < began(Verb::kWrite) + kSurelyLater,
               "the number given during the last write is not on the tag");
    } else if (m_section == kRoundsEnd) {
        std::size_t phones = 0;
        for (const std::string& route : m_story.routes) {
            JudgeRoute(route);
        }
        for (const Done& done : m_done) {
            phones += done.command->verb == Verb::kTap && done.begin >= m_sectionBegin ? 1 : 0;
        }
        m_figures.roundsVisits = phones;
        Expect(static_cast<std::size_t>(std::count_if(
                   m_phones.begin(), m_phones.end(),
                   [](const lab::Json& phone) { return phone["read"].get<bool>(); })) == phones,
               "a phone could not read the tag");
    } else if (m_section == kHeld) {
        JudgeHeld();
    } else if (m_section == kLast) {
        JudgeLast();
    }
    m_section = section;
    if (section != kRoundsEnd) {  // which is judged with the rounds
        m_sectionBegin = m_stage.Now();
        m_phones.clear();
    }
}

// While nothing is on its way to the tag.
void Judge::CheckTag() {
    const double now = m_stage.Now();
    const bool isUnderWay =
        std::any_of(m_running.begin(), m_running.end(),
                    [](const Running& one) { return one.puts; }) ||
        std::any_of(m_done.begin(), m_done.end(), [&](const Done& done) {
            return done.command->verb == Verb::kRenew && done.end + kRenewalTime > now;
        });
    const std::string memory = m_stage.TagMemory();
    if (isUnderWay || !JudgeNumber(memory.substr(kNumberAt, kNumberSize))) {
        return;
    }
    ++m_figures.tags;
    const auto last = std::find_if(m_done.rbegin(), m_done.rend(),
                                   [](const Done& done) { return Puts(done.command->verb); });
    if (m_story.hosts == 1 && m_listenersRenewals.empty() && last->worked &&
        last->command->verb != Verb::kOpen) {
        Expect(memory.substr(kUrlAt, kUrlSize) == m_urls[last->command->manager],
               "the tag has not the URL of the last content that was taken over");
        ++m_figures.contents;
    }
}

// By a whole image of later, of one manager or of any. Contents are ordered by when they were taken
// over: a renewal at once, whatever its way to the tag takes.
bool Judge::IsReplaced(const Done& done, const Done* by) const {
    return std::any_of(m_done.begin(), m_done.end(), [&](const Done& later) {
        return !GivenNumber(*later.command).empty() && later.worked && later.begin > done.end &&
               (by == nullptr ||
                (later.command->manager == by->command->manager && later.end < by->begin));
    });
}

// False when nothing can be said, since something has failed since the last write that nothing has
// replaced.
bool Judge::JudgeNumber(const std::string& found) {
    std::set<std::string> possible;
    for (const Done& done : m_done) {
        if (!Puts(done.command->verb) || IsReplaced(done)) {
            continue;
        }
        const std::string number = GivenNumber(*done.command);
        if (!number.empty()) {
            if (!done.worked || done.failedBefore != m_failedRenewals) {
                return false;  // a failed write leaves the tag as far as it got
            }
            possible.insert(number);
            continue;
        }
        // Brings the content of its manager back, which is the one that is there already unless
        // there is or has been another manager.
        if (m_story.managers == 1 && !MayHoldLastPointer(done)) {
            continue;
        }
        if (!done.worked) {
            return false;
        }
        for (const Done& other : m_done) {
            if (other.command->manager == done.command->manager && other.begin <= done.end &&
                !IsReplaced(other, &done)) {
                possible.insert(GivenNumber(*other.command));
            }
        }
    }
    if (!possible.empty() && possible.count(found) == 0) {
        Fail("the tag has a number that begins with " + lab::ToHex(found.substr(0, 1)));
    }
    return !possible.empty();
}

// A host that still works with a manager that another replaces ends it, and with it the threads of
// all, when it has done. The thread of a renewal holds no manager that could end them.
bool Judge::MayHoldLastPointer(const Done& done) const {
    return std::any_of(m_done.begin(), m_done.end(), [&](const Done& other) {
        return &other != &done && other.command->verb == Verb::kRestart &&
               other.begin <= done.end && other.end >= done.begin;
    });
}

// Nothing but what a visit survives may fall between the two times: reads, and writes that leave
// the threads alone.
bool Judge::IsQuiet(const Done& tap, double from, double to) const {
    return std::none_of(m_done.begin(), m_done.end(), [&](const Done& done) {
        const bool isHarmless = IsOneOf(done.command->verb, {Verb::kReadMessage, Verb::kReadNumber,
                                                             Verb::kRenew, Verb::kUpdate});
        return &done != &tap && done.begin < to && done.end > from &&
               (!isHarmless || MayHoldLastPointer(done));
    });
}

// Whether, at this time, a start and a write have worked since whatever may have taken the threads
// or the device away, or left pieces of a number on the tag.
bool Judge::IsServing(double at) const {
    bool started = false;
    bool written = false;
    double trouble = -1;
    for (const Done& done : m_done) {
        const Verb verb = done.command->verb;
        const bool good = done.worked && done.begin > trouble;
        if (done.end >= at) {
            break;
        }
        if (IsOneOf(verb, {Verb::kFault, Verb::kPlug, Verb::kUnplug, Verb::kDisconnect}) ||
            MayHoldLastPointer(done)) {
            started = written = false;
            trouble = done.end;
        } else if (Starts(verb) || verb == Verb::kOpen) {
            started = good;
            written = good && verb != Verb::kOpen;
        } else if (verb == Verb::kWrite) {
            written = good && started;
        }
    }
    return started && written;
}

// Each phone of the hour that came to a library at rest and serving.
void Judge::JudgeVisits() {
    if (m_story.chip == "like-fanli" || m_story.missesReports) {
        return;
    }
    for (const Done& done : m_done) {
        if (done.command->verb != Verb::kTap || !IsServing(done.begin - kBeforeVisit) ||
            !IsQuiet(done, done.begin - kBeforeVisit, done.Gone() + kVisitEnd)) {
            continue;
        }
        ++m_figures.hourVisits;
        const double over = done.Gone() + kVisitEnd;
        const std::size_t enters = Count(3, done.begin, over, FirstRoute());
        const std::size_t leaves = Count(1, done.begin, over, FirstRoute());
        // A write in the middle of a visit opens another one after it, and each of a chain of them
        // can be watched until the next phone is there.
        const std::size_t open =
            Count(3, 0, done.begin, FirstRoute()) - Count(1, 0, done.begin, FirstRoute());
        if (enters == 0 || (leaves != enters && leaves != enters + open)) {
            Fail("the visit at " + std::to_string(done.begin) + " ms gave " +
                 std::to_string(enters) + " enters and " + std::to_string(leaves) + " leaves");
        }
    }
}

// All the phones of the rounds that came to one route, and all that was reported of it.
void Judge::JudgeRoute(const std::string& route) {
    const bool isKeyboard = route == "hid" || route == "ble";
    const bool withoutVisits = !isKeyboard && m_story.chip == "like-fanli";
    const bool tellsLeave = !isKeyboard && m_story.chip == "fanli";
    std::vector<Done> phones;
    for (const Done& done : m_done) {
        const std::string& at = done.command->argument;
        if (done.command->verb == Verb::kTap && done.begin >= m_sectionBegin &&
            (at.empty() ? m_story.routes[0] : at) == route) {
            phones.push_back(done);
        }
    }
    const int number = RouteNumber(route);
    const auto count = [&](double from, double to) { return Count(0, from, to, number); };
    std::size_t reports = 0;
    bool right = true;
    std::string told;
    for (const Event& one : m_events) {
        if (one.route == number && one.time >= m_sectionBegin) {
            right = right && one.event == (withoutVisits ? 4 : reports % 2 == 0 ? 3 : 1);
            told += " " + std::to_string(one.event) + " at " + std::to_string(one.time);
            ++reports;
        }
    }
    // A phone that comes before the leave of another has been reported belongs to that visit. A
    // chip that does not tell leaves can also give more visits than phones: the watch over a phone
    // that has caused few interrupts ends early, and the next interrupt opens another one.
    right = right && reports % 2 == 0;
    if (isKeyboard || withoutVisits) {
        right = right && reports == 2 * phones.size();
    } else if (tellsLeave) {
        right = right && reports <= 2 * phones.size();
    }
    double gone = m_sectionBegin - kPrompt;  // the phone before
    for (std::size_t i = 0; i < phones.size(); ++i) {
        // The first of those that come within the watch of each other, and the last.
        const bool isFirst = i == 0 || phones[i].begin - gone >= kBeforeVisit;
        if (isFirst) {
            right = right && count(gone + kPrompt, phones[i].begin - 1) == 0 &&
                    count(m_sectionBegin, phones[i].begin - 1) % 2 == 0 &&
                    count(phones[i].begin, phones[i].begin + kPrompt) > 0;
        }
        gone = phones[i].Gone();
        const bool isLast = i + 1 == phones.size() || phones[i + 1].begin - gone >= kBeforeVisit;
        // A Fanli chip's last may have belonged to the visit before it.
        const double leeway = tellsLeave && !isFirst ? kBeforeVisit : kLeaveLeeway;
        right = right && (!isLast || count(gone - leeway, gone + kPrompt) > 0);
    }
    if (!right || count(gone + kPrompt, m_stage.Now()) > 0) {
        Fail("the phones on the " + route + " route gave" + told);
    }
}

// A phone that stays opens a visit, and one more for each write or creation beside it.
void Judge::JudgeHeld() {
    const auto arming =
        static_cast<std::size_t>(std::count_if(m_done.begin(), m_done.end(), [&](const Done& done) {
            return done.begin >= m_sectionBegin && Arms(done.command->verb);
        }));
    const double now = m_stage.Now();
    const std::size_t enters = Count(3, m_sectionBegin, now);
    if (m_story.chip != "like-fanli" && (enters < 1 || enters > 1 + arming)) {
        Fail("a phone that stayed was reported " + std::to_string(enters) + " times, with " +
             std::to_string(arming) + " writes and creations beside it");
    }
    Expect(enters == Count(1, m_sectionBegin, now), "a phone that stayed was not reported as left");
}

void Judge::JudgeLast() {
    const std::string payload = "8064" + lab::ToHex(std::string(6, kLastLetter)) +
                                lab::ToHex(std::string(kNumberSize, kLastNumber)) +
                                lab::ToHex(std::string(4, kLastLetter));
    Expect(m_phones.size() == 1 && m_phones[0]["read"].get<bool>() &&
               m_phones[0]["uri"] == "https://" + std::string(kUrlSize, kLastLetter) &&
               m_phones[0]["payload"] == payload,
           "the last phone read other fields than those of the last image");
    const double now = m_stage.Now();
    const bool withoutVisits = m_story.chip == "like-fanli";
    Expect(Count(0, m_sectionBegin, now) == 2 &&
               Count(withoutVisits ? 4 : 3, m_sectionBegin, now, FirstRoute()) ==
                   (withoutVisits ? 2 : 1) &&
               (withoutVisits || Count(1, m_sectionBegin, now, FirstRoute()) == 1),
           "the last phone was not reported as come and gone");
}

Figures Judge::Finish() {
    Expect(m_section == kStop, "the script did not come to its end");
    Expect(m_open == 0, "a visit that a stop fell into was not closed");
    hosted::LiveCounts live = hosted::Live();
    // Where it has refused to end its deliveries, the Bluetooth client keeps their threads.
    live.threads -= LinkDockService::DeliveryThreads();
    live.handles -= LinkDockService::DeliveryThreads();
    // What a stop leaves: the device, the keyboard's event, and the deferred call thread, which
    // ends by itself where the stop fell into a visit.
    const std::size_t kept =
        (m_story.routes[0] != "ble" ? 1U : 0U) + (m_story.Has("hid") ? 1U : 0U);
    Expect(live.threads == 1 || (m_story.IsWired() && live.threads == 0), "threads are left");
    Expect(live.requests == 0, "requests are left");
    Expect(live.handles == kept + live.threads, "handles are left");
    constexpr double kHour = 3'600'000;
    m_figures.hours = m_stage.Now() / kHour;
    return m_figures;
}

}  // namespace soak
