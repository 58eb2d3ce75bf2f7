// Whole flows as a host sees them, on every route and chip.
#include <gtest/gtest.h>

#include "tests/support/Desk.h"
#include "tests/support/Seeds.h"

using simulator::PcRoute;
using namespace testing_support;

namespace {

TEST(Visit, PhoneReadsTheMessageAndIsReportedOnceEachWay) {
    hosted::UseScheduledClock({Seed()});
    Desk desk({PcRoute::kI2c}, "fm11nt082c");
    desk.Start();
    std::vector<simulator::PhoneReport> reports;
    desk.pc.TapPhone(0, 1000 * hosted::kMillisecond,
                     [&](const simulator::PhoneReport& report) { reports.push_back(report); });
    EXPECT_TRUE(Desk::WaitForEvents(2, 10 * hosted::kSecond));
    EXPECT_EQ(EventsHeard(1), (std::vector<int>{3, 1}));
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_TRUE(reports[0].read) << reports[0].problem;
    AnnounceStop(desk.log);
    desk.manager.reset();
    EXPECT_TRUE(Desk::WaitForThreads(1));
}

}  // namespace
