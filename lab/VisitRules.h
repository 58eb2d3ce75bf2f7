// Which events each phone must cause, and when, and that no visit stays open.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "lab/Pc.h"
#include "lab/RunHistory.h"
#include "lab/TagRules.h"
#include "lab/Violations.h"

namespace lab {

/// A phone is judged only if the library runs and no operation that can disturb a visit overlaps
/// it. Phones whose visits can overlap are judged as a group.
class VisitRules {
  public:
    VisitRules(const RunHistory& history, const TagRules& tag, const Pc& pc, Findings& findings)
        : m_history(history), m_tag(tag), m_pc(pc), m_findings(findings) {}

    /// A command begins or, for the listener, has ended.
    void Begin(const Command& command, double now);
    void EndListener(const Command& command, double now);
    void TakeEvent(const Json& object, const simulator::RouteKind& route);
    void TakeReading(const Json& object);

    /// The listener waits for what only its own thread could deliver: a keyboard's answer.
    bool ListenerWaits() const;

    /// The phones whose events are complete.
    void JudgePhones(double now);
    /// No visit is open while nothing happens.
    void JudgeRest(double now) const;

  private:
    struct Phone {
        const Command* command = nullptr;
        const simulator::RouteKind* route = nullptr;
        double begin = 0;
        double gone = 0;
        bool isQuick = true;   // the listener returns soon
        bool isHeard = false;  // a listener is there, and nothing keeps its events from it
        bool alone = true;     // at the PC, so that readings can be assigned
        std::vector<Json> readings;
    };
    using Phones = std::vector<Phone>;
    struct Event {
        double time;
        int event;
        const simulator::RouteKind* route;
    };
    struct Surroundings {
        bool judged = false;      // the library runs, and nothing disturbs the visits
        bool isTimed = false;     // and no two operations overlap: times and order are certain
        std::size_t openers = 0;  // writes and creations beside a phone: each may open a visit
        double since = 0;         // the begin of the start that serves
    };

    void Add(const Command& command, double begin, double gone);
    bool HasVisits(const simulator::RouteKind& route) const;
    bool IsDeaf(double time) const;
    Surroundings Surrounding(const Phones& phones) const;
    void JudgeGroup(const Phones& phones);
    void JudgeEvents(const Phones& phones, const Surroundings& around);

    const RunHistory& m_history;
    const TagRules& m_tag;
    const Pc& m_pc;
    Findings& m_findings;
    Phones m_phones;  // not judged yet
    std::vector<Event> m_events;
    int m_open = 0;                       // visits of the driver routes
    const Command* m_openedBy = nullptr;  // the latest command when the last of them began
    double m_firstPhone = kUnderWay;
    double m_lastGone = 0;
    bool m_listening = true;
    bool m_reads = false;      // the listener reads the number
    std::int64_t m_pause = 0;  // of the listener
    double m_listeningSince = 0;
};

}  // namespace lab
