#include "tests/system/soak/Judge.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <map>
#include <set>

#include "lab/ConfigCheck.h"
#include "lab/Hex.h"
#include "lab/Player.h"
#include "lab/RunCommand.h"
#include "platform/LinkDockBackDoor.h"
#include "platform/hosted/Kernel.h"

using lab::Verb;

namespace soak {

namespace {

constexpr double kHourTime = 3'600'000;  // milliseconds, as all times here
constexpr double kRenewalTime = 60'000;  // until a renewal has surely ended
constexpr double kLongestOperation = 400'000;
constexpr double kVisitEnd = 12'000;         // later than every leave
constexpr double kBeforeVisit = 15'000;      // a visit before it has been closed
constexpr double kPrompt = 1000;             // two polls, and what a busy tag and lateness add
constexpr double kLeaveLeeway = 125;         // the last interrupt may be the check before the leave
constexpr double kSurelyLater = 50;          // than the begin of a write on another thread
constexpr double kLongestListener = 10'000;  // its pause and its calls of the manager
constexpr std::size_t kMostHandles = 60;
constexpr std::size_t kMostRequests = 3;
constexpr std::size_t kLinesShown = 300;
constexpr std::size_t kUrlAt = 7;  // in the image
constexpr std::size_t kUrlSize = 50;
constexpr std::size_t kNumberAt = 106;
constexpr std::size_t kNumberSize = 32;
constexpr int kPcType = 5;
const std::vector<std::string> kRoutes{"", "i2c", "usb", "hid", "ble"};

bool IsOneOf(Verb verb, std::initializer_list<Verb> verbs) {
    return std::find(verbs.begin(), verbs.end(), verb) != verbs.end();
}

bool Starts(Verb verb) {
    return IsOneOf(verb, {Verb::kStart, Verb::kRestart});
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

// What was done when: a command of the script, or a renewal of the listener's.
struct Done {
    const lab::Command* command;
    double begin;
    double end;
    bool worked;
    std::size_t failedBefore;  // renewals that had failed when it began

    Verb verb() const { return command->verb; }
    double Gone() const { return begin + static_cast<double>(*command->number); }  // a phone
};

struct Event {
    double time;
    int event;
    std::string route;
};

class Judge {
  public:
    Judge(const Story& story, lab::Stage& stage) : m_story(story), m_stage(stage) {}

    [[noreturn]] void Fail(const std::string& what) const {
        const std::size_t shown = std::getenv("TAGPORT_SOAK_LOG") == nullptr ? 0 : kLinesShown;
        for (auto i = m_log.size() - std::min(m_log.size(), shown); i < m_log.size(); ++i) {
            std::fprintf(stderr, "    %s\n", m_log[i].c_str());
        }
        std::fprintf(stderr, "at %.3f ms: %s\n", m_stage.Now(), what.c_str());
        std::_Exit(1);
    }

    // An object of the recorder.
    void Take(const lab::Json& object) {
        const std::string kind = object["kind"];
        if (kind == "event") {
            TakeEvent(object);
        } else if (kind == "phone") {
            m_phones.push_back(object);
        } else if (kind == "log") {
            m_log.push_back(object["line"]);
            m_failedRenewals += m_log.back().rfind("LocalWriteRand failed", 0) == 0 ? 1 : 0;
        } else if (object.contains("listener") && object["operation"] == "WriteRandNum") {
            const double now = object["t"];
            lab::Command& renewal = m_listenersRenewals.emplace_back();
            renewal.verb = Verb::kRenew;
            renewal.argument = lab::FromHex(object["number"].get<std::string>(), "result");
            m_given.insert(renewal.argument);
            m_done.push_back(
                {&renewal, now, now, object["result"] == 0, m_failedAtEvent[object["thread"]]});
        }
    }

    // A step of the player.
    void Watch(const lab::Player::Step& step) {
        const lab::Command& command = step.command;
        Done& running = m_running[command.host];
        if (step.begins) {
            Begin(command);
            running = {&command, m_stage.Now() + static_cast<double>(command.in.value_or(0)), 0,
                       true, m_failedRenewals};
            return;
        }
        m_putting -= Puts(command.verb) ? 1 : 0;
        if (IsOneOf(command.verb, {Verb::kWait, Verb::kJoin, Verb::kListener, Verb::kPc}) ||
            (Puts(command.verb) && !step.succeeded)) {
            return;  // nothing, or nobody was there who could do it
        }
        running.worked = step.succeeded.value_or(true);
        running.end = std::max(running.begin, m_stage.Now());
        m_done.push_back(running);
        m_figures[kNumbers] += GivenNumber(command).empty() ? 0 : 1;
        if (command.fields.count("url") > 0) {
            m_urls[command.manager] = command.fields.at("url");
        }
        m_connected = m_connected && (command.verb != Verb::kDisconnect || !running.worked ||
                                      m_connectBegin > running.begin);
        m_faulting -= command.verb == Verb::kPlug || command.argument == "none" ? 1 : 0;
        Expect(running.end - running.begin < kLongestOperation, "an operation took too long");
        // The keyboards have no content to read, and a number's answer can be missed.
        Expect(running.worked || m_section == kHour || command.verb == Verb::kDisconnect ||
                   (!m_story.IsWired() &&
                    IsOneOf(command.verb, {Verb::kReadMessage, Verb::kReadNumber})),
               "an operation failed without a fault");
        Expect(hosted::Live().requests <= kMostRequests, "more requests than there can be");
        Expect(hosted::Live().handles <= kMostHandles, "handles pile up");
    }

    // After the last line.
    Figures Finish() {
        Expect(m_section == kStop, "the script did not come to its end");
        Expect(m_open == 0, "a visit that a stop fell into was not closed");
        const hosted::LiveCounts live = hosted::Live();
        // Where it has refused to end its deliveries, the Bluetooth client keeps their threads.
        const std::size_t threads = live.threads - LinkDockService::DeliveryThreads();
        // What a stop leaves: the device, the keyboard's event, and the deferred call thread, which
        // ends by itself where the stop fell into a visit.
        const std::size_t kept = m_story.Has("hid") ? 2 : m_story.routes[0] == "ble" ? 0 : 1;
        Expect(threads == 1 || (m_story.IsWired() && threads == 0), "threads are left");
        Expect(live.requests == 0, "requests are left");
        Expect(live.handles == kept + live.threads, "handles are left");
        m_figures[kHours] = m_stage.Now() / kHourTime;
        return m_figures;
    }

  private:
    void Expect(bool condition, const char* what) const {
        if (!condition) {
            Fail(what);
        }
    }

    bool HasVisits(const std::string& route) const {
        return m_story.chip != "like-fanli" || route == "ble";
    }

    void TakeEvent(const lab::Json& object) {
        const int event = object["event"];
        const std::string& route = kRoutes.at(object["route"]);
        m_events.push_back({object["t"], event, route});
        m_failedAtEvent[object["thread"]] = m_failedRenewals;
        m_figures[kVisits] += event == 3 ? 1 : 0;
        Expect(m_story.Has(route), "an event from a route that the PC doesn't have");
        Expect(route != "ble" || m_connected, "an event of a keyboard after its disconnection");
        Expect(event == 4 || (HasVisits(route) && (event == 1 || event == 3)), "an unknown event");
        // The keyboards report both ends themselves; either may be lost with its read.
        if (route == "i2c" || route == "usb") {
            m_open += event == 3 ? 1 : event == 1 ? -1 : 0;
            Expect(m_open >= 0, "a leave without an enter");
        }
        // A number is never shown in pieces, as long as nothing can have left pieces on the tag.
        // After the hour it is one that was given there.
        const std::string number = lab::FromHex(object["number"].get<std::string>(), "event");
        Expect(m_section >= kRounds ? m_given.count(number) > 0
                                    : number == std::string(kNumberSize, number[0]) ||
                                          m_faulting > 0 || !IsServing(object["t"]),
               "a number was shown in pieces, or one that was not given");
    }

    void Begin(const lab::Command& command) {
        const Section section = m_story.SectionOf(command.line);
        if (section > m_section) {
            JudgeSection(m_section);
            m_sectionBegin = m_stage.Now();
            m_phones.clear();
            m_section = section;
        }
        CheckTag();
        m_putting += Puts(command.verb) ? 1 : 0;
        if (section >= kSettle) {
            m_given.insert(GivenNumber(command));
        }
        if (Starts(command.verb) || IsOneOf(command.verb, {Verb::kOpen, Verb::kConnect})) {
            m_connected = true;
            m_connectBegin = m_stage.Now();
        }
        const bool isPlan = command.verb == Verb::kFault && command.argument != "none";
        m_faulting += isPlan || command.verb == Verb::kUnplug ? 1 : 0;
        m_figures[kFaults] += isPlan ? 1 : 0;
    }

    void JudgeSection(Section section) {
        if (section == kHour) {
            Expect(m_open == 0, "a visit was never closed");
        } else if (section == kSettle) {
            const auto began = [&](Verb verb) {
                const auto last =
                    std::find_if(m_done.rbegin(), m_done.rend(),
                                 [&](const Done& done) { return done.verb() == verb; });
                return last->begin;
            };
            Expect(m_stage.TagMemory().substr(kNumberAt, kNumberSize) ==
                           std::string(kNumberSize, kFirstSettled) ||
                       began(Verb::kRenew) < began(Verb::kWrite) + kSurelyLater,
                   "the number given during the last write is not on the tag");
        } else if (section == kLast) {
            const std::string payload = "8064" + lab::ToHex(std::string(6, kLastLetter)) +
                                        lab::ToHex(std::string(kNumberSize, kLastNumber)) +
                                        lab::ToHex(std::string(4, kLastLetter));
            Expect(m_phones.size() == 1 && m_phones[0]["payload"] == payload &&
                       m_phones[0]["uri"] == "https://" + std::string(kUrlSize, kLastLetter),
                   "the last phone read other fields than those of the last image");
        }
        for (const std::string& route : m_story.routes) {
            JudgePhones(section, route);
        }
    }

    // By a whole image of later. Contents are ordered by when they were taken over: a renewal at
    // once, whatever its way to the tag takes.
    bool IsReplaced(const Done& done) const {
        return std::any_of(m_done.begin(), m_done.end(), [&](const Done& later) {
            return !GivenNumber(*later.command).empty() && later.worked && later.begin > done.end;
        });
    }

    // While no image is on its way to the tag, and nothing has failed since the last write that
    // nothing has replaced.
    void CheckTag() {
        std::set<std::string> possible;
        const Done* last = nullptr;
        for (const Done& done : m_done) {
            if (done.verb() == Verb::kRenew && done.end + kRenewalTime > m_stage.Now()) {
                return;
            }
            last = Puts(done.verb()) ? &done : last;
            if (!Puts(done.verb()) || IsReplaced(done)) {
                continue;
            }
            const std::string number = GivenNumber(*done.command);
            // Without a number it brings the content of its manager back, which is there already
            // unless there is or has been another manager. A failed write leaves the tag as far as
            // it got.
            if (number.empty() ? m_story.managers > 1 || MayHoldLastPointer(done)
                               : !done.worked || done.failedBefore != m_failedRenewals) {
                return;
            }
            possible.insert(number);
        }
        if (m_putting > 0 || possible.empty()) {
            return;
        }
        const std::string memory = m_stage.TagMemory();
        ++m_figures[kTags];
        Expect(possible.count(memory.substr(kNumberAt, kNumberSize)) > 0,
               "the tag has a number that a later one has replaced");
        if (m_story.hosts == 1 && m_listenersRenewals.empty() && last->worked &&
            last->verb() != Verb::kOpen) {
            ++m_figures[kUrls];
            Expect(memory.substr(kUrlAt, kUrlSize) == m_urls[last->command->manager],
                   "the tag has not the URL of the last content that was taken over");
        }
    }

    // A host or a listener that still works with a manager that another replaces ends it, and with
    // it the threads of all, when it has done. The thread of a renewal holds no manager that could
    // end them.
    bool MayHoldLastPointer(const Done& done) const {
        const bool besideListener =
            done.verb() == Verb::kRestart &&
            std::any_of(m_events.begin(), m_events.end(), [&](const Event& event) {
                return event.time >= done.begin - kLongestListener && event.time <= done.end;
            });
        return besideListener || std::any_of(m_done.begin(), m_done.end(), [&](const Done& other) {
                   return &other != &done && other.verb() == Verb::kRestart &&
                          other.begin <= done.end && other.end >= done.begin;
               });
    }

    // Whether, at this time, a start and a write have worked since whatever may have taken the
    // threads or the device away, or left pieces of a number on the tag.
    bool IsServing(double at) const {
        bool started = false;
        bool written = false;
        double trouble = -1;
        for (const Done& done : m_done) {
            const bool good = done.worked && done.begin > trouble;
            if (done.end >= at) {
                break;
            }
            if (MayHoldLastPointer(done) ||
                IsOneOf(done.verb(),
                        {Verb::kFault, Verb::kPlug, Verb::kUnplug, Verb::kDisconnect})) {
                started = written = false;
                trouble = done.end;
            } else if (Starts(done.verb()) || done.verb() == Verb::kOpen) {
                started = good;
                written = good && done.verb() != Verb::kOpen;
            } else if (done.verb() == Verb::kWrite) {
                written = good && started;
            }
        }
        return started && written;
    }

    // At rest and serving: nothing but what a visit survives falls between the two times: reads,
    // and writes that leave the threads alone.
    bool IsAtRest(const Done& tap, double from, double to) const {
        return IsServing(from) && std::none_of(m_done.begin(), m_done.end(), [&](const Done& done) {
                   return &done != &tap && done.begin < to && done.end > from &&
                          (MayHoldLastPointer(done) ||
                           !IsOneOf(done.verb(), {Verb::kReadMessage, Verb::kReadNumber,
                                                  Verb::kRenew, Verb::kUpdate}));
               });
    }

    // The phones of a section that came to one route: those of the hour that came to a library at
    // rest, and each of later. Those that come within the watch of one another are judged together.
    void JudgePhones(Section section, const std::string& route) {
        std::vector<Done> phones;
        for (const Done& done : m_done) {
            const std::string& at = done.command->argument;
            if (done.verb() == Verb::kTap && done.begin >= m_sectionBegin &&
                (at.empty() ? m_story.routes[0] : at) == route &&
                (section != kHour ||
                 (HasVisits(route) && !m_story.missesReports &&
                  IsAtRest(done, done.begin - kBeforeVisit, done.Gone() + kVisitEnd)))) {
                phones.push_back(done);
            }
        }
        m_figures[section == kHour ? kHourVisits : kLaterVisits] +=
            static_cast<double>(phones.size());
        for (std::size_t first = 0, next = 1; first < phones.size(); first = next++) {
            while (next < phones.size() &&
                   phones[next].begin - phones[next - 1].Gone() < kBeforeVisit) {
                ++next;
            }
            JudgeVisits(section, route, phones[first].begin, phones[next - 1].Gone(), next - first);
        }
        Expect(section != kRounds || m_story.routes.back() != route ||
                   std::all_of(m_phones.begin(), m_phones.end(),
                               [](const lab::Json& phone) { return phone["read"].get<bool>(); }),
               "a phone could not read the tag");
    }

    void JudgeVisits(Section section, const std::string& route, double begin, double gone,
                     std::size_t phones) const {
        const auto arming = static_cast<std::size_t>(
            std::count_if(m_done.begin(), m_done.end(), [&](const Done& done) {
                return (Starts(done.verb()) ||
                        IsOneOf(done.verb(), {Verb::kWrite, Verb::kCreate})) &&
                       done.end > begin && done.begin < gone;
            }));
        std::vector<Event> events;
        std::string told;
        bool isRight = true;
        int open = 0;  // a visit of before, which a write beside it may have left open
        for (const Event& one : m_events) {
            if (one.route != route || (section != kHour && one.time < m_sectionBegin)) {
                continue;
            }
            if (one.time < begin) {
                open += one.event == 3 ? 1 : one.event == 1 ? -1 : 0;
            } else if (one.time <= gone + kVisitEnd) {
                events.push_back(one);
                told += " " + std::to_string(one.event) + " at " + std::to_string(one.time);
                // Two visits that are open at once end in any order.
                isRight =
                    isRight && (HasVisits(route) ? one.event == (events.size() % 2 == 1 ? 3 : 1) ||
                                                       arming > 0 || section == kHour
                                                 : one.event == 4);
            }
        }
        const auto enters = static_cast<std::size_t>(std::count_if(
            events.begin(), events.end(), [](const Event& one) { return one.event == 3; }));
        const std::size_t leaves = events.size() - enters;
        const bool isKeyboard = route == "hid" || route == "ble";
        // A phone that comes before the leave of another has been reported belongs to that visit. A
        // chip that does not tell leaves can give more visits than phones: the watch over a phone
        // that has caused few interrupts ends early, and the next interrupt opens another one.
        if (isKeyboard || !HasVisits(route)) {
            isRight = isRight && events.size() == 2 * phones;
        } else if (m_story.chip == "fanli" || section > kRounds) {
            isRight = isRight && enters <= phones + arming;
        }
        isRight = isRight && !events.empty() &&
                  (!HasVisits(route) || enters == leaves ||
                   (section == kHour && enters + static_cast<std::size_t>(open) == leaves));
        if (section != kHour) {
            // A Fanli chip's last may have belonged to the visit before it.
            const double leeway =
                m_story.chip == "fanli" && phones > 1 ? kBeforeVisit : kLeaveLeeway;
            isRight = isRight && open == 0 && events.front().time <= begin + kPrompt &&
                      (section == kHeld || (events.back().time >= gone - leeway &&
                                            events.back().time <= gone + kPrompt));
        }
        if (!isRight) {
            Fail("the visit at " + std::to_string(begin) + " ms on the " + route + " route gave" +
                 told);
        }
    }

    const Story& m_story;
    lab::Stage& m_stage;
    Figures m_figures{};
    Section m_section = kBegin;
    double m_sectionBegin = 0;
    // One thread runs at a time, and none of these is touched across a call into the layer.
    std::array<Done, lab::kMostHosts + 1> m_running{};  // by host
    std::vector<Done> m_done;                           // in the order of the ends
    std::deque<lab::Command> m_listenersRenewals;
    std::map<unsigned, std::string> m_urls;  // the last given to each manager
    std::vector<Event> m_events;
    std::set<std::string> m_given;  // numbers, after the hour
    std::vector<lab::Json> m_phones;
    std::vector<std::string> m_log;
    std::size_t m_failedRenewals = 0;
    std::map<std::string, std::size_t> m_failedAtEvent;  // at a thread's last event
    int m_putting = 0;        // operations under way that may put an image onto the tag
    int m_faulting = 0;       // plans in force, and devices pulled out
    int m_open = 0;           // visits of the driver routes
    bool m_connected = true;  // Bluetooth
    double m_connectBegin = 0;
};

}  // namespace

Figures Play(const Story& story, std::uint64_t seed) {
    const lab::Script script = lab::ParseScript("story", story.Text());
    Judge* judge = nullptr;
    lab::Recorder recorder([&](const lab::Json& object) { judge->Take(object); });
    lab::StageOptions options;
    options.seed = seed;
    lab::Stage& stage = lab::MakeStage(lab::MergedOptions(options, script), recorder);
    Judge theJudge(story, stage);
    judge = &theJudge;
    lab::Player player(stage, recorder, seed,
                       [&](const lab::Player::Step& step) { judge->Watch(step); });
    stage.ChooseClock();
    hosted::SetStallHandler(
        [&](const std::string& report) { judge->Fail("nobody can go on\n" + report); });
    lab::UseConfigDirectory(SOAK_TREE);
    stage.CreateDevices();
    player.Start(kPcType);
    player.Play(script);
    const Figures figures = judge->Finish();
    return figures;
}

}  // namespace soak
