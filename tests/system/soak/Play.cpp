// Plays a story and looks at every step for what must never be.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>

#include "platform/LinkDockBackDoor.h"
#include "tests/support/Desk.h"
#include "tests/system/soak/Story.h"

using hosted::Micros;
using simulator::PcRoute;
using namespace testing_support;

namespace soak {

namespace {

constexpr Micros kLongestOperation = 400 * hosted::kSecond;
constexpr Micros kFaultTime = 20 * hosted::kSecond;    // how long a plan is in force
constexpr Micros kRenewalTime = 60 * hosted::kSecond;  // until a renewal has surely ended
constexpr Micros kVisitEnd = 12 * hosted::kSecond;     // later than every leave
constexpr Micros kBeforeVisit = 15 * hosted::kSecond;  // a visit before it has been closed
constexpr std::size_t kMostHandles = 60;
constexpr std::size_t kLinesShown = 300;
constexpr std::uint8_t kFirstFill = 1;
constexpr std::uint8_t kLastFill = 0xE0;
constexpr std::uint8_t kLastNumber = 0xE1;
constexpr std::size_t kImageSize = 160;

// What the library logged in this process. Set by the player.
const LogRecorder* g_log = nullptr;

// TAGPORT_SOAK_LOG shows the log's end before it.
[[noreturn]] void Fail(const std::string& what) {
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

struct Done {
    Operation operation;
    Micros begin = 0;
    Micros end = 0;      // when the call returned
    Micros settled = 0;  // when a renewal has come to the tag as well
    bool worked = true;
};

bool Writes(const Done& done) {
    const Act act = done.operation.act;
    return act == Act::kWrite || act == Act::kRestart || act == Act::kRenew;
}

class Player {
  public:
    explicit Player(const Story& story)
        : m_story(story), m_desk(story.routes, story.chip), m_managers(story.managers) {}

    Figures Run() {
        s_player = this;
        g_log = &m_desk.log;
        hosted::SetStallHandler([](const std::string& report) { Fail(report); });
        for (unsigned i = 0; i < m_story.managers; ++i) {
            Expect(Bring(i, kFirstFill), "the first start failed");
        }
        for (unsigned host = 0; host < m_story.hosts; ++host) {
            OnThread([this, host] { RunHost(host); });
        }
        Expect(hosted::WaitFor([this] { return m_ended == m_story.hosts; }, 2 * kHour, "the hosts"),
               "a host never came back");
        Desk::Pass(std::max(kHour - hosted::Now(), kRenewalTime));
        CheckVisits();
        CheckTag();
        Finish();
        return m_figures;
    }

  private:
    void RunHost(unsigned host) {
        for (const Operation& operation : m_story.operations) {
            if (operation.host == host) {
                Desk::Pass(std::max<Micros>(operation.at - hosted::Now(), 0));
                Do(operation);
            }
        }
        ++m_ended;
    }

    static void Listen(int event, const std::uint8_t (&number)[32], int route) {
        Desk::Listen(event, number, route);
        s_player->Judge(event, route);
    }

    void Judge(int event, int route) {
        const auto expected = static_cast<PcRoute>(route - 1);
        Expect(m_desk.Has(expected), "an event from a route that the PC doesn't have");
        if (m_story.chip == "like-fanli" && expected == PcRoute::kI2c) {
            Expect(event == 4, "a chip without visits reported one");
            return;
        }
        Expect(event == 1 || event == 3 || event == 4, "an unknown event");
        if (event == 3) {
            ++m_figures.visits;
        }
        // The keyboards report both ends themselves; either may be lost with its read.
        if (expected == PcRoute::kI2c || expected == PcRoute::kUsb) {
            m_open += event == 3 ? 1 : event == 1 ? -1 : 0;
            Expect(m_open >= 0, "a leave without an enter");
        }
    }

    bool IsFanli() const { return m_story.chip == "fanli" || m_story.chip == "like-fanli"; }

    bool Wired() const { return m_story.routes[0] != PcRoute::kBle; }

    bool Start(NfcManager& manager) {
        // Detection disturbed by a fault takes a Fanli chip for another kind, whose driver leaves
        // the status unread, which then interrupts without end. The fault sweep covers it.
        if (IsFanli()) {
            hosted::WaitFor([this] { return m_faulting == 0; }, hosted::kForever, "no fault");
        }
        ++m_starting;
        const bool worked = m_desk.StartDevices(manager);
        --m_starting;
        return worked;
    }

    // Replaces a manager. The old one goes when the last host has done with it.
    bool Bring(unsigned slot, std::uint8_t fill) {
        Put(slot, nullptr);
        Desk::Pass(static_cast<Micros>(hosted::Random() % 500'000));
        const auto manager = NfcManager::Create(m_desk.NewMessage(fill, fill), &Player::Listen);
        Expect(manager != nullptr, "no manager");
        Put(slot, manager);
        const bool started = Start(*manager);
        return Write(*manager, fill) && started;
    }

    void Put(unsigned slot, std::shared_ptr<NfcManager> manager) {
        m_managers[slot].swap(manager);  // the old one goes at the end of this scope
    }

    bool Write(NfcManager& manager, std::uint8_t fill) {
        return manager.WriteMessage(m_desk.NewMessage(fill, fill)) == 0;
    }

    void Do(const Operation& operation) {
        Done done;
        done.operation = operation;
        done.begin = hosted::Now();
        if (operation.act == Act::kRestart) {
            done.worked = Bring(operation.manager, operation.fill);
        } else if (const auto manager = m_managers[operation.manager]) {
            done.worked = Perform(operation, *manager);
        }
        done.end = hosted::Now();
        done.settled = done.end + (operation.act == Act::kRenew ? kRenewalTime : 0);
        Expect(done.end - done.begin < kLongestOperation, "an operation took too long");
        m_done.push_back(done);
        const hosted::LiveCounts live = hosted::Live();
        Expect(live.requests <= 3, "more requests than there can be");
        Expect(live.handles <= kMostHandles, "handles pile up");
    }

    bool Perform(const Operation& operation, NfcManager& manager) {
        std::uint8_t number[32];
        switch (operation.act) {
            case Act::kWrite:
                ++m_figures.writes;
                return Write(manager, operation.fill);
            case Act::kRenew:
                ++m_figures.writes;
                return Renew(manager, NumberOf(operation.fill)) == 0;
            case Act::kRead:
                return manager.ReadMessage(std::make_shared<NdefMessage>()) == 0;
            case Act::kReadNumber:
                return manager.ReadRandNum(number) == 0;
            case Act::kUpdate:
                ++m_figures.writes;
                return manager.UpdateNfcData();
            case Act::kStart:
                return Start(manager);
            case Act::kDisconnect:
                return !m_desk.Has(PcRoute::kBle) ||
                       manager.BtDisconnect(simulator::kDefaultBleAddress);
            case Act::kTap:
                m_desk.pc.TapPhone(0, operation.lasting);
                break;
            case Act::kFault:
                SetFault(operation);
                break;
            case Act::kReplug:
                Replug(operation.lasting);
                break;
            case Act::kRestart:
                break;
        }
        return true;
    }

    void SetFault(const Operation& operation) {
        if (IsFanli()) {
            hosted::WaitFor([this] { return m_starting == 0; }, hosted::kForever, "no start");
        }
        ++m_faulting;
        m_desk.SetFaults(operation.plan);
        if (!Wired()) {
            using LinkDockService::BleCall;
            LinkDockService::FailCall(static_cast<BleCall>(operation.fill % 5),
                                      1 + operation.fill % 3);
            ++m_figures.faults;
        }
        Desk::Pass(kFaultTime);
        if (Wired()) {
            CountFaults();
        }
        m_desk.SetFaults("");
        LinkDockService::ClearFaults();
        --m_faulting;
        if (Wired() && operation.plan.find("never") != std::string::npos) {
            Replug(0);  // nothing but the device's end ends what it has swallowed
        }
    }

    void CountFaults() {
        const hosted::DeviceLock lock;
        const std::size_t hits = m_desk.pc.faulty()->FaultsHit();
        m_figures.faults += hits - std::min(hits, m_hits);  // a driver put back counts anew
        m_hits = hits;
    }

    void Replug(Micros after) {
        m_desk.pc.Unplug();
        Desk::Pass(after);
        m_desk.pc.Plug();
    }

    // Nothing but reads and renewals, which a visit survives, may fall between the two times.
    bool Quiet(const Done& tap, Micros from, Micros to) const {
        return std::none_of(m_done.begin(), m_done.end(), [&](const Done& done) {
            const bool harmless =
                done.operation.act == Act::kRead || done.operation.act == Act::kReadNumber;
            return &done != &tap && !harmless && done.begin < to && done.settled > from;
        });
    }

    // A host that still works with a manager that another replaces ends it, and with it the threads
    // of all, when it has done.
    bool MayHoldLastPointer(const Done& done) const {
        return std::any_of(m_done.begin(), m_done.end(), [&](const Done& other) {
            return other.operation.at != done.operation.at &&
                   other.operation.act == Act::kRestart && other.begin <= done.settled &&
                   other.end >= done.begin;
        });
    }

    // Started and written since whatever may have taken the threads or the device away.
    bool Serving(Micros at) const {
        bool started = true;
        bool written = true;
        Micros trouble = 0;
        for (const Done& done : m_done) {
            const Act act = done.operation.act;
            const bool good = done.worked && done.begin > trouble;
            if (done.settled >= at) {
                continue;
            }
            if (act == Act::kFault || act == Act::kReplug || act == Act::kDisconnect ||
                MayHoldLastPointer(done)) {
                started = written = false;
                trouble = done.settled;
            } else if (act == Act::kStart || act == Act::kRestart) {
                started = good;
                written = good && act == Act::kRestart;
            } else if (act == Act::kWrite) {
                written = good && started;
            }
        }
        return started && written;
    }

    void CheckVisits() const {
        if (m_story.chip == "like-fanli") {
            return;
        }
        const std::vector<Heard> heard = HeardSoFar();
        for (const Done& done : m_done) {
            const Micros over = done.begin + done.operation.lasting + kVisitEnd;
            if (done.operation.act != Act::kTap || !Quiet(done, done.begin - kBeforeVisit, over) ||
                !Serving(done.begin - kBeforeVisit)) {
                continue;
            }
            const auto count = [&](int event, Micros from, Micros to) {
                return std::count_if(heard.begin(), heard.end(), [&](const auto& one) {
                    return one.event == event && one.time >= from && one.time <= to;
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
        Expect(m_open == 0, "a visit was never closed");
    }

    // The number on the tag is one that no later one has replaced. Content is judged by numbers:
    // the whole image is judged after the last write of all.
    void CheckTag() {
        if (m_story.managers > 1 || m_desk.log.Has("LocalWriteRand failed") ||
            m_desk.log.Has("UpdateNfcData failed")) {
            return;  // managers have no order; a failed write leaves the tag as far as it got
        }
        std::set<Number> possible;
        for (const Done& done : m_done) {
            // A renewal is taken over at once; only its way to the tag takes time, which another
            // manager does not know of.
            const bool replaced = std::any_of(m_done.begin(), m_done.end(), [&](const Done& later) {
                const bool another = later.operation.act == Act::kRestart;
                return Writes(later) && later.begin > (another ? done.settled : done.end);
            });
            if (Writes(done) && !replaced) {
                possible.insert(NumberOf(done.operation.fill));
            }
        }
        const Number found = m_desk.NumberOnChip();
        if (!possible.empty() && possible.count(found) == 0) {
            Fail("the tag has a number that begins with " + std::to_string(found[0]));
        }
    }

    // Whatever came before, a start and a write bring everything back, and a stop ends it.
    void Finish() {
        NfcManager& manager = *m_managers[0];
        Expect(Start(manager), "the last start failed");
        Expect(Write(manager, kLastFill), "the last write failed");
        Expect(Renew(manager, NumberOf(kLastNumber)) == 0, "the last renewal failed");
        Desk::Pass(kRenewalTime);
        Expect(m_desk.NumberOnChip() == NumberOf(kLastNumber), "the last number isn't on the tag");
        const std::string url(50, static_cast<char>(kLastFill));
        Expect(m_desk.ImageOnChip(kImageSize).find(url) != std::string::npos,
               "the last URL is not on the tag");
        TakeHeard();
        simulator::PhoneReport phone;
        m_desk.pc.TapPhone(0, hosted::kSecond, [&](const auto& report) { phone = report; });
        Desk::Pass(2 * kVisitEnd);
        Expect(phone.read, "the last phone could not read the tag");
        Expect(!HeardSoFar().empty(), "the last phone was not reported");
        Expect(m_open == 0, "the last visit was never closed");
        Expect(!m_desk.Has(PcRoute::kBle) || manager.BtDisconnect(simulator::kDefaultBleAddress),
               "no disconnection");
        m_managers.clear();
        Desk::Pass(kRenewalTime);
        const hosted::LiveCounts live = hosted::Live();
        // What a stop leaves: the device, the deferred call thread, the keyboard's event.
        const std::size_t handles = (Wired() ? 2U : 1U) + (m_desk.Has(PcRoute::kHid) ? 1U : 0U);
        Expect(live.threads == 1, "threads are left");
        Expect(live.requests == 0, "requests are left");
        Expect(live.handles == handles, "handles are left");
        m_figures.time = hosted::Now();
        m_desk.log.TakeUnannounced();
    }

    static Player* s_player;

    const Story& m_story;
    Desk m_desk;
    // One thread runs at a time, and none of these is touched across a call into the layer.
    std::vector<std::shared_ptr<NfcManager>> m_managers;
    std::vector<Done> m_done;  // in the order of their ends
    unsigned m_ended = 0;      // hosts
    int m_open = 0;            // visits of the driver routes
    std::size_t m_hits = 0;
    unsigned m_starting = 0;  // device starts under way
    unsigned m_faulting = 0;  // plans in force
    Figures m_figures;
};

Player* Player::s_player = nullptr;

}  // namespace

Figures Play(const Story& story) {
    hosted::UseScheduledClock(story.options);
    return Player(story).Run();
}

}  // namespace soak
