// Plays a story and looks at every step for what must never be.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>
#include <set>

#include "platform/LinkDockBackDoor.h"
#include "tests/support/Desk.h"
#include "tests/system/Flows.h"
#include "tests/system/soak/Story.h"

using hosted::Micros;
using simulator::PcRoute;
using testing_support::Desk;

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

// Where a message's fields stand in an image with a URI of 50 bytes.
constexpr std::size_t kNumberOffset = 106;
constexpr std::size_t kNumberSize = 32;
constexpr std::size_t kImageSize = 160;

// What the library logged in this process. Set by the player.
const testing_support::LogRecorder* g_log = nullptr;

// TAGPORT_SOAK_LOG shows the log's end before it.
[[noreturn]] void Fail(const std::string& what) {
    if (std::getenv("TAGPORT_SOAK_LOG") != nullptr) {
        const std::vector<std::string> lines = g_log->Texts();
        const std::size_t first = lines.size() - std::min<std::size_t>(lines.size(), kLinesShown);
        for (std::size_t i = first; i < lines.size(); ++i) {
            std::fprintf(stderr, "    %s\n", lines[i].c_str());
        }
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
    unsigned owner = 0;  // counts managers as they are created; of the one it worked with
    Micros begin = 0;
    Micros end = 0;
    bool worked = false;
};

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
            m_hosts.push_back({this, host});
        }
        for (Host& host : m_hosts) {
            CloseHandle(CreateThread(nullptr, 0, RunHost, &host, 0, nullptr));
        }
        hosted::WaitFor([this] { return m_ended == m_story.hosts; }, 2 * kHour, "the hosts");
        Expect(m_ended == m_story.hosts, "a host never came back");
        const Micros left = kHour - hosted::Now();
        Desk::Pass(std::max<Micros>(left, kRenewalTime));
        CheckVisits();
        CheckTag();
        Finish();
        return m_figures;
    }

  private:
    struct Host {
        Player* player;
        unsigned number;
    };
    struct Owned {
        std::shared_ptr<NfcManager> manager;
        unsigned owner = 0;
    };

    static DWORD WINAPI RunHost(LPVOID argument) {
        const Host& host = *static_cast<Host*>(argument);
        for (const Operation& operation : host.player->m_story.operations) {
            if (operation.host == host.number) {
                if (operation.at > hosted::Now()) {
                    Desk::Pass(operation.at - hosted::Now());
                }
                host.player->Do(operation);
            }
        }
        ++host.player->m_ended;
        return 0;
    }

    static void Listen(int event, const std::uint8_t (&number)[32], int route) {
        Desk::Listen(event, number, route);
        s_player->Judge(event, route);
    }

    void Judge(int event, int route) {
        const auto expected = static_cast<PcRoute>(route - 1);
        Expect(Has(expected), "an event from a route that the PC doesn't have");
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

    bool Has(PcRoute route) const {
        return std::find(m_story.routes.begin(), m_story.routes.end(), route) !=
               m_story.routes.end();
    }

    bool IsFanli() const { return m_story.chip == "fanli" || m_story.chip == "like-fanli"; }

    bool Wired() const { return m_story.routes[0] != PcRoute::kBle; }

    std::shared_ptr<NdefMessage> MessageOf(std::uint8_t fill) const {
        auto message = m_desk.NewMessage(fill);
        message->SetUrl(std::string(50, static_cast<char>('0' + fill % 64)));
        const std::uint8_t mac[6] = {fill, fill, fill, fill, fill, fill};
        message->SetMac(mac);
        return message;
    }

    bool Start(NfcManager& manager) {
        // Detection disturbed by a fault takes a Fanli chip for another kind, whose driver leaves
        // the status unread, which then interrupts without end. The fault sweep covers it.
        if (IsFanli()) {
            hosted::WaitFor([this] { return m_faulting == 0; }, hosted::kForever, "no fault");
        }
        ++m_starting;
        const bool worked = !Wired() || manager.DeviceInit();
        --m_starting;
        if (Has(PcRoute::kHid)) {
            manager.SetMcuKbConnectStatus(true);
        }
        return (!Has(PcRoute::kBle) || manager.BtConnect(simulator::kDefaultBleAddress)) && worked;
    }

    // Replaces a manager. The old one goes when the last host has done with it.
    bool Bring(unsigned slot, std::uint8_t fill) {
        Take(slot, {});
        Desk::Pass(static_cast<Micros>(hosted::Random() % 500'000));
        Owned owned{NfcManager::Create(MessageOf(fill), &Player::Listen), ++m_owners};
        Expect(owned.manager != nullptr, "no manager");
        Take(slot, owned);
        const bool started = Start(*owned.manager);
        return owned.manager->WriteMessage(MessageOf(fill)) == 0 && started;
    }

    void Take(unsigned slot, Owned owned) {
        std::swap(m_managers[slot], owned);  // the old one goes at the end of this scope
    }

    void Do(const Operation& operation) {
        Owned owned = m_managers[operation.manager];
        Done done;
        done.operation = operation;
        done.owner = owned.owner;
        done.begin = hosted::Now();
        done.worked = owned.manager == nullptr || Perform(operation, *owned.manager);
        if (operation.act == Act::kRestart) {
            owned = {};
            done.worked = Bring(operation.manager, operation.fill);
            done.owner = m_managers[operation.manager].owner;
        }
        done.end = hosted::Now();
        Expect(done.end - done.begin < kLongestOperation, "an operation took too long");
        if (operation.act == Act::kRenew) {
            done.end += kRenewalTime;
        }
        m_done.push_back(done);
        const hosted::LiveCounts live = hosted::Live();
        Expect(live.requests <= 3, "more requests than there can be");
        Expect(live.handles <= kMostHandles, "handles pile up");
    }

    bool Perform(const Operation& operation, NfcManager& manager) {
        std::uint8_t number[kNumberSize];
        std::fill(std::begin(number), std::end(number), operation.fill);
        switch (operation.act) {
            case Act::kWrite:
                ++m_figures.writes;
                return manager.WriteMessage(MessageOf(operation.fill)) == 0;
            case Act::kRenew:
                ++m_figures.writes;
                return manager.WriteRandNum(number) == 0;
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
                return !Has(PcRoute::kBle) || manager.BtDisconnect(simulator::kDefaultBleAddress);
            case Act::kTap:
                m_desk.pc.TapPhone(0, operation.lasting);
                return true;
            case Act::kFault:
                SetFault(operation);
                return true;
            case Act::kReplug:
                m_desk.pc.Unplug();
                Desk::Pass(operation.lasting);
                m_desk.pc.Plug();
                return true;
            case Act::kRestart:
                break;
        }
        return true;
    }

    void SetFault(const Operation& operation) {
        if (!Wired()) {
            using LinkDockService::BleCall;
            LinkDockService::FailCall(static_cast<BleCall>(operation.fill % 5),
                                      1 + operation.fill % 3);
            ++m_figures.faults;
            Desk::Pass(kFaultTime);
            LinkDockService::ClearFaults();
            return;
        }
        std::string problem;
        if (IsFanli()) {
            hosted::WaitFor([this] { return m_starting == 0; }, hosted::kForever, "no start");
        }
        ++m_faulting;
        m_desk.pc.Faults(*simulator::FaultPlan::Parse(operation.plan, problem));
        Desk::Pass(kFaultTime);
        {
            const hosted::DeviceLock lock;
            m_figures.faults += m_desk.pc.faulty()->FaultsHit() - m_hits;
            m_hits = m_desk.pc.faulty()->FaultsHit();
        }
        m_desk.pc.Faults({});
        --m_faulting;
        if (operation.plan.find("never") != std::string::npos) {
            // Nothing but the device's end ends what it has swallowed.
            m_desk.pc.Unplug();
            m_desk.pc.Plug();
        }
    }

    // Nothing but reads and renewals, which a visit survives, may fall between the two times.
    bool Quiet(const Done& tap, Micros from, Micros to) const {
        return std::none_of(m_done.begin(), m_done.end(), [&](const Done& done) {
            const bool harmless =
                done.operation.act == Act::kRead || done.operation.act == Act::kReadNumber;
            return &done != &tap && !harmless && done.begin < to && done.end > from;
        });
    }

    // A host that still works with a manager that another replaces ends it, and with it the threads
    // of all, when it has done.
    bool MayHoldLastPointer(const Done& done) const {
        return std::any_of(m_done.begin(), m_done.end(), [&](const Done& other) {
            return other.operation.at != done.operation.at &&
                   other.operation.act == Act::kRestart && other.begin <= done.end &&
                   other.end >= done.begin;
        });
    }

    // Started and written since whatever may have taken the threads or the device away.
    bool Serving(Micros at) const {
        bool started = true;
        bool written = true;
        Micros trouble = 0;
        std::vector<Done> past;
        std::copy_if(m_done.begin(), m_done.end(), std::back_inserter(past),
                     [at](const Done& done) { return done.end < at; });
        std::sort(past.begin(), past.end(),
                  [](const Done& a, const Done& b) { return a.end < b.end; });
        for (const Done& done : past) {
            const Act act = done.operation.act;
            if (act == Act::kFault || act == Act::kReplug || act == Act::kDisconnect ||
                MayHoldLastPointer(done)) {
                started = false;
                written = false;
                trouble = done.end;
            } else if (act == Act::kStart) {
                started = done.worked && done.begin > trouble;
                written = false;
            } else if (act == Act::kRestart) {
                started = done.worked && done.begin > trouble;
                written = started;
            } else if (act == Act::kWrite) {
                written = started && done.worked && done.begin > trouble;
            }
        }
        return started && written;
    }

    void CheckVisits() const {
        if (m_story.chip == "like-fanli") {
            return;
        }
        const std::vector<testing_support::Heard> heard = testing_support::HeardSoFar();
        for (const Done& done : m_done) {
            const Micros over = done.begin + done.operation.lasting + kVisitEnd;
            if (done.operation.act != Act::kTap || !Quiet(done, done.begin - kBeforeVisit, over) ||
                !Serving(done.begin - kBeforeVisit)) {
                continue;
            }
            const auto count = [&](int event) {
                return std::count_if(heard.begin(), heard.end(), [&](const auto& one) {
                    return one.event == event && one.time >= done.begin && one.time <= over;
                });
            };
            if (count(3) == 0 || count(3) != count(1)) {
                Fail("the visit at " + std::to_string(done.begin) + " us gave " +
                     std::to_string(count(3)) + " enters and " + std::to_string(count(1)) +
                     " leaves");
            }
        }
        Expect(m_open == 0, "a visit was never closed");
    }

    static bool Writes(Act act) {
        return act == Act::kWrite || act == Act::kRestart || act == Act::kRenew;
    }

    // The number on the tag is one that no later one has replaced. Content is judged by numbers:
    // the whole image is judged after the last write of all.
    void CheckTag() {
        if (m_story.managers > 1 || m_desk.log.Has("LocalWriteRand failed") ||
            m_desk.log.Has("UpdateNfcData failed")) {
            return;  // managers have no order; a failed write leaves the tag as far as it got
        }
        std::set<std::uint8_t> possible;
        for (const Done& done : m_done) {
            const Act act = done.operation.act;
            if (!Writes(act)) {
                continue;
            }
            const bool replaced = std::any_of(m_done.begin(), m_done.end(), [&](const Done& later) {
                const bool another = later.operation.act == Act::kRestart;
                return Writes(later.operation.act) &&
                       later.begin > (another ? done.end : EndOf(done));
            });
            if (!replaced) {
                possible.insert(done.operation.fill);
            }
        }
        const std::optional<std::uint8_t> found = NumberOnTag();
        if (!possible.empty() && (!found || possible.count(*found) == 0)) {
            Fail("the tag has number " + (found ? std::to_string(*found) : "(mixed)"));
        }
    }

    // A renewal is taken over at once; only its way to the tag takes time.
    static Micros EndOf(const Done& done) {
        return done.operation.act == Act::kRenew ? done.end - kRenewalTime : done.end;
    }

    std::optional<std::uint8_t> NumberOnTag() {
        const auto image = testing_support::TagBytes(m_desk, kImageSize);
        const auto first = image.begin() + kNumberOffset;
        const bool whole = std::all_of(first, first + kNumberSize,
                                       [&](std::uint8_t byte) { return byte == *first; });
        return whole ? std::optional<std::uint8_t>(*first) : std::nullopt;
    }

    // Whatever came before, a start and a write bring everything back, and a stop ends it.
    void Finish() {
        NfcManager& manager = *m_managers[0].manager;
        Expect(Start(manager), "the last start failed");
        Expect(manager.WriteMessage(MessageOf(kLastFill)) == 0, "the last write failed");
        std::uint8_t number[kNumberSize];
        std::fill(std::begin(number), std::end(number), static_cast<std::uint8_t>(kLastFill + 1));
        Expect(manager.WriteRandNum(number) == 0, "the last renewal failed");
        Desk::Pass(kRenewalTime);
        Expect(NumberOnTag() == kLastFill + 1, "the last number is not on the tag");
        const auto image = testing_support::TagBytes(m_desk, kImageSize);
        const std::string url(50, static_cast<char>('0' + kLastFill % 64));
        Expect(std::search(image.begin(), image.end(), url.begin(), url.end()) != image.end(),
               "the last URL is not on the tag");
        const std::size_t before = testing_support::HeardSoFar().size();
        m_desk.pc.TapPhone(0, hosted::kSecond);
        Desk::Pass(2 * kVisitEnd);
        Expect(testing_support::HeardSoFar().size() > before, "the last phone was not reported");
        Expect(m_open == 0, "the last visit was never closed");
        if (Has(PcRoute::kBle)) {
            Expect(manager.BtDisconnect(simulator::kDefaultBleAddress), "no disconnection");
        }
        m_managers.clear();
        Desk::Pass(kRenewalTime);
        const hosted::LiveCounts live = hosted::Live();
        // What a stop leaves: the device, the deferred call thread, the keyboard's event.
        const std::size_t handles = (Wired() ? 2U : 1U) + (Has(PcRoute::kHid) ? 1U : 0U);
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
    std::vector<Owned> m_managers;
    std::vector<Done> m_done;
    std::vector<Host> m_hosts;
    std::atomic<unsigned> m_ended{0};
    unsigned m_owners = 0;
    int m_open = 0;  // visits of the driver routes
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
