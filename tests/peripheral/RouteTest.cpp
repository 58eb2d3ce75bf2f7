// Every chip on every driver route, from the start to a phone that has come and gone.
#include <gtest/gtest.h>

#include "peripheral/PeripheralState.h"
#include "tests/support/Desk.h"
#include "tests/support/Seeds.h"

using simulator::PcRoute;
using namespace testing_support;

namespace {

void ServeAPhone(PcRoute route, const char* chip, const std::vector<int>& events, bool reads) {
    Desk desk({route}, chip);
    desk.log.Announce("Nfc like Fanli intStatus");
    if (!reads) {
        desk.log.Announce("NfcRadioEnable write fail2");
    }
    desk.Start();
    std::vector<simulator::PhoneReport> reports;
    desk.pc.TapPhone(0, hosted::kSecond,
                     [&](const simulator::PhoneReport& report) { reports.push_back(report); });
    Desk::Pass(2 * hosted::kSecond);
    EXPECT_EQ(EventsHeard(), events);
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].read, reads) << reports[0].problem;
    EXPECT_EQ(desk.log.Has("NfcRadioEnable write fail2"), !reads);
    if (reads) {
        EXPECT_EQ(reports[0].reading.uri, "https://" + std::string(50, 'u'));
        EXPECT_EQ(reports[0].reading.mimePayload.size(), 44U);
        EXPECT_EQ(desk.NumberOnChip(), NumberOf(0x11));
        EXPECT_EQ(HeardSoFar().at(0).number, NumberOf(0x11));
    }
    EXPECT_EQ(desk.pc.spb()->Violations(), 0U);
    AnnounceStop(desk.log);
    desk.manager.reset();
    EXPECT_TRUE(Desk::WaitForThreads(1));
    EXPECT_EQ(hosted::Live().requests, 0U);
}

// The USB route speaks the shorter frames only, which the Fanli family acknowledges and ignores.
// Its interrupt line stays raised, since nobody fetches its status, and so the visit has no end.
TEST(EveryRoute, ServesAPhoneOrSaysWhyNot) {
    const struct {
        const char* chip;
        std::vector<int> onI2c;
        std::vector<int> onUsb;
    } cases[] = {{"fm11nt081", {3, 1}, {3, 1}},
                 {"fm11nt082c", {3, 1}, {3, 1}},
                 {"like-fm11n", {3, 1}, {3, 1}},
                 {"fanli", {3, 1}, {3}},
                 {"like-fanli", {4, 4}, {3}}};
    for (const auto& one : cases) {
        SCOPED_TRACE(one.chip);
        ForEachSeed(1, [&] { ServeAPhone(PcRoute::kI2c, one.chip, one.onI2c, true); });
        const bool reads = one.onUsb.size() == 2;
        ForEachSeed(1, [&] { ServeAPhone(PcRoute::kUsb, one.chip, one.onUsb, reads); });
    }
}

}  // namespace
