// What was done in a run and when, by the steps of the player and the listener's renewals, and what
// follows from it: whether the library serves, whether a fault is in force. Calls nothing.
#pragma once

#include <array>
#include <cstddef>
#include <deque>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "lab/Player.h"
#include "lab/Recorder.h"
#include "lab/Script.h"

namespace lab {

constexpr double kUnderWay = std::numeric_limits<double>::infinity();
constexpr double kRenewalTime = 60'000;  ///< milliseconds until a renewal has surely ended

bool StartsManager(Verb verb);  ///< creates a manager, opens the tag and writes
bool OpensDevice(Verb verb);    ///< opens or connects without a write
bool MayPut(Verb verb);         ///< may put its manager's image onto the tag

/// All times are milliseconds.
struct Done {
    const Command* command = nullptr;
    double begin = 0;
    double end = kUnderWay;
    bool worked = true;
    bool replaces = false;  ///< it releases a manager that was there
    /// It overlapped with the release of its manager; its result is not judged.
    bool overlapsRelease = false;
    std::size_t failedBefore = 0;  ///< FailedWrites() when it began
    /// What it puts onto the tag, by the names of the script's fields.
    Fields puts = {};

    Verb verb() const { return command->verb; }
    unsigned manager() const { return command->manager; }
    bool Puts(const std::string& field) const { return puts.count(field) > 0; }
    bool Overlaps(double from, double to) const { return begin < to && end > from; }
};

/// Any thread, one at a time: on the scheduled clock nothing here is interrupted.
class RunHistory {
  public:
    /// `connectOpens`: the PC has nothing that DeviceInit could open.
    explicit RunHistory(bool connectOpens) : m_connectOpens(connectOpens) {}

    void Begin(const Command& command, double now);
    /// The entry; null for what is no act at the library or the device.
    const Done* End(const Player::Step& step, double now);
    /// Results, events and lines of the log.
    void Take(const Json& object);

    struct Service {
        bool started = false;  ///< a start or an opening has worked since the last trouble
        bool written = false;  ///< and a write after it
        double since = 0;      ///< the begin of the start
        double ready = 0;      ///< the end of the latest write
    };
    /// Trouble is what may take the threads or the device away, or leave a part of an image.
    Service ServiceAt(double time) const;

    bool IsFaulting() const { return m_planned || m_unplugged; }
    /// True when no fault was in force at any time in the minute before `time` and since then.
    bool IsFaultless(double time) const;
    /// A request may have been swallowed that only the end of its device ends.
    bool HasSwallowed() const { return m_swallowed; }
    /// Nothing has been done for a minute.
    bool IsAtRest(double now) const;
    bool IsPutting() const;

    /// In the order in which the steps ended. What happens "in MS" ends later. A deque: entries are
    /// pointed to.
    const std::deque<Done>& Ended() const { return m_ended; }
    /// What is under way.
    std::vector<const Done*> Running() const;
    /// What is under way or has ended.
    std::vector<const Done*> All() const;
    bool HadSeveralManagers() const { return m_managers.size() > 1; }
    /// Renewals that failed, and writes of any kind that left out the HID keyboard, because it was
    /// reported as disconnected.
    std::size_t FailedWrites() const { return m_failedWrites; }
    /// True when this number was given after `time`.
    bool WasGiven(const std::string& number, double time) const;
    /// The latest command that has begun, of any kind.
    const Command& Latest() const { return *m_latest; }

  private:
    void NoteReleases(Done& done);
    void Give(const std::string& number, double now) { m_given.emplace_back(now, number); }
    Done* RunningOn(const std::string& thread);  ///< null when that host does nothing
    void TakeResult(const Json& object);

    bool m_connectOpens;
    std::array<Done, kMostHosts + 1> m_running{};  // by host; without a command: none
    std::deque<Done> m_ended;
    std::array<Fields, kMostManagers + 1> m_content;  // by manager
    std::set<unsigned> m_present;                     // managers
    std::set<unsigned> m_managers;                    // that have ever been there
    std::vector<std::pair<double, std::string>> m_given;
    std::vector<double> m_events;  // times
    std::deque<Command> m_listenersRenewals;
    unsigned m_listenersManager = 1;
    std::map<std::string, std::size_t> m_failedAtEvent;  // at a thread's last event
    std::size_t m_failedWrites = 0;
    const Command m_nothing{};
    const Command* m_latest = &m_nothing;
    bool m_planned = false;
    bool m_unplugged = false;
    bool m_swallowed = false;
    bool m_hidLeftOut = false;  // SetMcuKbConnectStatus(false) was the last call of its kind
    double m_faultEnd = -kRenewalTime;
};

}  // namespace lab
