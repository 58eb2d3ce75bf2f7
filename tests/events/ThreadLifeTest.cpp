// Starts and stops of the event threads: what ends them, what starts them again, and that nothing
// is left over.
#include "events/DriverThreads.h"
#include "tests/support/PcWithHost.h"

using namespace testing_support;

namespace {

constexpr char kReturned[] = "NFC WaitOnInterruptLoop return";
constexpr char kWaits[] = "NFC Wait For Kernel Interrupt...";

// A PC that waits for phones.
struct WaitingPc : StartedPc {
    explicit WaitingPc(PcRoute route, const std::string& chip = "fm11nt081")
        : StartedPc({route}, chip) {
        Pass(kSecond);
    }
};

// A phone comes and goes on the route, and the host hears of it once each way.
void ExpectVisit(PcWithHost& setup) {
    std::vector<int> expected = EventNumbers();
    expected.insert(expected.end(), {3, 1});
    setup.pc.TapPhone(0, kSecond);
    EXPECT_TRUE(PcWithHost::WaitForEvents(expected.size(), 20 * kSecond))
        << emulation::DescribeThreads();
    PcWithHost::Pass(kSecond);
    EXPECT_EQ(EventNumbers(), expected);
}

// The listener holds up the interrupt thread, which sees the stop after the creation.
TEST(Stop, IsNotUndoneByACreationBeforeTheThreadHasSeenIt) {
    WaitingPc setup(PcRoute::kUsb);
    bool release = false;
    ReactToEvents([&](const ReceivedEvent& /*event*/) {
        emulation::WaitFor([&] { return release; }, emulation::kForever, "the host");
    });
    setup.pc.chip()->BackDoor().RaiseInterrupt();
    ASSERT_TRUE(PcWithHost::WaitForEvents(1, kSecond));
    setup.manager.reset();
    ASSERT_TRUE(setup.Create());
    release = true;
    PcWithHost::Pass(20 * kSecond);
    EXPECT_EQ(setup.log.Count(kReturned), 1U) << "no start, no further wait";
    EXPECT_EQ(setup.log.Count("NFC_DeferCallThread return"), 1U);
    EXPECT_EQ(EventNumbers(), (std::vector<int>{3, 1})) << "the visit is closed all the same";
}

TEST(Stop, LeavesTheThreadThatClosesVisitsToOneThatIsAboutToOpen) {
    WaitingPc setup(PcRoute::kI2c, "fanli");
    bool release = false;
    setup.log.OnLine([&](const std::string& text) {
        if (text.rfind("NFC EnterField", 0) == 0) {
            emulation::WaitFor([&] { return release; }, emulation::kForever, "the host");
        }
    });
    setup.pc.TapPhone(0, kSecond);
    PcWithHost::Pass(100 * kMillisecond);
    setup.manager.reset();
    release = true;
    PcWithHost::Pass(20 * kSecond);
    setup.log.OnLine({});
    EXPECT_EQ(EventNumbers(), (std::vector<int>{3, 1}));
}

TEST(Stop, LastsThroughCreationAndDeviceStartUntilTheNextWrite) {
    ForEachSeed(30, [] {
        WaitingPc setup(PcRoute::kI2c, "fm11nt082c");
        setup.log.Clear();
        EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage(0x33)), 0);
        PcWithHost::Pass(kSecond);
        for (const char* thread : {"m_staticNotificationThread", "m_staticCallThread"}) {
            EXPECT_EQ(setup.log.Count(std::string("NFC_ ") + thread + " already exist"), 1U);
        }
        setup.log.Clear();
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

// The second code is also that of a request that has not ended.
TEST(FailedWait, EndsTheThreadOnce) {
    for (const char* code : {"1167", "996"}) {
        ForEachSeed(5, [code] {
            PcWithHost setup({PcRoute::kUsb});
            setup.log.Announce(std::string("NFC Interrupt get Overlapped result ") + code);
            setup.SetFaults(std::string("interrupt#1+=fail:") + code);
            setup.Start();
            PcWithHost::Pass(kSecond);
            EXPECT_EQ(setup.log.Count(kWaits), 1U) << "a second request after a failed one";
            EXPECT_EQ(setup.log.Count(kReturned), 1U);
            EXPECT_EQ(emulation::Live().threads, 1U);
            EXPECT_EQ(g_interruptEvent, nullptr) << "of a thread that has ended";
        });
    }
}

// The next wait of an event thread.
void FailOneWait() {
    emulation::SetCallHook([host = emulation::CurrentThread(), hasFailed = false](
                               emulation::Call call, emulation::ThreadId thread) mutable -> DWORD {
        const bool fails = call == emulation::Call::kWait && thread != host;
        return fails && !std::exchange(hasFailed, true) ? ERROR_INVALID_HANDLE : 0;
    });
}

TEST(FailedWait, ForTheEndOfARequestIsFollowedByAnotherRequest) {
    WaitingPc setup(PcRoute::kUsb);
    FailOneWait();
    ExpectVisit(setup);
    emulation::SetCallHook({});
    EXPECT_EQ(setup.log.Count("NFC WaitForSingleObject Failed: 6"), 1U);
    EXPECT_EQ(setup.log.Count(kReturned), 0U) << "the loop is not left";
    ExpectVisit(setup);
}

// Passes everything on to `inner`, but lets requests of the event threads succeed when `inner`
// would not: when they are cancelled, or in the call that starts one.
struct EarlyEnds : emulation::Driver {
    explicit EarlyEnds(emulation::Driver& inner) : inner(inner) {}
    DWORD Open() override { return inner.Open(); }
    void Close() override { inner.Close(); }
    DWORD Start(const emulation::RequestPtr& request) override {
        if (request->controlCode() == simulator::kControlInterrupt &&
            std::exchange(atOnce, false)) {
            request->Complete(nullptr, 0);
            return ERROR_SUCCESS;
        }
        return inner.Start(request);
    }
    void Cancel(const emulation::RequestPtr& request) override {
        inner.Cancel(request);
        request->Complete(nullptr, 0);
    }
    emulation::Driver& inner;
    bool atOnce = false;  // the next interrupt wait
};

TEST(FailedWait, KeepsWhatCameBeforeTheCancellation) {
    PcWithHost setup({PcRoute::kUsb});
    emulation::AddDevice(simulator::kUsbDriverPath, std::make_shared<EarlyEnds>(*setup.pc.spb()));
    FailOneWait();
    setup.Start();
    PcWithHost::Pass(kSecond);
    emulation::SetCallHook({});
    setup.log.TakeUnannounced();  // of the wait
    EXPECT_EQ(EventNumbers(), (std::vector<int>{3, 1}));
}

// The driver must keep the request pending. One that does not is left alone until the next write.
TEST(FailedWait, IsTriedAgainByTheNextWrite) {
    PcWithHost setup({PcRoute::kUsb});
    const auto driver = std::make_shared<EarlyEnds>(*setup.pc.spb());
    driver->atOnce = true;
    emulation::AddDevice(simulator::kUsbDriverPath, driver);
    setup.Start();
    EXPECT_TRUE(PcWithHost::WaitForThreads(1));
    EXPECT_TRUE(HasInOrder(setup.log, {"NFC DeviceIoControl Failed: 0", kReturned}));
    EXPECT_EQ(EventNumbers(), std::vector<int>{});
    EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage()), 0);
    PcWithHost::Pass(kSecond);
    ExpectVisit(setup);
}

// Another manager ends, which stops the threads. The interrupt thread is held up on its way out
// until a write has started the threads again: it serves on.
TEST(RestartedThread, KeepsItsEventAndWhatCameBeforeTheCancellation) {
    PcWithHost setup({PcRoute::kUsb});
    emulation::AddDevice(simulator::kUsbDriverPath, std::make_shared<EarlyEnds>(*setup.pc.spb()));
    setup.Start();
    PcWithHost::Pass(kSecond);
    EXPECT_TRUE(g_interruptEvent != nullptr && g_interruptOverlapped.hEvent == g_interruptEvent)
        << "for a debugger";
    bool ending = false;
    bool started = false;
    setup.log.OnLine([&](const std::string& text) {
        if (text == kReturned) {
            ending = true;
            emulation::WaitFor([&] { return started; }, 60 * kSecond, "the start");
        }
    });
    NfcManager::Create(setup.NewMessage(), &PcWithHost::Listen);  // and lets go of it
    EXPECT_TRUE(emulation::WaitFor([&] { return ending; }, kSecond, "the end of the loop"));
    EXPECT_TRUE(setup.manager->DeviceInit());
    {
        const RefusedCalls refused(emulation::Call::kCreateEvent);
        EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage()), 0);
    }
    started = true;
    PcWithHost::Pass(kSecond);
    setup.log.OnLine({});
    EXPECT_EQ(EventNumbers(), (std::vector<int>{3, 1})) << "of what came";
    ExpectVisit(setup);
}

// The request fails before the stop, and the thread looks at it after the start.
TEST(RestartedThread, GoesOnAfterARequestThatFailedBeforeTheStart) {
    PcWithHost setup({PcRoute::kUsb});
    setup.log.Announce("NFC Interrupt get Overlapped result 1167");
    setup.SetFaults("interrupt#1=fail:1167");
    bool waits = false;
    bool started = false;
    setup.log.OnLine([&](const std::string& text) {
        if (text == kWaits && !std::exchange(waits, true)) {
            emulation::WaitFor([&] { return started; }, 60 * kSecond, "the start");
        }
    });
    setup.Start();
    EXPECT_TRUE(emulation::WaitFor([&] { return waits; }, kSecond, "the request"));
    NfcManager::Create(setup.NewMessage(), &PcWithHost::Listen);  // and lets go of it
    EXPECT_TRUE(setup.manager->DeviceInit());
    EXPECT_EQ(setup.manager->WriteMessage(setup.NewMessage()), 0);
    started = true;
    PcWithHost::Pass(kSecond);
    ExpectVisit(setup);
}

// A device that is closed while an event thread waits on it: by the start that opens the keyboard
// anew, and by a start that fails.
TEST(ClosedDevice, HasItsRequestsCancelledBeforeAndNeverAfterwards) {
    for (const PcRoute route : {PcRoute::kHid, PcRoute::kUsb}) {
        ForEachSeed(50, [route] {
            WaitingPc setup(route);
            unsigned closed = 0;
            unsigned cancelledBefore = 0;
            unsigned cancelsAfter = 0;  // calls of the event threads
            emulation::SetTracer([&](const emulation::TraceEvent& event) {
                using Kind = emulation::TraceEvent::Kind;
                closed += event.kind == Kind::kClose ? 1 : 0;
                cancelledBefore += event.kind == Kind::kCancel && closed == 0 ? 1 : 0;
            });
            emulation::SetCallHook([&, host = emulation::CurrentThread()](
                                       emulation::Call call, emulation::ThreadId thread) -> DWORD {
                const bool cancels = call == emulation::Call::kCancelIoEx && thread != host;
                cancelsAfter += cancels && closed > 0 ? 1 : 0;
                return 0;
            });
            if (route == PcRoute::kUsb) {
                setup.SetFaults("write#1+=fail:31");
            }
            EXPECT_EQ(setup.manager->DeviceInit(), route == PcRoute::kHid);
            PcWithHost::Pass(kSecond);
            setup.log.TakeUnannounced();  // of the failed start
            emulation::SetTracer({});
            emulation::SetCallHook({});
            EXPECT_GT(closed, 0U);
            EXPECT_EQ(cancelledBefore, 1U);
            EXPECT_EQ(cancelsAfter, 0U) << "CancelIoEx with the number of a closed handle";
        });
    }
}

// A copy works on the same tag and memory, and event threads end with the last of them.
TEST(Copies, ShareEverythingUntilTheLastOneGoes) {
    WaitingPc setup(PcRoute::kUsb);
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

}  // namespace
