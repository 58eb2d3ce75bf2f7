// Interrupts become visits: what the listener hears, when, and what the log says.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "chip/NfcDeviceContext.h"
#include "events/DriverThreads.h"
#include "events/EventState.h"
#include "events/Visit.h"
#include "routes/RouteState.h"
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

// Interrupts to come, each a word: "350" by itself, "350:2" with a status, "350:2/ffff0001" with
// its first parameter as well. The times are milliseconds from now.
void RaiseLater(Desk& desk, const std::string& causes) {
    std::istringstream words(causes);
    for (std::string word; words >> word;) {
        unsigned at = 0;
        unsigned status = 0;
        unsigned para1 = 0;
        const int fields = std::sscanf(word.c_str(), "%u:%u/%x", &at, &status, &para1);
        hosted::After(at * kMillisecond, [=, &door = desk.pc.chip()->BackDoor()] {
            if (fields == 1) {
                door.RaiseInterrupt();
            } else {
                door.RaiseStatus(hosted::Now(), static_cast<std::uint8_t>(status), para1);
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

// The lines in one, without the chip's tick counts.
std::string Told(Texts lines) {
    for (std::string& line : lines) {
        line.resize(std::min(line.size(), line.find(", ticks")));
    }
    return Joined(lines);
}

// A started PC whose log is empty.
struct VisitDesk : Desk {
    explicit VisitDesk(PcRoute route, const std::string& chip = "fm11nt081") : Desk({route}, chip) {
        Start();
        log.Clear();
    }
    ~VisitDesk() { AnnounceStop(log); }
};

struct Case {
    const char* causes;
    const char* events;
    std::size_t stillThere;  // polls that find the phone in the field
    const char* errors = "";
};

void Watch(VisitDesk& desk, int route, const std::vector<Case>& cases) {
    for (const auto& [causes, events, stillThere, errors] : cases) {
        SCOPED_TRACE(causes);
        const std::size_t before = HeardSoFar().size();
        desk.log.Clear();
        RaiseLater(desk, causes);
        Desk::Pass(10 * kSecond);
        ASSERT_EQ(Timed(before, route), events);
        EXPECT_EQ(desk.log.Count("NFC_phone still in field"), stillThere);
        EXPECT_EQ(Told(desk.log.TakeUnannounced()), errors);
    }
}

TEST(CountedVisits, EndWhenInterruptsStopComing) {
    const std::vector<Case> cases{
        {"0", "3@0, 1@350", 0},
        {"0 10 340", "3@0, 1@350", 0},
        {"0 10 20 1000", "3@0, 1@350, 3@1000, 1@1350", 0},
        {"0 10 20 30", "3@0, 1@700", 1},
        {"0 10 20 30 699", "3@0, 1@1050", 2},
        {"0 100 200 300 400 600 800 1000", "3@0, 1@1400", 3},
    };
    for (const PcRoute route : {PcRoute::kI2c, PcRoute::kUsb}) {
        ForEachSeed(1, [&] {
            VisitDesk desk(route, "fm11nt082c");
            Watch(desk, static_cast<int>(route) + 1, cases);
        });
    }
}

TEST(ReportedVisit, FollowsTheStatusOfTheChip) {
    hosted::UseScheduledClock({Seed()});
    VisitDesk desk(PcRoute::kI2c, "fanli");
    Watch(desk, 1,
          {{"0:2", "", 0, "NFC LeaveField(2), interrupt First?: 1"},
           {"0:1 100:2", "3@0, 1@350", 0},
           {"0:1 400:2", "3@0, 1@700", 1},
           {"0:1 50:1 100:2", "3@0, 1@350", 0, "NFC EnterField(1), interrupt First?: 0"},
           {"0:1", "3@0, 1@7350", 20},
           {"0:3/ab 200:1 400:3/12345 500:2", "4@0, 3@200, 4@400, 1@550", 0,
            "Nfc MCU start! para1: 0x00ab, Nfc MCU start! para1: 0x12345"},
           {"0:4/ab 100:255/ac 200:5/ad", "", 0,
            "Nfc MCU reset! para1: 0x00ab, Nfc MCU no data! para1: 0x00ac, "
            "Nfc MCU unknown Event: 5, para1: 0x00ad"}});
    // A status that cannot be read keeps the line up; the loop goes on, and takes its time.
    desk.SetFaults("read#1+=fail:31");
    RaiseLater(desk, "0:1/30002 1200:2/ffff0001");
    Desk::Pass(kSecond);
    const Texts failures = desk.log.TakeUnannounced();
    const auto tries =
        std::count(failures.begin(), failures.end(), "Nfc read Interrupt Status failed!");
    EXPECT_GT(tries, 1);
    EXPECT_LE(tries, 10);
    desk.SetFaults("");
    Desk::Pass(2 * kSecond);
    const std::string told = Told(desk.log.Texts());
    EXPECT_NE(told.find("NFC EnterField(1), enterSum: 3, leaveSum: 2"), std::string::npos) << told;
    EXPECT_NE(told.find("NFC LeaveField(2), enterSum: 65535, leaveSum: 1"), std::string::npos);
    EXPECT_EQ(HeardSoFar().back().event, 1);
}

TEST(Listener, ThatIsMissingLeavesTheVisitUnopenedButEndsIt) {
    hosted::UseScheduledClock({Seed()});
    VisitDesk desk(PcRoute::kUsb);
    desk.manager->RegisterListener(nullptr);
    RaiseLater(desk, "0 100 200");  // an opened visit would have two such lines, whatever comes
    Desk::Pass(kSecond);
    EXPECT_EQ(desk.log.TakeUnannounced(), Texts(3, "NFC staticCallback is null"));
    desk.manager->RegisterListener(&Desk::Listen);
    RaiseLater(desk, "0");
    EXPECT_TRUE(Desk::WaitForEvents(1, kSecond));
    desk.manager->RegisterListener(nullptr);
    Desk::Pass(kSecond);
    EXPECT_EQ(EventsHeard(), std::vector<int>{3});
    EXPECT_EQ(desk.log.TakeUnannounced(), Texts{"NFC staticCallback is null"});
    EXPECT_TRUE(g_interruptFirst);
}

// The driver must keep the interrupt request pending; one that doesn't is left alone until the next
// write. A visit that was open by then begins anew.
TEST(BrokenWait, EndsTheThreadUntilTheNextWrite) {
    hosted::UseScheduledClock({Seed()});
    const std::vector<std::uint8_t> half(16, 0x11);
    const auto bus = std::make_shared<ScriptedBus>();
    Desk desk({});
    hosted::AddDevice(simulator::kUsbDriverPath, bus);
    bus->reads = {Gives({6}), Gives({6}), Gives({0}), Gives(half), Gives(half)};
    bus->controls = {GivesAtOnce({}), NeverEnds()};
    AnnounceStop(desk.log);
    desk.Start();
    EXPECT_TRUE(Desk::WaitForThreads(1));
    EXPECT_TRUE(
        HasInOrder(desk.log, {"NFC DeviceIoControl Failed: 0", "NFC WaitOnInterruptLoop return"}));
    EXPECT_EQ(m_staticNotificationThread, nullptr);
    EXPECT_EQ(EventsHeard(), std::vector<int>{});
    g_interruptFirst = false;
    bus->reads = {Gives(half), Gives(half)};
    EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage()), 0);
    Desk::Pass(kSecond);
    EXPECT_TRUE(g_interruptFirst);
    EXPECT_NE(m_staticNotificationThread, nullptr);
    EXPECT_EQ(hosted::Live().requests, 1U);
}

}  // namespace
