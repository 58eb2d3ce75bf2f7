// Interrupts become visits: what the listener hears, when, and what the log says.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

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

// A started PC whose log is empty; its end stops the threads, but for the deferred call thread.
struct VisitDesk : Desk {
    explicit VisitDesk(PcRoute route, const std::string& chip = "fm11nt081") : Desk({route}, chip) {
        Start();
        log.Clear();
    }
    ~VisitDesk() {
        AnnounceStop(log);
        manager.reset();
        EXPECT_TRUE(WaitForThreads(1));
        EXPECT_EQ(hosted::Live().requests, 0U);
    }
};

const char kStillThere[] = "NFC_phone still in field";

void CountVisits(PcRoute route) {
    const bool i2c = route == PcRoute::kI2c;
    VisitDesk desk(route, i2c ? "fm11nt082c" : "fm11nt081");
    const struct {
        std::string causes;
        std::string events;
        std::size_t stillThere;
        int count;
    } cases[] = {
        {"0", "3@0, 1@350", 0, 1},
        {"0 10 340", "3@0, 1@350", 0, 3},
        {"0 10 20 1000", "3@0, 1@350, 3@1000, 1@1350", 0, 1},
        {"0 10 20 30", "3@0, 1@700", 1, 4},  // stands at exactly 4
        {"0 1 2 3 4", "3@0, 1@700", 1, 5},
        {"0 10 20 30 699", "3@0, 1@1050", 2, 5},
        {"0 100 200 300 400 600 800 1000", "3@0, 1@1400", 3, 8},
    };
    for (const auto& [causes, events, stillThere, count] : cases) {
        SCOPED_TRACE(causes);
        const std::size_t before = HeardSoFar().size();
        desk.log.Clear();
        RaiseLater(desk, causes);
        Desk::Pass(5 * kSecond);
        ASSERT_EQ(Timed(before, i2c ? 1 : 2), events);
        const std::size_t visits = (HeardSoFar().size() - before) / 2;
        const auto blanks = std::count(causes.begin(), causes.end(), ' ');
        EXPECT_EQ(desk.log.Count(kStillThere), stillThere);
        EXPECT_EQ(desk.log.Count("NFC_SELECT_IN_FIELD no report"),
                  static_cast<std::size_t>(blanks) + 1 - visits);
        EXPECT_EQ(desk.log.Count("NFC_defer call done: 1111111111111111"), visits);
        EXPECT_EQ(g_fieldCount, count);
        EXPECT_EQ(HeardSoFar().back().number, NumberOf(0x11));
    }
}

TEST(CountedVisits, EndWhenInterruptsStopComing) {
    ForEachSeed(1, [] { CountVisits(PcRoute::kI2c); });
    ForEachSeed(1, [] { CountVisits(PcRoute::kUsb); });
}

TEST(ReportedVisit, FollowsTheStatusOfTheChip) {
    hosted::UseScheduledClock({Seed()});
    VisitDesk desk(PcRoute::kI2c, "fanli");
    const struct {
        const char* causes;
        const char* events;
        std::size_t stillThere;
        const char* errors;
        const char* warning;
    } cases[] = {
        {"0:2", "", 0, "NFC LeaveField(2), interrupt First?: 1", ""},
        {"0:1/30002 100:2", "3@0, 1@350", 0, "", "NFC EnterField(1), enterSum: 3, leaveSum: 2"},
        {"0:1 400:2/ffff0001", "3@0, 1@700", 1, "",
         "NFC LeaveField(2), enterSum: 65535, leaveSum: 1"},
        {"0:1 50:1 100:2", "3@0, 1@350", 0, "NFC EnterField(1), interrupt First?: 0", ""},
        {"0:1", "3@0, 1@7350", 20, "", ""},
        {"0:3/ab 200:1 400:3/12345 500:2", "4@0, 3@200, 4@400, 1@550", 0,
         "Nfc MCU start! para1: 0x00ab, Nfc MCU start! para1: 0x12345", ""},
        {"0:4/ab 100:255/ac 200:5/ad", "", 0,
         "Nfc MCU reset! para1: 0x00ab, Nfc MCU no data! para1: 0x00ac, "
         "Nfc MCU unknown Event: 5, para1: 0x00ad",
         ""},
        {"0:1 50:4 100:2", "3@0, 1@350", 0, "Nfc MCU reset! para1: 0x0000", ""},
    };
    for (const auto& [causes, events, stillThere, errors, warning] : cases) {
        SCOPED_TRACE(causes);
        const std::size_t before = HeardSoFar().size();
        desk.log.Clear();
        RaiseLater(desk, causes);
        Desk::Pass(10 * kSecond);
        ASSERT_EQ(Timed(before, 1), events);
        EXPECT_EQ(desk.log.Count(kStillThere), stillThere);
        EXPECT_EQ(Told(desk.log.TakeUnannounced()), errors);
        EXPECT_NE(Told(desk.log.Texts()).find(warning), std::string::npos);
    }
    // A status that cannot be read loses one interrupt, and the loop goes on.
    desk.SetFaults("read#1=fail:31");
    RaiseLater(desk, "0:1 200:2");
    Desk::Pass(2 * kSecond);
    EXPECT_EQ(desk.log.TakeUnannounced().back(), "Nfc read Interrupt Status failed!");
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

TEST(Visit, ThatAWriteFallsIntoIsClosedBeforeTheNextOne) {
    hosted::UseScheduledClock({Seed()});
    VisitDesk desk(PcRoute::kUsb);
    RaiseLater(desk, "0");
    ASSERT_TRUE(Desk::WaitForEvents(1, kSecond));
    ASSERT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x22)), 0);
    ASSERT_EQ(EventsHeard(), std::vector<int>{3});  // still under way
    RaiseLater(desk, "0");
    Desk::Pass(5 * kSecond);
    ASSERT_EQ(EventsHeard(), (std::vector<int>{3, 3, 1, 1}));
    const std::string times = Timed(0, 2);
    EXPECT_EQ(times.substr(times.find("1@")), "1@350, 1@700");
    EXPECT_EQ(HeardSoFar()[1].number, NumberOf(0x22));
}

// The driver must keep the interrupt request pending; one that doesn't is left alone until the next
// write.
void EndsTheThreadUntilTheNextWrite(DWORD code) {
    const std::vector<std::uint8_t> half(16, 0x11);
    const auto bus = std::make_shared<ScriptedBus>();
    Desk desk({});
    hosted::AddDevice(simulator::kUsbDriverPath, bus);
    bus->reads = {Gives({6}), Gives({6}), Gives({0}), Gives(half), Gives(half)};
    bus->controls = {code == ERROR_SUCCESS ? GivesAtOnce({}) : Refuses(code), NeverEnds()};
    AnnounceStop(desk.log);
    desk.Start();
    EXPECT_TRUE(Desk::WaitForThreads(1));
    EXPECT_TRUE(HasInOrder(desk.log, {"NFC DeviceIoControl Failed: " + std::to_string(code),
                                      "NFC WaitOnInterruptLoop return"}));
    EXPECT_EQ(m_staticNotificationThread, nullptr);
    EXPECT_EQ(EventsHeard(), std::vector<int>{});
    bus->reads = {Gives(half), Gives(half)};
    EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage()), 0);
    Desk::Pass(kSecond);
    EXPECT_NE(m_staticNotificationThread, nullptr);
    EXPECT_EQ(hosted::Live().requests, 1U);
}

TEST(BrokenWait, EndsTheThreadUntilTheNextWrite) {
    ForEachSeed(1, [] { EndsTheThreadUntilTheNextWrite(ERROR_SUCCESS); });
    ForEachSeed(1, [] { EndsTheThreadUntilTheNextWrite(1); });
}

}  // namespace
