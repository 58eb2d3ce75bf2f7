// Starts and stops of the event threads: what ends them, what starts them again, and that nothing
// is left over.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "simulator/FanliChip.h"
#include "tests/support/PcWithHost.h"
#include "tests/support/ScriptedBus.h"
#include "tests/support/Seeds.h"

using simulator::PcRoute;
using namespace testing_support;

namespace {

using hosted::kSecond;

constexpr char kReturned[] = "NFC WaitOnInterruptLoop return";
constexpr char kWaits[] = "NFC Wait For Kernel Interrupt...";

// A PC that waits for phones, and that may stop.
struct StartedPc : PcWithHost {
    explicit StartedPc(PcRoute route, const std::string& chip = "fm11nt081")
        : PcWithHost({route}, chip) {
        AnnounceStop(log);
        Start();
        Pass(kSecond);
    }
    // Finds the threads waiting; the log begins after it.
    void WriteAgain() {
        EXPECT_EQ(manager->WriteMessage(NewMessage(0x33)), 0);
        Pass(kSecond);
        log.Clear();
    }
};

// A phone comes and goes on the route, and the host hears of it once each way.
void ExpectVisit(PcWithHost& setup) {
    std::vector<int> expected = EventNumbers();
    expected.insert(expected.end(), {3, 1});
    setup.pc.TapPhone(0, kSecond);
    EXPECT_TRUE(PcWithHost::WaitForEvents(expected.size(), 20 * kSecond))
        << hosted::DescribeThreads();
    PcWithHost::Pass(kSecond);
    EXPECT_EQ(EventNumbers(), expected);
}

// A stop lasts until a start: a creation is none, nor is a device start on a driver route.

// The interrupt thread is held up on its way to a second visit, until the first one is over and the
// thread that would close the second has ended.
TEST(Stop, IsNotUndoneByACreationBeforeTheThreadHasSeenIt) {
    hosted::UseScheduledClock({Seed()});
    StartedPc setup(PcRoute::kI2c, "fanli");
    bool release = false;
    setup.log.OnLine([&](const std::string& text) {
        if (text.find("NFC EnterField(1), enterSum") == 0 && !EventNumbers().empty()) {
            hosted::WaitFor([&] { return release; }, hosted::kForever, "the host");
        }
    });
    const auto enter = [&] {
        const hosted::DeviceLock lock;
        setup.pc.chip()->BackDoor().RaiseStatus(hosted::Now(), simulator::kStatusEnterField, 0);
    };
    enter();
    PcWithHost::Pass(kSecond);
    enter();
    PcWithHost::Pass(kSecond);
    setup.manager.reset();
    PcWithHost::Pass(10 * kSecond);
    ASSERT_EQ(EventNumbers(), (std::vector<int>{3, 1})) << "the visit has been given up";
    ASSERT_TRUE(setup.log.Has("NFC_DeferCallThread return"));
    ASSERT_TRUE(setup.Create() && setup.StartDevices(*setup.manager));
    release = true;
    PcWithHost::Pass(kSecond);
    enter();
    PcWithHost::Pass(20 * kSecond);
    EXPECT_EQ(EventNumbers(), (std::vector<int>{3, 1})) << "no start, no event";
    EXPECT_EQ(setup.log.Count(kReturned), 1U);
    ASSERT_EQ(setup.manager->WriteMessage(setup.NewMessage()), 0);
    PcWithHost::Pass(20 *
                     kSecond);  // the chip has kept the status, and that visit is given up, too
    EXPECT_EQ(EventNumbers(), (std::vector<int>{3, 1, 3, 1}));
    ExpectVisit(setup);
}

TEST(Stop, LastsThroughCreationAndDeviceStartUntilTheNextWrite) {
    ForEachSeed(30, [] {
        StartedPc setup(PcRoute::kI2c, "fm11nt082c");
        setup.WriteAgain();
        setup.manager.reset();
        ASSERT_TRUE(setup.Create());
        setup.pc.TapPhone(0, 2 * kSecond);
        ASSERT_TRUE(setup.StartDevices(*setup.manager));
        PcWithHost::Pass(3 * kSecond);
        EXPECT_EQ(EventNumbers(), std::vector<int>{});
        EXPECT_EQ(setup.log.Count(kReturned), 1U);
        EXPECT_EQ(setup.log.Count(kWaits), 0U) << "a new wait without a start";
        EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage()), 0);
        PcWithHost::Pass(kSecond);  // the driver may have kept an interrupt for the next wait
        ExpectVisit(setup);
    });
}

TEST(FailedWait, EndsTheThreadOnce) {
    ForEachSeed(5, [] {
        StartedPc setup(PcRoute::kUsb);
        setup.WriteAgain();
        setup.pc.Unplug();
        PcWithHost::Pass(kSecond);
        EXPECT_EQ(setup.log.Texts(),
                  (std::vector<std::string>{"NFC Interrupt get Overlapped result 1167", kReturned}))
            << "no second request on a device that is gone";
    });
}

// The driver must keep the request pending. One that does not is left alone until the next write.
TEST(FailedWait, IsTriedAgainByTheNextWrite) {
    hosted::UseScheduledClock({Seed()});
    const std::vector<std::uint8_t> half(16, 0x11);
    const auto bus = std::make_shared<ScriptedBus>();
    PcWithHost setup({});
    hosted::AddDevice(simulator::kUsbDriverPath, bus);
    bus->reads = {Gives({6}), Gives({6}), Gives({0}), Gives(half), Gives(half)};
    bus->controls = {GivesAtOnce({}), NeverEnds()};
    AnnounceStop(setup.log);
    setup.Start();
    EXPECT_TRUE(PcWithHost::WaitForThreads(1));
    EXPECT_TRUE(HasInOrder(setup.log, {"NFC DeviceIoControl Failed: 0", kReturned}));
    EXPECT_EQ(EventNumbers(), std::vector<int>{});
    bus->reads = {Gives(half), Gives(half)};
    EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage()), 0);
    PcWithHost::Pass(kSecond);
    EXPECT_EQ(hosted::Live().threads, 2U);
    EXPECT_EQ(hosted::Live().requests, 1U);
}

// After a host has done something three times the route works, and nothing has been left over.
void ThreeTimes(PcRoute route, void (*act)(PcWithHost&)) {
    ForEachSeed(100, [route, act] {
        StartedPc setup(route, "fm11nt082c");
        setup.log.Announce("NFC ReadKeyboardData ReadFile error 0x6");  // between close and open
        const hosted::LiveCounts before = hosted::Live();
        for (int round = 0; round < 3; ++round) {
            act(setup);
        }
        PcWithHost::Pass(kSecond);
        ExpectVisit(setup);
        EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage(0x51)), 0);
        PcWithHost::Pass(kSecond);
        const hosted::LiveCounts after = hosted::Live();
        EXPECT_LE(after.handles, before.handles);
        EXPECT_LE(after.threads, before.threads);
        EXPECT_LE(after.requests, before.requests);
    });
}

TEST(ThreeTimes, AStopAndAtOnceAStart) {
    for (const PcRoute route : {PcRoute::kI2c, PcRoute::kUsb, PcRoute::kHid}) {
        ThreeTimes(route, [](PcWithHost& setup) {
            setup.manager.reset();
            setup.Start();
        });
    }
}

// The end of another manager stops the threads. A write that fails before its first transfer starts
// them again, whatever they have reached by then.
TEST(ThreeTimes, AStopInPassing) {
    ThreeTimes(PcRoute::kUsb, [](PcWithHost& setup) {
        NfcManager::Create(setup.NewMessage(), &PcWithHost::Listen);  // and lets go of it
        for (auto steps = hosted::Random() % 6; steps > 0; --steps) {
            hosted::Yield();
        }
        const auto message = setup.NewMessage();
        message->SetUrl(std::string(253, 'u'));
        EXPECT_EQ(setup.manager->WriteMessage(message), -1);
        setup.log.TakeUnannounced();
        EXPECT_TRUE(setup.manager->DeviceInit());  // the stop has ended the transfers' event
        PcWithHost::Pass(kSecond);
    });
}

TEST(ThreeTimes, AKeyboardOpenedAgain) {
    for (const PcRoute route : {PcRoute::kHid, PcRoute::kBle}) {
        ThreeTimes(route,
                   [](PcWithHost& setup) { EXPECT_TRUE(setup.StartDevices(*setup.manager)); });
    }
}

// Another manager ends, which stops the threads. The thread whose last line is `lastLine` is held
// up there, on its way out, until `start` has started the threads again: it has to serve on.
void StartWhileTheThreadEnds(PcWithHost& setup, const char* lastLine,
                             const std::function<void()>& start) {
    AnnounceStop(setup.log);
    PcWithHost::Pass(kSecond);
    bool ending = false;
    bool started = false;
    setup.log.OnLine([&](const std::string& text) {
        if (text == lastLine) {
            ending = true;
            hosted::WaitFor([&] { return started; }, 60 * kSecond, "the start");
        }
    });
    NfcManager::Create(setup.NewMessage(), &PcWithHost::Listen);  // and lets go of it
    EXPECT_TRUE(hosted::WaitFor([&] { return ending; }, kSecond, "the end of the loop"));
    start();
    started = true;
    PcWithHost::Pass(kSecond);
    setup.log.OnLine({});
}

TEST(RestartedThread, KeepsItsEvent) {
    hosted::UseScheduledClock({Seed()});
    StartedPc setup(PcRoute::kUsb);
    StartWhileTheThreadEnds(setup, kReturned, [&setup] {
        EXPECT_TRUE(setup.manager->DeviceInit());
        hosted::SetCallHook([](hosted::Call call, hosted::ThreadId) -> DWORD {
            return call == hosted::Call::kCreateEvent ? ERROR_NOT_ENOUGH_MEMORY : 0;
        });
        EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage()), 0);
    });
    EXPECT_EQ(hosted::Live().threads, 2U) << "the write has succeeded, so the threads must live";
    ExpectVisit(setup);
}

// Passes everything on to `inner`, but a request that is being cancelled ends with `bytes` first.
class CompletesWhenCancelled : public hosted::Driver {
  public:
    CompletesWhenCancelled(hosted::Driver& inner, simulator::Bytes bytes)
        : m_inner(inner), m_bytes(std::move(bytes)) {}
    DWORD Open() override { return m_inner.Open(); }
    void Close() override { m_inner.Close(); }
    DWORD Start(const hosted::RequestPtr& request) override { return m_inner.Start(request); }
    void Cancel(const hosted::RequestPtr& request) override {
        m_inner.Cancel(request);
        request->Complete(m_bytes.data(), m_bytes.size());
    }

  private:
    hosted::Driver& m_inner;
    simulator::Bytes m_bytes;
};

TEST(RestartedThread, HandlesAnInterruptThatCameBeforeTheCancellation) {
    hosted::UseScheduledClock({Seed()});
    PcWithHost setup({PcRoute::kUsb});
    hosted::AddDevice(simulator::kUsbDriverPath, std::make_shared<CompletesWhenCancelled>(
                                                     *setup.pc.spb(), simulator::Bytes()));
    setup.Start();
    StartWhileTheThreadEnds(setup, kReturned, [&setup] {
        EXPECT_TRUE(setup.manager->DeviceInit());
        EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage()), 0);
    });
    EXPECT_EQ(EventNumbers(), (std::vector<int>{3, 1}));
}

TEST(RestartedThread, HandlesAReportThatCameBeforeTheCancellation) {
    hosted::UseScheduledClock({Seed()});
    PcWithHost setup({PcRoute::kHid});
    const simulator::Bytes enterReport{0, 0, 0, 0, 0, simulator::kTypeField, 0x6E, 0xE6};
    hosted::AddHidInterface(simulator::KeyboardInterface(),
                            std::make_shared<CompletesWhenCancelled>(*setup.pc.hid(), enterReport));
    setup.Start();
    StartWhileTheThreadEnds(setup, "NFC ReadKeyboardDataThread return",
                            [&setup] { EXPECT_TRUE(setup.manager->DeviceInit()); });
    EXPECT_EQ(EventNumbers(), std::vector<int>{3});
}

// A device that is closed while an event thread waits on it: by the start that opens the keyboard
// anew, and by a start that fails.
TEST(ClosedDevice, HasItsRequestsCancelledBeforeAndNeverAfterwards) {
    for (const PcRoute route : {PcRoute::kHid, PcRoute::kUsb}) {
        ForEachSeed(50, [route] {
            StartedPc setup(route);
            unsigned closed = 0;
            unsigned cancelledBefore = 0;
            unsigned cancelsAfter = 0;  // calls of the event threads
            hosted::SetTracer([&](const hosted::TraceEvent& event) {
                closed += event.kind == hosted::TraceEvent::Kind::kClose ? 1 : 0;
                const bool cancelled = event.kind == hosted::TraceEvent::Kind::kCancel;
                cancelledBefore += cancelled && closed == 0 ? 1 : 0;
            });
            hosted::SetCallHook([&, host = hosted::CurrentThread()](
                                    hosted::Call call, hosted::ThreadId thread) -> DWORD {
                const bool cancels = call == hosted::Call::kCancelIoEx && thread != host;
                cancelsAfter += cancels && closed > 0 ? 1 : 0;
                return 0;
            });
            if (route == PcRoute::kUsb) {
                setup.SetFaults("write#1+=fail:31");
            }
            EXPECT_EQ(setup.manager->DeviceInit(), route == PcRoute::kHid);
            PcWithHost::Pass(kSecond);
            setup.log.TakeUnannounced();  // of the failed start
            hosted::SetTracer({});
            hosted::SetCallHook({});
            EXPECT_GT(closed, 0U);
            EXPECT_EQ(cancelledBefore, 1U);
            EXPECT_EQ(cancelsAfter, 0U) << "CancelIoEx with the number of a closed handle";
        });
    }
}

// A copy works on the same tag and memory, and event threads end with the last of them.
TEST(Copies, ShareEverythingUntilTheLastOneGoes) {
    hosted::UseScheduledClock({Seed()});
    StartedPc setup(PcRoute::kUsb);
    NfcManager copy(*setup.manager);
    NfcManager assigned(nullptr);
    assigned = copy;
    setup.manager.reset();
    EXPECT_EQ(Renew(assigned, NumberOf(0x77)), 0);
    EXPECT_EQ(Renew(copy, NumberOf(0x77)), 0);
    EXPECT_TRUE(setup.log.Has("WriteRandNum no need to update"));
    copy = NfcManager(nullptr);
    PcWithHost::Pass(5 * kSecond);
    EXPECT_EQ(setup.NumberOnChip(), NumberOf(0x77));
    EXPECT_FALSE(setup.log.Has(kReturned));
    assigned = copy;
    PcWithHost::Pass(kSecond);
    EXPECT_TRUE(setup.log.Has(kReturned));
}

// The stop falls between the end of a visit and another interrupt.
TEST(Stop, AtTheEndOfAVisitLeavesNoEnterWithoutItsLeave) {
    hosted::ScheduledOptions options;
    options.maxLateness = hosted::kMillisecond;
    ForEachSeed(
        300,
        [] {
            PcWithHost setup({PcRoute::kUsb});
            setup.Start();
            AnnounceStop(setup.log);
            auto& door = setup.pc.chip()->BackDoor();
            hosted::After(0, [&] { door.RaiseInterrupt(); });
            hosted::After(350 * hosted::kMillisecond, [&] { door.RaiseInterrupt(); });
            PcWithHost::Pass(350 * hosted::kMillisecond);
            setup.manager.reset();
            PcWithHost::Pass(10 * kSecond);
            const std::vector<int> events = EventNumbers();
            EXPECT_EQ(std::count(events.begin(), events.end(), 3),
                      std::count(events.begin(), events.end(), 1));
        },
        options);
}

// An interrupt comes while a write gives up: the interrupt thread runs, the other could not start.
TEST(FailedStart, OpensNoVisitThatNobodyCloses) {
    ForEachSeed(3, [] {
        PcWithHost setup({PcRoute::kUsb});
        AnnounceStop(setup.log);
        setup.log.Announce("NFC_Error opening Spb driver, last error = 2");
        ASSERT_TRUE(setup.Create());
        ASSERT_TRUE(setup.StartDevices(*setup.manager));
        unsigned threads = 0;
        hosted::SetCallHook([&](hosted::Call call, hosted::ThreadId) -> DWORD {
            return call == hosted::Call::kCreateThread && ++threads == 2 ? ERROR_NOT_ENOUGH_MEMORY
                                                                         : 0;
        });
        setup.log.OnLine([&](const std::string& text) {
            if (text == "NfcThreadCreate exit Begin WaitForSingleObject") {
                Sleep(100);
                const hosted::DeviceLock lock;
                setup.pc.chip()->BackDoor().RaiseInterrupt();
            }
            Sleep(threads == 2 ? 100 : 0);
        });
        EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage()), -1);
        hosted::SetCallHook({});
        setup.log.OnLine({});
        PcWithHost::Pass(30 * kSecond);
        EXPECT_EQ(EventNumbers(), std::vector<int>{});
    });
}

// A slow log holds the read thread in its pass while a device start opens the keyboard again.
TEST(RestartedThread, OfAKeyboardSurvivesAStartDuringItsPass) {
    ForEachSeed(600, [] {
        PcWithHost setup({PcRoute::kHid});
        AnnounceStop(setup.log);
        setup.log.Announce("NFC ReadKeyboardData ReadFile error 0x6");
        setup.Start();
        PcWithHost::Pass(kSecond);
        bool arrived = false;
        bool started = false;
        setup.log.OnLine([&](const std::string& text) {
            arrived = arrived || text == "NFC Interrupt arrive";
            if (text == "NFC Wait For KeyboardData" && arrived && !started) {
                hosted::WaitFor([&] { return started; }, 60 * kSecond, "the start");
            }
        });
        setup.pc.TapPhone(0, 60 * kSecond);
        hosted::WaitFor([&] { return arrived; }, kSecond, "a report");
        for (auto steps = hosted::Random() % 8; steps > 0; --steps) {
            hosted::Yield();
        }
        EXPECT_TRUE(setup.StartDevices(*setup.manager));
        started = true;
        PcWithHost::Pass(kSecond);
        EXPECT_EQ(hosted::Live().threads, 2U) << hosted::DescribeThreads();
        setup.log.OnLine({});
    });
}

}  // namespace
