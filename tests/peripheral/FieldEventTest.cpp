// Interrupts become visits: what the listener hears, when, and what the log says.
#include <gtest/gtest.h>

#include "chip/NfcDeviceContext.h"
#include "peripheral/EventThread.h"
#include "peripheral/PeripheralState.h"
#include "simulator/SpbDriver.h"
#include "tests/support/Desk.h"
#include "tests/support/ScriptedBus.h"
#include "tests/support/Seeds.h"

using simulator::PcRoute;
using namespace testing_support;

namespace {

using Texts = std::vector<std::string>;
using hosted::kMillisecond;
using hosted::kSecond;

constexpr int kBare = -1;  // an interrupt without a status

struct Cause {
    hosted::Micros at;  // in milliseconds
    int status = kBare;
    std::uint32_t para1 = 0;
};

std::vector<Cause> At(std::initializer_list<hosted::Micros> times) {
    std::vector<Cause> causes;
    for (const hosted::Micros at : times) {
        causes.push_back({at});
    }
    return causes;
}

void RaiseLater(Desk& desk, const std::vector<Cause>& causes) {
    for (const Cause& cause : causes) {
        hosted::After(cause.at * kMillisecond, [&door = desk.pc.chip()->BackDoor(), cause] {
            if (cause.status == kBare) {
                door.RaiseInterrupt();
            } else {
                door.RaiseStatus(hosted::Now(), static_cast<std::uint8_t>(cause.status),
                                 cause.para1);
            }
        });
    }
}

// "3@0", "1@350": the events from `first` on, with the milliseconds since the first of them. A time
// that isn't whole has a mark.
std::string Timed(std::size_t first, int route) {
    Texts texts;
    const std::vector<Heard> all = HeardSoFar();
    for (std::size_t i = first; i < all.size(); ++i) {
        EXPECT_EQ(all[i].route, route);
        const hosted::Micros since = all[i].time - all[first].time;
        texts.push_back(std::to_string(all[i].event) + "@" + std::to_string(since / kMillisecond) +
                        (since % kMillisecond != 0 ? "?" : ""));
    }
    return Joined(texts);
}

void ExpectPrefixes(const Texts& lines, const Texts& prefixes) {
    ASSERT_EQ(lines.size(), prefixes.size()) << testing::PrintToString(lines);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i].substr(0, prefixes[i].size()), prefixes[i]);
    }
}

void Stop(Desk& desk) {
    AnnounceStop(desk.log);
    desk.manager.reset();
    EXPECT_TRUE(Desk::WaitForThreads(1));  // the deferred call thread stays
    EXPECT_EQ(hosted::Live().requests, 0U);
}

const char kStillThere[] = "NFC_phone still in field";

class CountedVisits : public testing::TestWithParam<PcRoute> {};

TEST_P(CountedVisits, EndWhenInterruptsStopComing) {
    hosted::UseScheduledClock({Seed()});
    const bool i2c = GetParam() == PcRoute::kI2c;
    Desk desk({GetParam()}, i2c ? "fm11nt082c" : "fm11nt081");
    desk.Start();
    const struct {
        std::vector<Cause> causes;
        const char* events;
        std::size_t visits;
        std::size_t stillThere;
        std::size_t unreported;
        int count;
    } cases[] = {
        {At({0}), "3@0, 1@350", 1, 0, 0, 1},
        {At({0, 10, 340}), "3@0, 1@350", 1, 0, 2, 3},
        {At({0, 10, 20, 1000}), "3@0, 1@350, 3@1000, 1@1350", 2, 0, 2, 1},
        {At({0, 10, 20, 30}), "3@0, 1@700", 1, 1, 3, 4},  // stands at exactly 4
        {At({0, 1, 2, 3, 4}), "3@0, 1@700", 1, 1, 4, 5},
        {At({0, 10, 20, 30, 699}), "3@0, 1@1050", 1, 2, 4, 5},
        {At({0, 100, 200, 300, 400, 600, 800, 1000}), "3@0, 1@1400", 1, 3, 7, 8},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.events);
        const std::size_t before = HeardSoFar().size();
        desk.log.Clear();
        RaiseLater(desk, one.causes);
        Desk::Pass(5 * kSecond);
        ASSERT_EQ(Timed(before, i2c ? 1 : 2), one.events);
        EXPECT_EQ(desk.log.Count(kStillThere), one.stillThere);
        EXPECT_EQ(desk.log.Count("NFC_SELECT_IN_FIELD no report"), one.unreported);
        EXPECT_EQ(desk.log.Count("[NFC] RF field has left"), one.visits);
        EXPECT_EQ(desk.log.Count("NFC_defer call done: 1111111111111111"), one.visits);
        EXPECT_EQ(g_fieldCount, one.count);
        EXPECT_TRUE(g_interruptFirst);
        EXPECT_EQ(HeardSoFar().back().number, NumberOf(0x11));
    }
    Stop(desk);
}

INSTANTIATE_TEST_SUITE_P(Routes, CountedVisits, testing::Values(PcRoute::kI2c, PcRoute::kUsb));

TEST(CountedVisit, EndsBetweenOneAndTwoPollsAfterItsLastInterrupt) {
    ForEachSeed(100, [] {
        Desk desk({PcRoute::kUsb});
        desk.Start();
        std::vector<Cause> causes = {{0}};
        const std::uint64_t more = 4 + hosted::Random() % 20;
        for (std::uint64_t i = 0; i < more; ++i) {
            causes.push_back({causes.back().at + 10 + static_cast<int>(hosted::Random() % 100)});
        }
        const hosted::Micros start = hosted::Now();
        RaiseLater(desk, causes);
        ASSERT_TRUE(Desk::WaitForEvents(2, 20 * kSecond));
        EXPECT_EQ(EventsHeard(), (std::vector<int>{3, 1}));
        const hosted::Micros quiet =
            HeardSoFar().back().time - start - causes.back().at * kMillisecond;
        EXPECT_GE(quiet, 350 * kMillisecond);
        EXPECT_LE(quiet, 700 * kMillisecond + simulator::kDefaultBusLatency);
        Desk::Pass(
            kSecond);  // a stop before the visit is closed would end the watching thread, too
        Stop(desk);
    });
}

TEST(ReportedVisit, FollowsTheStatusOfTheChip) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kI2c}, "fanli");
    desk.Start();
    const struct {
        std::vector<Cause> causes;
        const char* events;
        std::size_t stillThere;
        Texts errors;  // beginnings
        const char* warning;
    } cases[] = {
        {{{0, 2}}, "", 0, {"NFC LeaveField(2), interrupt First?: 1"}, ""},
        {{{0, 1, 0x00030002}, {100, 2}},
         "3@0, 1@350",
         0,
         {},
         "NFC EnterField(1), enterSum: 3, leaveSum: 2, ticks: "},
        {{{0, 1}, {400, 2, 0xFFFF0001}},
         "3@0, 1@700",
         1,
         {},
         "NFC LeaveField(2), enterSum: 65535, leaveSum: 1, ticks: "},
        {{{0, 1}, {50, 1}, {100, 2}},
         "3@0, 1@350",
         0,
         {"NFC EnterField(1), interrupt First?: 0"},
         ""},
        {{{0, 1}}, "3@0, 1@7350", 20, {}, ""},
        {{{0, 3, 0xAB}, {200, 1}, {400, 3, 0x12345}, {500, 2}},
         "4@0, 3@200, 4@400, 1@550",
         0,
         {"Nfc MCU start! para1: 0x00ab, ticks: ", "Nfc MCU start! para1: 0x12345, ticks: "},
         ""},
        {{{0, 4, 0xAB}, {100, 255, 0xAC}, {200, 5, 0xAD}},
         "",
         0,
         {"Nfc MCU reset! para1: 0x00ab, ticks: ", "Nfc MCU no data! para1: 0x00ac, ticks: ",
          "Nfc MCU unknown Event: 5, para1: 0x00ad, ticks: "},
         ""},
        {{{0, 1}, {50, 4}, {100, 2}}, "3@0, 1@350", 0, {"Nfc MCU reset! "}, ""},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.events + testing::PrintToString(one.errors));
        const std::size_t before = HeardSoFar().size();
        desk.log.Clear();
        RaiseLater(desk, one.causes);
        Desk::Pass(10 * kSecond);
        ASSERT_EQ(Timed(before, 1), one.events);
        EXPECT_EQ(desk.log.Count(kStillThere), one.stillThere);
        ExpectPrefixes(desk.log.TakeUnannounced(), one.errors);
        const Texts texts = desk.log.Texts();
        EXPECT_TRUE(std::any_of(texts.begin(), texts.end(), [&one](const std::string& text) {
            return text.rfind(one.warning, 0) == 0;
        }));
        EXPECT_TRUE(g_interruptFirst);
    }

    // A status that cannot be read loses one interrupt, and the loop goes on.
    desk.SetFaults("read#1=fail:31");
    RaiseLater(desk, {{0, 1}, {200, 2}});
    Desk::Pass(2 * kSecond);
    ExpectPrefixes(desk.log.TakeUnannounced(), {"NFC Error 31 with", "Nfc read spb status error",
                                                "Nfc read Interrupt Status failed!"});
    EXPECT_EQ(HeardSoFar().back().event, 1);
    Stop(desk);
}

TEST(LikeFanli, GivesOneEventForEveryStatusAndNoVisits) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kI2c}, "like-fanli");
    desk.Start();
    EXPECT_FALSE(desk.log.Has("Nfc RadioDisable succ"));
    desk.log.Clear();
    std::vector<Cause> causes;
    Texts events;
    Texts errors;
    for (const int status : {1, 2, 3, 4, 9, 255}) {
        const auto at = static_cast<hosted::Micros>(200 * causes.size());
        causes.push_back({at, status, 0x10});
        events.push_back("4@" + std::to_string(at));
        errors.push_back("Nfc like Fanli intStatus: " + std::to_string(status) +
                         " para1: 0x0010, ticks: ");
    }
    RaiseLater(desk, causes);
    Desk::Pass(10 * kSecond);
    EXPECT_EQ(Timed(0, 1), Joined(events));
    ExpectPrefixes(desk.log.TakeUnannounced(), errors);
    EXPECT_TRUE(g_interruptFirst);
    desk.manager->RegisterListener(nullptr);
    RaiseLater(desk, {{0, 3}});
    Desk::Pass(kSecond);
    ExpectPrefixes(desk.log.TakeUnannounced(), {"Nfc like Fanli", "NFC staticCallback is null"});
    Stop(desk);
}

TEST(Listener, ThatIsMissingLeavesTheVisitUnopenedButEndsIt) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kUsb});
    desk.Start();
    desk.manager->RegisterListener(nullptr);
    desk.log.Clear();
    RaiseLater(desk, {{0}, {100}});
    Desk::Pass(kSecond);
    EXPECT_EQ(desk.log.TakeUnannounced(), Texts(2, "NFC staticCallback is null"));
    EXPECT_EQ(desk.log.Count("NFC_SELECT_IN_FIELD 1st report"), 2U);
    EXPECT_FALSE(desk.log.Has("NFC_notifyDeferCallThread"));

    desk.manager->RegisterListener(&Desk::Listen);
    RaiseLater(desk, {{0}});
    EXPECT_TRUE(Desk::WaitForEvents(1, kSecond));
    desk.manager->RegisterListener(nullptr);
    Desk::Pass(kSecond);
    EXPECT_EQ(EventsHeard(), std::vector<int>{3});
    EXPECT_EQ(desk.log.TakeUnannounced(), Texts{"NFC staticCallback is null"});
    EXPECT_TRUE(g_interruptFirst);
    Stop(desk);
}

TEST(Visit, ThatAWriteFallsIntoIsClosedBeforeTheNextOne) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kUsb});
    desk.Start();
    RaiseLater(desk, {{0}});
    ASSERT_TRUE(Desk::WaitForEvents(1, kSecond));
    ASSERT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x22)), 0);
    EXPECT_TRUE(desk.log.Has("NFC_ m_staticNotificationThread already exist"));
    ASSERT_EQ(EventsHeard(), std::vector<int>{3});  // still under way
    RaiseLater(desk, {{0}});
    Desk::Pass(5 * kSecond);
    ASSERT_EQ(EventsHeard(), (std::vector<int>{3, 3, 1, 1}));
    const std::string times = Timed(0, 2);
    EXPECT_EQ(times.substr(times.find("1@")), "1@350, 1@700");
    EXPECT_EQ(HeardSoFar()[1].number, NumberOf(0x22));
    Stop(desk);
}

// The driver must keep the interrupt request pending; one that doesn't is left alone until the next
// write.
class BrokenWait : public testing::TestWithParam<DWORD> {};

TEST_P(BrokenWait, EndsTheThreadUntilTheNextWrite) {
    hosted::UseScheduledClock({Seed()});
    const std::vector<std::uint8_t> half(16, 0x11);
    const auto bus = std::make_shared<ScriptedBus>();
    Desk desk({});
    hosted::AddDevice(simulator::kUsbDriverPath, bus);
    bus->reads = {Gives({6}), Gives({6}), Gives({0}), Gives(half), Gives(half)};
    bus->controls = {GetParam() == ERROR_SUCCESS ? GivesAtOnce({}) : Refuses(GetParam()),
                     NeverEnds()};
    desk.log.Announce("NFC WaitOnInterruptLoop return");
    desk.Start();
    EXPECT_TRUE(Desk::WaitForThreads(1));
    EXPECT_TRUE(HasInOrder(desk.log, {"NFC DeviceIoControl Failed: " + std::to_string(GetParam()),
                                      "NFC WaitOnInterruptLoop return"}));
    EXPECT_EQ(m_staticNotificationThread, nullptr);
    EXPECT_EQ(EventsHeard(), std::vector<int>{});
    bus->reads = {Gives(half), Gives(half)};
    EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage()), 0);
    Desk::Pass(kSecond);
    EXPECT_NE(m_staticNotificationThread, nullptr);
    EXPECT_EQ(hosted::Live().requests, 1U);
    Stop(desk);
    hosted::RemoveDevice(simulator::kUsbDriverPath);
}

INSTANTIATE_TEST_SUITE_P(Codes, BrokenWait, testing::Values<DWORD>(ERROR_SUCCESS, 1));

}  // namespace
