// The public simulator: what the example of a host's test does not use.
#include <gtest/gtest.h>
#include <tagport/Simulator.h>

#include <stdexcept>

namespace tagport {
namespace {

using namespace std::chrono_literals;

TEST(Simulator, RefusesWrongArgumentsAndCallsAtAWrongTime) {
    UseScheduledClock(7);
    EXPECT_THROW(UseScheduledClock(7), std::logic_error);
    EXPECT_THROW(SimulatedPc(std::vector<Route>{}), std::invalid_argument);
    EXPECT_THROW(SimulatedPc({Route::kUsb, Route::kUsb}), std::invalid_argument);
    EXPECT_THROW(SimulatedPc(static_cast<Route>(0)), std::invalid_argument);
    EXPECT_THROW(SimulatedPc(Route::kUsb, "fm11"), std::invalid_argument);
    EXPECT_THROW(SimulatedPc(Route::kUsb, "fanli"), std::invalid_argument);
    EXPECT_THROW(StartThread(nullptr), std::invalid_argument);
    EXPECT_THROW(WaitFor(nullptr, 1s), std::invalid_argument);
    EXPECT_THROW(Advance(Time::max()), std::invalid_argument);
    {
        SimulatedPc pc({Route::kUsb, Route::kBle});  // a refused one is not counted as there
        const LogRecorder log;
        EXPECT_THROW(SimulatedPc{Route::kHid}, std::logic_error);
        EXPECT_THROW(LogRecorder(), std::logic_error);
        EXPECT_THROW(pc.BringPhone(Route::kI2c), std::invalid_argument);
        EXPECT_THROW(pc.Tap(-1us), std::invalid_argument);
        EXPECT_THROW(pc.Tap(Time::max()), std::invalid_argument);
        EXPECT_THROW(Advance(-1us), std::invalid_argument);
        for (const char* const plan :
             {"write#0=never", "read#1", "connect#1=never", "open#1=gone,"}) {
            EXPECT_THROW(pc.SetFaults(plan), std::invalid_argument) << plan;
        }
        pc.SetFaults("open#1=gone, connect#2");
    }
    EXPECT_NO_THROW(SimulatedPc{Route::kHid});
    EXPECT_NO_THROW(LogRecorder());
    EXPECT_EQ(Now(), 0us);
}

TEST(Simulator, HoldsEachPhoneUntilItIsDue) {
    UseScheduledClock(7);
    SimulatedPc pc({Route::kUsb, Route::kBle});
    SimulatedPhone forever = pc.BringPhone(Route::kBle, Time::max());
    EXPECT_FALSE(pc.BringPhone(1s, Time::max()).Gone());
    SimulatedPhone late = pc.BringPhone(Route::kUsb, 1s, 5s);
    Advance(5900ms);
    EXPECT_FALSE(late.Gone());
    EXPECT_FALSE(forever.Gone());
    Advance(100ms);
    EXPECT_TRUE(late.Gone());
    ASSERT_TRUE(late.Reading());
    EXPECT_FALSE(late.Reading()->read) << "the tag is empty";
    EXPECT_NE(late.Reading()->problem, "");
    EXPECT_GT(late.Reading()->time, 5s);
    forever.TakeAway();
    EXPECT_TRUE(forever.Gone());
    SimulatedPhone never = pc.BringPhone(1s, 1s);
    never.TakeAway();
    EXPECT_TRUE(never.Gone()) << "it must not come any more";
}

TEST(Simulator, EndsARunThatCanMakeNoProgressBesideAWaitWithoutEnd) {
    EXPECT_EXIT(
        {
            UseScheduledClock(7);
            WaitFor([] { return false; }, Time::max());
        },
        testing::ExitedWithCode(86), "no thread can run and nothing is due(.|\n)*WaitFor");
}

// What the condition depends on may be changed by threads that the emulation does not know.
TEST(Simulator, LooksAtAConditionAgainAndAgainInRealTime) {
    int looks = 0;
    EXPECT_TRUE(WaitFor([&] { return ++looks > 10; }, Time::max()));
}

}  // namespace
}  // namespace tagport
