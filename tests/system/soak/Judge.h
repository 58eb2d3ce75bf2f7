// Looks at every step of a story for what must never be: at what the lab's recorder and player say,
// and at the tag.
#pragma once

#include <array>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "lab/Player.h"
#include "tests/system/soak/Story.h"

namespace soak {

/// What happened, for the summary. Plain, as children leave it in shared memory.
struct Figures {
    double hours = 0;  // simulated
    std::size_t visits = 0;
    std::size_t writes = 0;
    std::size_t faults = 0;        // plans
    std::size_t hourVisits = 0;    // judged phones of the hour
    std::size_t tags = 0;          // times at which the tag's number was judged
    std::size_t contents = 0;      // and those at which its URL was
    std::size_t roundsVisits = 0;  // phones of the rounds, each of which is judged

    void operator+=(const Figures& more);
};

/// What is found wrong goes to standard error and ends the process with status 1;
/// TAGPORT_SOAK_LOG shows the end of the log before it. Times are milliseconds.
class Judge {
  public:
    Judge(const Story& story, lab::Stage& stage) : m_story(story), m_stage(stage) {}

    void Take(const lab::Json& object);         // of the recorder
    void Watch(const lab::Player::Step& step);  // of the player
    Figures Finish();                           // after the last line
    [[noreturn]] void Fail(const std::string& what) const;

  private:
    struct Done {
        const lab::Command* command;
        double begin;
        double end;
        bool worked;
        std::size_t failedBefore;  // renewals that had failed when it began

        double Gone() const;  // a phone
    };
    struct Event {
        double time;
        int event;
        int route;
    };
    struct Running {
        double begin = 0;
        std::size_t failedBefore = 0;
        bool puts = false;
    };

    void Expect(bool condition, const char* what) const;
    void TakeEvent(const lab::Json& object);
    void TakeListenersRenewal(const lab::Json& object);
    void Begin(const lab::Command& command);
    void EnterSection(Section section);
    void CheckTag();
    bool JudgeNumber(const std::string& found);
    bool IsReplaced(const Done& done, const Done* by = nullptr) const;
    bool MayHoldLastPointer(const Done& done) const;
    bool IsQuiet(const Done& tap, double from, double to) const;
    bool IsServing(double at) const;
    void JudgeVisits();
    void JudgeRoute(const std::string& route);
    void JudgeHeld();
    void JudgeLast();
    std::size_t Count(int event, double from, double to, int route = 0) const;
    int FirstRoute() const;

    const Story& m_story;
    lab::Stage& m_stage;
    Figures m_figures;
    Section m_section = kBegin;
    double m_sectionBegin = 0;
    // One thread runs at a time, and none of these is touched across a call into the layer.
    std::array<Running, lab::kMostHosts + 1> m_running;  // by host
    std::vector<Done> m_done;                            // in the order of the ends
    std::deque<lab::Command> m_listenersRenewals;
    std::map<unsigned, std::string> m_urls;  // of one host's managers
    std::vector<Event> m_events;
    std::set<std::string> m_given;  // numbers, after the hour
    std::vector<lab::Json> m_phones;
    std::vector<std::string> m_log;
    std::size_t m_failedRenewals = 0;
    std::map<std::string, std::size_t> m_failedAtEvent;  // at a thread's last event
    int m_faulting = 0;                                  // plans in force, and devices pulled out
    int m_open = 0;                                      // visits of the driver routes
    bool m_connected = true;                             // Bluetooth
    double m_connectBegin = 0;
};

}  // namespace soak
