// Every chip on every driver route, from the start to a phone that has come and gone.
#include <gtest/gtest.h>

#include "peripheral/PeripheralState.h"
#include "tests/support/Desk.h"
#include "tests/support/Seeds.h"

using simulator::PcRoute;
using namespace testing_support;

namespace {

struct Route {
    PcRoute route;
    const char* chip;
    std::vector<int> events;
    const char* failure;  // an error line that tells why phones read nothing; null: they read
};

void PrintTo(const Route& route, std::ostream* out) {
    *out << route.chip << (route.route == PcRoute::kI2c ? " on I2C" : " on USB");
}

class EveryRoute : public testing::TestWithParam<Route> {};

TEST_P(EveryRoute, ServesAPhoneOrSaysWhyNot) {
    hosted::UseScheduledClock({Seed()});
    const Route& route = GetParam();
    Desk desk({route.route}, route.chip);
    desk.log.Announce("Nfc like Fanli intStatus");
    if (route.failure != nullptr) {
        desk.log.Announce(route.failure);
    }
    desk.Start();
    std::vector<simulator::PhoneReport> reports;
    desk.pc.TapPhone(0, hosted::kSecond,
                     [&](const simulator::PhoneReport& report) { reports.push_back(report); });
    Desk::Pass(2 * hosted::kSecond);
    ASSERT_EQ(EventsHeard(), route.events);
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].read, route.failure == nullptr) << reports[0].problem;
    if (route.failure == nullptr) {
        EXPECT_EQ(reports[0].reading.uri, "https://" + std::string(50, 'u'));
        EXPECT_EQ(reports[0].reading.mimePayload.size(), 44U);
        EXPECT_EQ(desk.NumberOnChip(), NumberOf(0x11));
        EXPECT_EQ(HeardSoFar().front().number, NumberOf(0x11));
    } else {
        EXPECT_TRUE(desk.log.Has(route.failure));
    }
    EXPECT_EQ(desk.pc.spb()->Violations(), 0U);
    AnnounceStop(desk.log);
    desk.manager.reset();
    EXPECT_TRUE(Desk::WaitForThreads(1));
    EXPECT_EQ(hosted::Live().requests, 0U);
}

const std::vector<int> kVisit = {3, 1};

// The USB route speaks the shorter frames only, which the Fanli family acknowledges and ignores.
// Its interrupt line stays raised, since nobody fetches its status, and so the visit has no end.
INSTANTIATE_TEST_SUITE_P(
    Chips, EveryRoute,
    testing::Values(Route{PcRoute::kI2c, "fm11nt081", kVisit, nullptr},
                    Route{PcRoute::kI2c, "fm11nt082c", kVisit, nullptr},
                    Route{PcRoute::kI2c, "like-fm11n", kVisit, nullptr},
                    Route{PcRoute::kI2c, "fanli", kVisit, nullptr},
                    Route{PcRoute::kI2c, "like-fanli", {4, 4}, nullptr},
                    Route{PcRoute::kUsb, "fm11nt081", kVisit, nullptr},
                    Route{PcRoute::kUsb, "fm11nt082c", kVisit, nullptr},
                    Route{PcRoute::kUsb, "like-fm11n", kVisit, nullptr},
                    Route{PcRoute::kUsb, "fanli", {3}, "NfcRadioEnable write fail2"},
                    Route{PcRoute::kUsb, "like-fanli", {3}, "NfcRadioEnable write fail2"}));

}  // namespace
