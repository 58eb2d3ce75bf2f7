// Interrupts become visits: what the listener hears and when, and what the log says.
#include <algorithm>

#include "chip/DetectChip.h"
#include "chip/NfcDeviceContext.h"
#include "events/Visit.h"
#include "simulator/FanliChip.h"
#include "tests/support/PcWithHost.h"

using namespace testing_support;

namespace {

// One interrupt of the chip, by itself or with a status.
struct Interrupt {
    unsigned atMs = 0;
    std::uint8_t status = 0;
    std::uint32_t para1 = 0;
};
using Interrupts = std::vector<Interrupt>;

Interrupts At(const std::vector<unsigned>& times) {
    Interrupts interrupts;
    for (const unsigned time : times) {
        interrupts.push_back({time});
    }
    return interrupts;
}
Interrupt Enter(unsigned atMs) {
    return {atMs, simulator::kStatusEnterField};
}
Interrupt Leave(unsigned atMs) {
    return {atMs, simulator::kStatusLeaveField};
}

struct VisitCase {
    Interrupts interrupts;
    std::vector<double> visits;    // opened, closed, opened...: ms since the first event
    std::size_t stillInField = 0;  // polls that find the phone in the field
    Texts errors = {};
    std::vector<double> starts = {};  // events 4
};

// A started PC whose log is empty.
struct VisitDesk : StartedPc {
    explicit VisitDesk(PcRoute route, const std::string& chip = "fm11nt081")
        : StartedPc({route}, chip) {
        log.Clear();
    }

    // From now on.
    void Raise(const Interrupts& interrupts) {
        for (const Interrupt& one : interrupts) {
            emulation::After(one.atMs * kMillisecond, [one, &door = pc.chip()->BackDoor()] {
                if (one.status == 0) {
                    door.RaiseInterrupt();
                } else {
                    door.RaiseStatus(emulation::Now(), one.status, one.para1);
                }
            });
        }
    }

    // The lines without the chip's tick counts.
    static Texts WithoutTicks(Texts lines) {
        for (std::string& line : lines) {
            line.resize(std::min(line.size(), line.find(", ticks")));
        }
        return lines;
    }

    void Watch(int route, const std::vector<VisitCase>& cases) {
        ReactToEvents([this](const ReceivedEvent& heard) {
            EXPECT_EQ(log.TextsSoFar().back().rfind("Nfc MCU start!", 0) == 0, heard.event == 4);
            EXPECT_TRUE(Visit::Get().IsOpen() || heard.event == 4) << "until the leave is told";
        });
        log.OnLine([](const std::string& text) {
            EXPECT_FALSE(text.rfind("NFC_defer call done", 0) == 0 && Visit::Get().IsOpen());
            const std::size_t ticks = text.find("ticks: ");
            if (ticks != std::string::npos) {
                const emulation::Micros at = std::stoll(text.substr(ticks + 7)) * kMillisecond;
                EXPECT_LT(std::abs(emulation::Now() - at), kSecond) << text;
            }
        });
        for (std::size_t i = 0; i < cases.size(); ++i) {
            SCOPED_TRACE("case " + std::to_string(i));
            TakeEvents();
            log.Clear();
            Raise(cases[i].interrupts);
            Pass(10 * kSecond);
            std::vector<double> visits, starts;
            const std::vector<ReceivedEvent> all = EventsSoFar();
            for (const ReceivedEvent& heard : all) {
                EXPECT_EQ(heard.route, route);
                EXPECT_EQ(heard.event, heard.event == 4 ? 4 : visits.size() % 2 == 0 ? 3 : 1);
                (heard.event == 4 ? starts : visits)
                    .push_back(static_cast<double>(heard.time - all[0].time) / 1000);
            }
            EXPECT_EQ(visits, cases[i].visits);
            EXPECT_EQ(starts, cases[i].starts);
            EXPECT_EQ(log.Count("NFC_phone still in field"), cases[i].stillInField);
            EXPECT_EQ(WithoutTicks(log.TakeUnannounced()), cases[i].errors);
        }
    }
};

TEST(CountedVisit, EndsWhenInterruptsStopComing) {
    VisitDesk setup(PcRoute::kUsb, "fm11nt082c");
    setup.Watch(2, {{At({0, 10, 340}), {0, 350}},  // the first visit continues no other
                    {At({0}), {0, 350}},
                    {At({0, 10, 20, 1000}), {0, 350, 1000, 1350}},
                    {At({0, 10, 20, 30}), {0, 700}, 1},
                    {At({0, 10, 20, 30, 699}), {0, 1050}, 2},
                    {At({0, 100, 200, 300, 400, 600, 800, 1000}), {0, 1400}, 3}});
}

TEST(ReportedVisit, FollowsTheStatusOfTheChip) {
    constexpr std::uint8_t start = simulator::kStatusMcuStart;
    constexpr std::uint8_t reset = simulator::kStatusMcuReset;
    constexpr std::uint8_t noData = simulator::kStatusNoData;
    const Texts alone{"NFC LeaveField(2), interrupt First?: 1"};
    const Texts again{"NFC EnterField(1), interrupt First?: 0"};
    const Texts starts{"Nfc MCU start! para1: 0x00ab", "Nfc MCU start! para1: 0x12345"};
    const Texts others{"Nfc MCU reset! para1: 0x00ab", "Nfc MCU no data! para1: 0x00ac",
                       "Nfc MCU unknown Event: 5, para1: 0x00ad"};
    VisitDesk setup(PcRoute::kI2c, "fanli");
    const Interrupts startsAndVisit{
        {0, start, 0xAB}, Enter(200), {400, start, 0x12345}, Leave(500)};
    const Interrupts noVisit{{0, reset, 0xAB}, {100, noData, 0xAC}, {200, 5, 0xAD}};
    setup.Watch(1, {{{Leave(0)}, {}, 0, alone},
                    {{Enter(0), Leave(100)}, {0, 350}},
                    {{Enter(0), Leave(400)}, {0, 700}, 1},
                    {{Enter(0), Enter(50), Leave(100)}, {0, 350}, 0, again},
                    {{Enter(0)}, {0, 7350}, 20},
                    {startsAndVisit, {200, 550}, 0, starts, {0, 400}},
                    {noVisit, {}, 0, others}});
}

// A write arms the next visit, and the phone's first interrupt opens it while the other is watched.
TEST(SecondVisit, IsNotifiedWhenTheFirstHasBeenClosed) {
    VisitDesk setup(PcRoute::kUsb);
    setup.Raise(At({0, 100, 200, 300, 340, 600}));
    PcWithHost::Pass(200 * kMillisecond);
    EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage()), 0);
    PcWithHost::Pass(20 * kSecond);
    EXPECT_EQ(EventNumbers(), (std::vector<int>{3, 3, 1, 1}));
    EXPECT_TRUE(HasInOrder(setup.log, {"NFC_notifyDeferCallThread", "[NFC] RF field has left",
                                       "NFC_notifyDeferCallThread"}));
}

// A status that cannot be read keeps the line up; the loop goes on, and does not spin.
TEST(ReportedVisit, WaitsForAStatusThatCannotBeRead) {
    VisitDesk setup(PcRoute::kI2c, "fanli");
    setup.SetFaults("read#1+=fail:31");
    setup.Raise({{0, simulator::kStatusEnterField, 0x30002},
                 {1200, simulator::kStatusLeaveField, 0xFFFF0001}});
    BusRecorder recorder;
    PcWithHost::Pass(kSecond);
    const std::size_t failures = setup.log.Count("Nfc read Interrupt Status failed!");
    EXPECT_GT(failures, 1U);
    const Texts traffic = recorder.Take();
    EXPECT_EQ(std::count(traffic.begin(), traffic.end(), "sleep 100"), failures);
    setup.log.TakeUnannounced();
    setup.SetFaults("");
    PcWithHost::Pass(2 * kSecond);
    const Texts lines = VisitDesk::WithoutTicks(setup.log.TextsSoFar());
    for (const char* line : {"NFC EnterField(1), enterSum: 3, leaveSum: 2",
                             "NFC LeaveField(2), enterSum: 65535, leaveSum: 1"}) {
        EXPECT_EQ(std::count(lines.begin(), lines.end(), line), 1) << line;
    }
    EXPECT_EQ(EventNumbers(), (std::vector<int>{3, 1}));
}

// The interrupt thread waits for the device mutex while a device start finds another chip.
TEST(CountedVisit, BeginsWithAnInterruptOfTheChipBefore) {
    VisitDesk setup(PcRoute::kI2c);
    NfcDeviceContext& context = GetNfcDeviceContext();
    {
        const platform::Lock detection(context.mutex);
        NfcSpbCommon* const found =
            context.spbDriverOps.exchange(DriverFor(NfcLinkSpb4));  // whose chips have a status
        setup.Raise(At({0}));
        PcWithHost::Pass(kSecond);
        context.spbDriverOps = found;
    }
    PcWithHost::Pass(kSecond);
    EXPECT_EQ(EventNumbers(), (std::vector<int>{3, 1}));
}

// A device start waits for the device mutex while the status is read, and finds another chip.
TEST(ReportedVisit, BeginsWithTheStatusOfTheChipBefore) {
    ForEachSeed(20, [] {
        VisitDesk setup(PcRoute::kI2c, "fanli");
        NfcDeviceContext& context = GetNfcDeviceContext();
        setup.Raise({Enter(0)});
        NfcSpbCommon* found = nullptr;
        OnThread([&] {
            Sleep(20);  // in the middle of the reading
            const platform::Lock detection(context.mutex);
            found = context.spbDriverOps.exchange(DriverFor(NfcLinkSpb2));
        });
        PcWithHost::Pass(kSecond);
        context.spbDriverOps = found;
        EXPECT_EQ(EventNumbers(), (std::vector<int>{3, 1}));
    });
}

TEST(MissingListener, LeavesAVisitUnopenedButEndsOne) {
    VisitDesk setup(PcRoute::kUsb);
    setup.manager->RegisterListener(nullptr);
    setup.Raise(At({0, 100, 200}));
    PcWithHost::Pass(kSecond);
    EXPECT_EQ(setup.log.TakeUnannounced(), Texts(3, "NFC staticCallback is null"));
    setup.manager->RegisterListener(&PcWithHost::Listen);
    setup.Raise(At({0}));
    EXPECT_TRUE(PcWithHost::WaitForEvents(1, kSecond));
    setup.manager->RegisterListener(nullptr);
    PcWithHost::Pass(kSecond);
    EXPECT_EQ(EventNumbers(), std::vector<int>{3});
    EXPECT_EQ(setup.log.TakeUnannounced(), Texts{"NFC staticCallback is null"});
    setup.manager->RegisterListener(&PcWithHost::Listen);
    setup.Raise(At({0}));
    PcWithHost::Pass(kSecond);
    EXPECT_EQ(EventNumbers(), (std::vector<int>{3, 3, 1}));
}

// The thread that waits for visits is let go of after it has looked whether it is the current one.
TEST(WaitForAVisit, EndsForAThreadThatIsLetGoOfAfterItsLook) {
    const OneSeed clock;
    bool current = true;
    bool looked = false;
    bool ended = false;
    OnThread([&] {
        EXPECT_FALSE(Visit::Get().TakeUp([&] {
            const bool answer = current;
            looked = true;
            Sleep(10);
            return answer;
        }));
        ended = true;
    });
    emulation::WaitFor([&] { return looked; }, kSecond, "the look");
    current = false;
    Visit::Get().Wake();
    EXPECT_TRUE(emulation::WaitFor([&] { return ended; }, kSecond, "the end of the wait"));
}

TEST(BrokenInvariant, EndsTheProcessAndNamesTheVariable) {
    EXPECT_DEATH(Visit::Get().Close(0), "TAGPORT_CHECK.*m_open > g_deferNotified");
}

// The phone's first interrupts are counted to the visit that is just being closed, so its own one
// begins at one of its checks.
TEST(ComingPhone, GivesOnePairHoweverLongTheListenerTakesForTheLeaveBefore) {
    ForEachSeed(200, [] {
        const auto between = [](unsigned least, unsigned most) -> emulation::Micros {
            const std::uint64_t ms = least + emulation::Random() % (most - least + 1);
            return static_cast<emulation::Micros>(ms) * kMillisecond;
        };
        StartedPc setup({PcRoute::kUsb});
        ReactToEvents([hold = between(5, 150)](const ReceivedEvent& event) {
            PcWithHost::Pass(event.event == 1 ? hold : 0);
        });
        const emulation::Micros firstStay = between(300, 1000);
        setup.pc.TapPhone(0, firstStay);
        setup.pc.TapPhone(firstStay + between(0, 1100), 5 * kSecond);
        PcWithHost::Pass(20 * kSecond);
        const std::vector<int> events = EventNumbers();
        EXPECT_LE(events.size(), 4U) << "a chain of visits for one phone";
        EXPECT_EQ(std::count(events.begin(), events.end(), 3),
                  std::count(events.begin(), events.end(), 1));
    });
}

}  // namespace
