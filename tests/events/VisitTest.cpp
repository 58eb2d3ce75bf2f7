// Phones that stay while the host writes or creates a manager: how many visits it hears of.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "tests/support/Desk.h"
#include "tests/support/Seeds.h"

using simulator::PcRoute;
using namespace testing_support;

namespace {

using hosted::kMillisecond;
using hosted::kSecond;

constexpr hosted::Micros kStay = 60 * kSecond;

// The events so far are the entry of a phone and its leave, and no more pairs than `mostPairs`. Two
// visits may overlap.
void ExpectPairs(std::size_t mostPairs) {
    const std::vector<int> events = EventsHeard();
    const auto count = [&](int event) { return std::count(events.begin(), events.end(), event); };
    EXPECT_EQ(count(3), count(1)) << "each visit is closed once";
    EXPECT_EQ(events.empty() ? 0 : events.front(), 3);
    EXPECT_LE(events.size(), 2 * mostPairs) << "a chain of visits for one phone";
}

struct Peripheral {
    PcRoute route;
    const char* chip;
    bool interruptsUntilTheLeave;  // so that the last event 1 belongs to the leave
};

// While the phone stays the host does `act` once; what it returns lives on. The phone checks every
// 125 ms that the tag is there, and the library polls every 350 ms: how the two fall together
// depends on the time of the act.
void StayWhileTheHost(std::shared_ptr<NfcManager> (*act)(Desk&)) {
    for (const auto& [route, chip, interrupts] : {Peripheral{PcRoute::kI2c, "fm11nt081", true},
                                                  {PcRoute::kI2c, "fm11nt082c", true},
                                                  {PcRoute::kUsb, "fm11nt081", true},
                                                  {PcRoute::kI2c, "fanli", false}}) {
        for (const hosted::Micros actAtMs : {500, 600, 700, 800}) {
            SCOPED_TRACE(chip + (", acts after " + std::to_string(actAtMs)) + " ms");
            ForEachSeed(1, [&, route = route, chip = chip, interrupts = interrupts] {
                Desk desk({route}, chip);
                desk.Start();
                const hosted::Micros leave = hosted::Now() + kStay;
                desk.pc.TapPhone(0, kStay);
                // Of a phone whose visit has been given up before it leaves.
                desk.log.Announce("NFC LeaveField(2), interrupt First?: 1");
                Desk::Pass(actAtMs * kMillisecond);
                const std::shared_ptr<NfcManager> kept = act(desk);
                Desk::Pass(kStay + 20 * kSecond);
                ExpectPairs(2);
                if (interrupts && !HeardSoFar().empty()) {
                    EXPECT_LE(std::abs(HeardSoFar().back().time - leave), kSecond);
                }
                AnnounceStop(desk.log);
            });
        }
    }
}

TEST(StayingPhone, GivesAtMostOneFurtherPairForAWrite) {
    StayWhileTheHost([](Desk& desk) {
        EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage(0x22)), 0);
        return std::shared_ptr<NfcManager>();
    });
}

TEST(StayingPhone, GivesAtMostOneFurtherPairForACreation) {
    StayWhileTheHost(
        [](Desk& desk) { return NfcManager::Create(desk.NewMessage(), &Desk::Listen); });
}

// The host has a thread that writes after each event 3, one write at a time.
TEST(StayingPhone, GivesAtMostOneFurtherPairForEachWriteOnEvent3) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kI2c});
    desk.Start();
    bool entered = false;
    bool ended = false;
    std::size_t writes = 0;
    ReactToEvents([&](const Heard& heard) { entered = entered || heard.event == 3; });
    OnThread([&] {
        while (hosted::WaitFor([&] { return entered || ended; }, 2 * kStay, "event 3") && !ended) {
            entered = false;
            Sleep(100);
            EXPECT_EQ(desk.manager->WriteMessage(desk.NewMessage()), 0);
            ++writes;
        }
    });
    desk.pc.TapPhone(0, kStay);
    Desk::Pass(kStay + 20 * kSecond);
    ended = true;
    Desk::Pass(kSecond);
    ExpectPairs(1 + writes);
}

}  // namespace
