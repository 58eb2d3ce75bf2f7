// Plays a story and looks at every step for what must never be.
#include <algorithm>

#include "platform/LinkDockBackDoor.h"
#include "tests/system/soak/Judge.h"
#include "tests/system/soak/Story.h"

using hosted::Micros;
using simulator::PcRoute;
using namespace testing_support;

namespace soak {

namespace {

constexpr Micros kLongestOperation = 400 * hosted::kSecond;
constexpr Micros kFaultTime = 20 * hosted::kSecond;    // how long a plan is in force
constexpr Micros kRenewalTime = 60 * hosted::kSecond;  // until a renewal has surely ended
constexpr std::size_t kMostHandles = 60;
constexpr Micros kShortStay = 250 * hosted::kMillisecond;  // shorter than every watch
constexpr std::uint8_t kFirstFill = 1;
constexpr std::uint8_t kLastFill = 0xE0;
constexpr std::uint8_t kFirstSettled = 0xE1;
constexpr std::uint8_t kLastNumber = 0xE2;

class Player {
  public:
    explicit Player(const Story& story)
        : m_story(story), m_desk(story.routes, story.chip), m_managers(story.managers) {}

    Figures Run() {
        s_player = this;
        ShowLog(m_desk.log);
        hosted::SetStallHandler([](const std::string& report) { Fail(report); });
        for (unsigned i = 0; i < m_story.managers; ++i) {
            Do({Act::kRestart, 0, 0, i, kFirstFill, 0, "", {}});
            Expect(m_done.back().worked, "the first start failed");
        }
        for (unsigned host = 0; host < m_story.hosts; ++host) {
            OnThread([this, host] { RunHost(host); });
        }
        Expect(hosted::WaitFor([this] { return m_ended == m_story.hosts; }, 2 * kHour, "the hosts"),
               "a host never came back");
        Desk::Pass(std::max(kHour - hosted::Now(), kRenewalTime));
        Expect(m_open == 0, "a visit was never closed");
        m_figures.judgedVisits = JudgeVisits(m_story, m_done, HeardSoFar());
        CheckTag();
        Settle();
        PlayRounds();
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
        Number shown;
        std::copy(std::begin(number), std::end(number), shown.begin());
        s_player->JudgeNumber(shown);
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

    // A number is never shown in pieces, as long as nothing can have left pieces on the tag.
    // Behind the hour it is one that was given there.
    void JudgeNumber(const Number& number) {
        if (m_settled.empty()) {
            Expect(
                number == NumberOf(number[0]) || m_faulting > 0 || !Serving(m_done, hosted::Now()),
                "a number was shown in pieces");
        } else {
            Expect(std::count(m_settled.begin(), m_settled.end(), number) > 0,
                   "a number was shown that was not given");
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
        CheckTag();
        Done done;
        done.operation = operation;
        done.begin = hosted::Now();
        done.failedBefore = FailedRenewals();
        m_putting += PutsImage(operation.act) ? 1 : 0;
        if (operation.act == Act::kRestart) {
            done.worked = Bring(operation.manager, operation.fill);
        } else if (const auto manager = m_managers[operation.manager]) {
            done.worked = Perform(operation, *manager);
        } else {
            done.operation.act = Act::kRead;  // nobody is there who could do it
        }
        m_putting -= PutsImage(operation.act) ? 1 : 0;
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
            case Act::kRecover:
                ++m_figures.writes;
                return Start(manager) && Write(manager, operation.fill);
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

    std::size_t FailedRenewals() const { return m_desk.log.Count("LocalWriteRand failed"); }

    // While nothing is on its way to the tag.
    void CheckTag() {
        const bool underWay = std::any_of(m_done.begin(), m_done.end(), [](const Done& done) {
            return done.settled > hosted::Now();
        });
        if (m_putting == 0 && !underWay && !m_done.empty() &&
            JudgeTag(m_story, m_done, FailedRenewals(), m_desk.NumberOnChip())) {
            ++m_figures.judgedTags;
        }
    }

    // Whatever came before, a start and a write bring everything back. A number that is given while
    // the write is under way is the one that stays.
    void Settle() {
        NfcManager& manager = *m_managers[0];
        Expect(Start(manager), "the last start failed");
        bool written = false;
        OnThread([&] { written = Write(manager, kLastFill); });
        Desk::Pass(m_story.renewalAfter);
        Expect(Renew(manager, NumberOf(kFirstSettled)) == 0, "a renewal failed");
        Desk::Pass(kRenewalTime);
        Expect(written, "the last write failed");
        Expect(m_desk.NumberOnChip() == NumberOf(kFirstSettled),
               "the number given during the last write is not on the tag");
        m_settled = {NumberOf(kFirstSettled)};
    }

    void PlayRounds() {
        TakeHeard();
        const Micros begin = hosted::Now();
        std::size_t read = 0;
        std::size_t phones = 0;
        for (const Operation& one : m_story.rounds) {
            if (one.act == Act::kTap) {
                ++phones;
                m_desk.pc.TapPhone(one.route, one.at, one.lasting,
                                   [&read](const auto& report) { read += report.read ? 1 : 0; });
            }
        }
        for (const Operation& one : m_story.rounds) {
            Desk::Pass(std::max<Micros>(begin + one.at - hosted::Now(), 0));
            if (one.act == Act::kRenew) {
                m_settled.push_back(NumberOf(one.fill));
            }
            if (one.act != Act::kTap) {
                // The keyboards have no content to read, and a number's answer can be missed.
                const bool worked = Perform(one, *m_managers[0]);
                Expect(worked || m_desk.pc.chip() == nullptr, "a read or renewal failed");
            }
        }
        Desk::Pass(kRenewalTime);
        std::vector<Heard> heard = TakeHeard();
        std::for_each(heard.begin(), heard.end(), [&](Heard& one) { one.time -= begin; });
        m_figures.settledVisits = JudgeRounds(m_story, std::move(heard));
        Expect(read == phones, "a phone could not read the tag");
    }

    // The last number, its phone, and a phone that a stop falls upon.
    void Finish() {
        NfcManager& manager = *m_managers[0];
        m_settled = {NumberOf(kLastNumber)};
        Expect(Renew(manager, m_settled[0]) == 0, "the last renewal failed");
        Desk::Pass(kRenewalTime);
        TakeHeard();
        simulator::PhoneReport phone;
        m_desk.pc.TapPhone(0, kShortStay, [&](const auto& report) { phone = report; });
        Desk::Pass(2 * kVisitEnd);
        CheckLast(phone.reading);
        const int route = static_cast<int>(m_story.routes[0]) + 1;
        const bool withoutVisits = m_story.chip == "like-fanli" && m_desk.Has(PcRoute::kI2c);
        Expect(EventsHeard() == EventsHeard(route) &&
                   EventsHeard() == (withoutVisits ? std::vector{4, 4} : std::vector{3, 1}),
               "the last phone was not reported as come and gone");
        m_desk.pc.TapPhone(0, m_story.stopAfter + hosted::kSecond);
        if (m_story.stopAfter % 2 == 0) {
            // Opens another visit behind the one that it falls into: both are owed their leaves.
            Desk::Pass(hosted::kSecond / 2);
            m_settled.push_back(NumberOf(kLastFill));
            Expect(Write(manager, kLastFill), "a write beside a phone failed");
        }
        Desk::Pass(m_story.stopAfter);
        Expect(!m_desk.Has(PcRoute::kBle) || manager.BtDisconnect(simulator::kDefaultBleAddress),
               "no disconnection");
        m_managers.clear();
        Desk::Pass(kRenewalTime);
        Expect(m_open == 0, "a visit that a stop fell into was not closed");
        const hosted::LiveCounts live = hosted::Live();
        // What a stop leaves: the device, the keyboard's event, and the deferred call thread, which
        // ends by itself where the stop fell into a visit.
        const std::size_t kept = (Wired() ? 1U : 0U) + (m_desk.Has(PcRoute::kHid) ? 1U : 0U);
        Expect(live.threads == 1 || (m_desk.pc.chip() != nullptr && live.threads == 0),
               "threads are left");
        Expect(live.requests == 0, "requests are left");
        Expect(live.handles == kept + live.threads, "handles are left");
        m_figures.time = hosted::Now();
        m_desk.log.TakeUnannounced();
    }

    // What a phone makes of the whole of the last image.
    static void CheckLast(const simulator::NdefReading& reading) {
        constexpr std::size_t kMacSize = 6;
        constexpr std::size_t kModelSize = 4;
        std::string payload = "\x80\x64";
        payload.append(kMacSize, static_cast<char>(kLastFill));
        payload.append(Number().size(), static_cast<char>(kLastNumber));
        payload.append(kModelSize, static_cast<char>(kLastFill));
        Expect(reading.uri == "https://" + std::string(50, static_cast<char>(kLastFill)),
               "the last phone read another URL");
        Expect(std::string(reading.mimePayload.begin(), reading.mimePayload.end()) == payload,
               "the last phone read another MAC address, number or model");
    }

    static Player* s_player;

    const Story& m_story;
    Desk m_desk;
    // One thread runs at a time, and none of these is touched across a call into the layer.
    std::vector<std::shared_ptr<NfcManager>> m_managers;
    History m_done;
    unsigned m_ended = 0;  // hosts
    int m_open = 0;        // visits of the driver routes
    std::size_t m_hits = 0;
    unsigned m_starting = 0;        // device starts under way
    unsigned m_faulting = 0;        // plans in force
    unsigned m_putting = 0;         // operations under way that put an image onto the tag
    std::vector<Number> m_settled;  // behind the hour: the numbers given, in order
    Figures m_figures;
};

Player* Player::s_player = nullptr;

}  // namespace

Figures Play(const Story& story) {
    hosted::UseScheduledClock(story.options);
    return Player(story).Run();
}

}  // namespace soak
